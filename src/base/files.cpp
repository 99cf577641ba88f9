// The file and directory half of CUnixTools.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

#include "base/dir_walk.h"
#include "base/handles.h"
#include "base/io.h"
#include "base/paths.h"
#include "utility/CStr.h"
#include "utility/CUnixTools.h"

namespace utility {
namespace {

using detail::DirWalk;
using detail::Fd;
using detail::or_empty;

constexpr int kDirectory = 1;
constexpr int kRegular = 2;
constexpr int kLink = 3;
constexpr int kOther = 255;

constexpr std::size_t kCopyPathLimit = 1023;
constexpr std::size_t kRemovePathLimit = 255;

bool is_copied_as_file(int type) {
  return type == kRegular || type == kLink;
}

// A path that was cut can lead back to the directory that is being walked, or out of it: descending
// there would never end, or would take what is not ours.
bool leads_back(const std::string& path, std::string_view dir) {
  std::string_view tail = std::string_view(path).substr(std::min(dir.size(), path.size()));
  while (!tail.empty() && tail.front() == '/') tail.remove_prefix(1);
  return tail.empty() || tail == "." || tail == "..";
}

bool copy_bytes(int source, int target) {
  std::array<char, 16384> block;
  for (;;) {
    const ssize_t count = ::read(source, block.data(), block.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return true;
    if (!detail::write_all(target, {block.data(), static_cast<std::size_t>(count)})) return false;
  }
}

bool is_same_file(const char* a, const char* b) {
  struct stat first {};
  struct stat second {};
  return ::stat(or_empty(a), &first) == 0 && ::stat(or_empty(b), &second) == 0 &&
         first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

// Copies by what the source is; 13 for a kind that is not copied.
int copy_by_type(const char* source, const char* target) {
  const int type = CUnixTools::file_type(source);
  if (type == kDirectory) return CUnixTools::copy_directory(source, target);
  if (is_copied_as_file(type)) return CUnixTools::copy_regular_file(source, target);
  return 13;
}

int copy_entry(const char* source_dir, const char* target_dir, const char* name) {
  const std::string source = detail::join_path(source_dir, name, kCopyPathLimit);
  if (leads_back(source, source_dir)) return 1;
  const std::string target = detail::join_path(target_dir, name, kCopyPathLimit);
  return copy_by_type(source.c_str(), target.c_str());
}

bool remove_entry(const char* dir, const char* name) {
  const std::string path = detail::join_path(dir, name, kRemovePathLimit);
  if (leads_back(path, dir)) return false;
  if (CUnixTools::file_type(path.c_str()) == kDirectory) {
    return CUnixTools::rm_dir(path.c_str()) == 0;
  }
  return ::unlink(path.c_str()) == 0;
}

// What copy_file and move_file refuse alike: 4, 3, or 0 to go on.
int check_endpoints(const char* source, const char* target, bool overwrite) {
  if (!detail::exists(source)) return 4;
  if (detail::exists(target) && !overwrite) return 3;
  return 0;
}

}  // namespace

bool CUnixTools::file_is_exist(const char* path) {
  return detail::exists(path);
}

bool CUnixTools::is_exist_dir(const char* path) {
  return detail::exists(path) && file_type(path) == kDirectory;
}

int CUnixTools::file_type(const char* path) {
  struct stat status {};
  if (::lstat(or_empty(path), &status) != 0) return kOther;
  switch (status.st_mode & S_IFMT) {
    case S_IFDIR:
      return kDirectory;
    case S_IFREG:
      return kRegular;
    case S_IFLNK:
      return kLink;
    default:
      return kOther;
  }
}

unsigned long CUnixTools::read_file_permission(const char* path) {
  struct stat status {};
  return ::stat(or_empty(path), &status) == 0 ? status.st_mode : 0;
}

int CUnixTools::create_file(const char* path, const unsigned long& mode) {
  if (detail::exists(path)) return 3;
  // No O_TRUNC: a file that appears at this very moment keeps its content.
  const Fd file(::open(or_empty(path), O_WRONLY | O_CREAT | O_CLOEXEC, static_cast<mode_t>(mode)));
  return file ? 0 : 7;
}

int CUnixTools::copy_regular_file(const char* source, const char* target) {
  if (is_same_file(source, target)) return 1;
  if (detail::exists(target)) ::unlink(target);
  // O_NONBLOCK: a link may point to a FIFO that nobody writes to.
  const Fd in(::open(or_empty(source), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!in) return 1;
  const Fd out(::open(or_empty(target), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666));
  if (!out) return 1;

  struct stat status {};
  if (::fstat(in.get(), &status) != 0) return 1;
  if (S_ISREG(status.st_mode) && !copy_bytes(in.get(), out.get())) return 1;
  ::fchmod(out.get(), status.st_mode & 07777);
  return 0;
}

int CUnixTools::copy_directory(const char* source, const char* target) {
  if (source == nullptr || target == nullptr) return 1;
  if (!is_exist_dir(target))
    ::mkdir(or_empty(target), static_cast<mode_t>(read_file_permission(source)));
  DirWalk entries(or_empty(source));
  if (!entries) return 1;
  int status = 0;
  while (const char* name = entries.next()) status = copy_entry(source, target, name);
  return status;
}

int CUnixTools::copy_file(const char* source, const char* target, const bool& overwrite) {
  const int refused = check_endpoints(source, target, overwrite);
  return refused != 0 ? refused : copy_by_type(source, target);
}

int CUnixTools::move_file(const char* source, const char* target, const bool& overwrite) {
  const int refused = check_endpoints(source, target, overwrite);
  if (refused != 0) return refused;
  copy_by_type(source, target);
  return rm_file(source);
}

int CUnixTools::rm_dir(const char* path) {
  if (::rmdir(or_empty(path)) == 0) return 0;
  if (errno != ENOTEMPTY && errno != EEXIST) return 11;
  DirWalk entries(path);
  if (!entries) return 11;
  while (const char* name = entries.next()) {
    if (!remove_entry(path, name)) return 11;
  }
  return ::rmdir(path) == 0 ? 0 : 11;
}

int CUnixTools::rm_file(const char* path) {
  if (!detail::exists(path)) return 4;
  struct stat status {};
  if (::stat(path, &status) != 0) return 10;
  if (S_ISDIR(status.st_mode)) return rm_dir(path);
  return ::unlink(path) == 0 ? 0 : 11;
}

int CUnixTools::mkdir_parents(const std::string& path, const unsigned long& mode) {
  std::vector<std::string> names;
  CStr::ext_line("/", names, path);
  std::string prefix = !path.empty() && path.front() == '/' ? "/" : "";
  for (const std::string& name : names) {
    prefix.append(name).append("/");
    if (::mkdir(prefix.c_str(), static_cast<mode_t>(mode)) != 0 && errno != EEXIST) return 12;
  }
  return 0;
}

}  // namespace utility
