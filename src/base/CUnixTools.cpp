#include "utility/CUnixTools.h"

#include <chrono>
#include <ctime>
#include <thread>

#include "base/database_entry.h"
#include "base/dir_walk.h"
#include "base/io.h"
#include "base/local_time.h"
#include "base/paths.h"
#include "base/text.h"

namespace utility {

using namespace detail;

namespace {

enum Code : int {
  kDone = 0,
  kNotCopied = 1,
  kNoOutput = 2,
  kTargetExists = 3,
  kNoSource = 4,
  kNotCreated = 7,
  kNoCommand = 9,
  kNotExamined = 10,
  kNotRemoved = 11,
  kNoDirectory = 12,
  kOtherKind = 13,
};

enum Kind : int { kDirectory = 1, kRegular = 2, kLink = 3, kOther = 255 };

constexpr std::size_t kCopyPathLimit = 1023;
constexpr std::size_t kRemovePathLimit = 255;

int kind_of(const FileStatus& status) {
  if (status.is(S_IFDIR)) return kDirectory;
  if (status.is(S_IFREG)) return kRegular;
  return status.is(S_IFLNK) ? kLink : kOther;
}

// As much of an entry's name as a path of at most `limit` bytes below `dir` has room for. Empty
// where that is nothing, or leads back: descending there would never end, or take what is not ours.
std::string cut_name(const std::string& dir, const char* name, std::size_t limit) {
  if (dir.size() + 1 >= limit) return {};
  std::string cut(name, ::strnlen(name, limit - dir.size() - 1));
  return cut == "." || cut == ".." ? std::string() : cut;
}

// True when both paths name the same entry of the same directory, so that unlinking one takes the
// other. Two links to one file are two entries; a directory has only one.
bool is_same_entry(const char* a, const char* b) {
  const FileStatus first(a, AT_SYMLINK_NOFOLLOW), second(b, AT_SYMLINK_NOFOLLOW);
  if (!first || !second || !first.is_same(second)) return false;
  if (first.is(S_IFDIR)) return true;
  const auto split = [](std::string_view path, std::string& dir) {
    const std::size_t name = path.rfind('/') + 1;  // 0 without any "/"
    dir = name == 0 ? "." : path.substr(0, name);
    return path.substr(name);
  };
  std::string first_dir, second_dir;
  if (split(a, first_dir) != split(b, second_dir)) return false;
  const FileStatus first_parent(first_dir.c_str()), second_parent(second_dir.c_str());
  return first_parent && second_parent && first_parent.is_same(second_parent);
}

// Opens what is to be copied. Without blocking, since a link may point to a FIFO that nobody writes
// to; where another process holds a lease on the file, that process is given its time to let go (45
// seconds, as kernels are set up; a little more is waited).
Fd open_source(const char* path) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  for (;;) {
    Fd source(::open(or_empty(path), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    const bool is_held = !source && errno == EWOULDBLOCK;
    if (!is_held || std::chrono::steady_clock::now() > deadline) return source;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

// A source that stops being readable is copied as far as it went.
bool copy_bytes(int source, int target) {
  std::array<char, 16384> block;
  for (;;) {
    const ssize_t count = read_some(source, block.data(), block.size());
    if (count <= 0) return true;
    if (!write_all(target, {block.data(), static_cast<std::size_t>(count)})) return false;
  }
}

void make_target(const char* target, mode_t mode) {
  if (!CUnixTools::is_exist_dir(target)) ::mkdir(or_empty(target), mode);
}

// Copies what is no directory: files, and links as the files that they lead to.
int copy_undivided(int kind, const char* source, const char* target) {
  return kind == kOther ? kOtherKind : CUnixTools::copy_regular_file(source, target);
}

// Copies directories. A directory below the source is found by its name within the open directory:
// one that becomes a link meanwhile is not followed.
class TreeCopy {
 public:
  // `target` is the target of the whole copy, which does not copy itself.
  explicit TreeCopy(const char* target) : top_(target) {}

  int copy(int parent, const char* name, int flags, const std::string& source,
           const std::string& target) {
    // On the heap: a path of 1023 bytes holds 500 levels.
    const std::unique_ptr<DirWalk> entries(new (std::nothrow) DirWalk(parent, name, flags));
    if (!entries || !*entries) return kNotCopied;
    int code = kDone;
    while (const char* entry = entries->next())
      code = copy_entry(entries->fd(), source, target, entry);
    return code;
  }

 private:
  int copy_entry(int dir, const std::string& source_dir, const std::string& target_dir,
                 const char* entry) {
    const std::string name = cut_name(source_dir, entry, kCopyPathLimit);
    if (name.empty()) return kNotCopied;
    const std::string source = source_dir + "/" + name;
    const std::string target = join_path(target_dir.c_str(), entry, kCopyPathLimit);
    const FileStatus status(dir, name.c_str(), AT_SYMLINK_NOFOLLOW);
    if (!status.is(S_IFDIR)) return copy_undivided(kind_of(status), source.c_str(), target.c_str());
    if (status.is_same(top_)) return kNotCopied;
    make_target(target.c_str(), status->st_mode);
    return copy(dir, name.c_str(), O_NOFOLLOW, source, target);
  }

  FileStatus top_;
};

// Copies by what the source is.
int copy_by_kind(const char* source, const char* target) {
  const int kind = CUnixTools::file_type(source);
  return kind == kDirectory ? CUnixTools::copy_directory(source, target)
                            : copy_undivided(kind, source, target);
}

// What copy_file and move_file refuse alike.
int check_endpoints(const char* source, const char* target, bool overwrite) {
  if (!exists(source)) return kNoSource;
  return exists(target) && !overwrite ? kTargetExists : kDone;
}

// Removes what is in the directory `name` of the open directory `parent`, in all `path`. By name
// within the open directory: an entry that becomes a link meanwhile is not followed.
bool remove_entries(int parent, const char* name, const std::string& path) {
  DirWalk entries(parent, name, O_NOFOLLOW);
  if (!entries) return false;
  while (const char* entry = entries.next()) {
    const std::string cut = cut_name(path, entry, kRemovePathLimit);
    if (cut.empty()) return false;
    const FileStatus status(entries.fd(), cut.c_str(), AT_SYMLINK_NOFOLLOW);
    if (::unlinkat(entries.fd(), cut.c_str(), status.is(S_IFDIR) ? AT_REMOVEDIR : 0) == 0) continue;
    if (!status.is(S_IFDIR) || (errno != ENOTEMPTY && errno != EEXIST) ||
        !remove_entries(entries.fd(), cut.c_str(),
                        join_path(path.c_str(), cut.c_str(), kRemovePathLimit)) ||
        ::unlinkat(entries.fd(), cut.c_str(), AT_REMOVEDIR) != 0) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool CUnixTools::file_is_exist(const char* path) { return exists(path); }

bool CUnixTools::is_exist_dir(const char* path) {
  return exists(path) && file_type(path) == kDirectory;
}

int CUnixTools::file_type(const char* path) {
  return kind_of(FileStatus(path, AT_SYMLINK_NOFOLLOW));
}

unsigned long CUnixTools::read_file_permission(const char* path) {
  const FileStatus status(path);
  return status ? status->st_mode : 0;
}

int CUnixTools::create_file(const char* path, const unsigned long& mode) {
  if (exists(path)) return kTargetExists;
  // No O_TRUNC: a file that appears at this very moment keeps its content.
  const Fd file(::open(or_empty(path), O_WRONLY | O_CREAT | O_CLOEXEC, static_cast<mode_t>(mode)));
  return file ? kDone : kNotCreated;
}

int CUnixTools::copy_regular_file(const char* source, const char* target) {
  if (is_same_entry(source, target)) return kNotCopied;
  // Opened before the target goes, which may be a link to it.
  const Fd in = open_source(source);
  if (exists(target)) ::unlink(target);
  if (!in) return kNotCopied;
  // Nobody else reads the copy before it has the source's mode.
  const Fd out(::open(or_empty(target), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600));
  const FileStatus from(in.get()), to(out.get());
  // Still the same: a mount point, which cannot be unlinked.
  if (!from || !to || from.is_same(to)) return kNotCopied;
  if (from.is(S_IFREG) && !copy_bytes(in.get(), out.get())) return kNotCopied;
  ::fchmod(out.get(), from->st_mode & 07777);
  return kDone;
}

int CUnixTools::copy_directory(const char* source, const char* target) {
  if (source == nullptr || target == nullptr || is_same_entry(source, target)) return kNotCopied;
  make_target(target, static_cast<mode_t>(read_file_permission(source)));
  return TreeCopy(target).copy(AT_FDCWD, source, 0, source, target);
}

int CUnixTools::copy_file(const char* source, const char* target, const bool& overwrite) {
  const int refused = check_endpoints(source, target, overwrite);
  return refused != kDone ? refused : copy_by_kind(source, target);
}

int CUnixTools::move_file(const char* source, const char* target, const bool& overwrite) {
  if (const int refused = check_endpoints(source, target, overwrite)) return refused;
  if (is_same_entry(source, target)) return kNoSource;
  copy_by_kind(source, target);
  return rm_file(source);
}

int CUnixTools::rm_dir(const char* path) {
  if (::rmdir(or_empty(path)) == 0) return kDone;
  if (errno != ENOTEMPTY && errno != EEXIST) return kNotRemoved;
  const std::string dir = without_end_slashes(path);
  return remove_entries(AT_FDCWD, dir.c_str(), path) && ::rmdir(path) == 0 ? kDone : kNotRemoved;
}

int CUnixTools::rm_file(const char* path) {
  if (!exists(path)) return kNoSource;
  const FileStatus status(path);
  if (!status) return kNotExamined;
  if (status.is(S_IFDIR)) return rm_dir(path);
  return ::unlink(path) == 0 ? kDone : kNotRemoved;
}

int CUnixTools::mkdir_parents(const std::string& path, const unsigned long& mode) {
  std::string prefix = begins_with(path, "/") ? "/" : "";
  for (const std::string& name : split("/", path)) {
    prefix.append(name).append("/");
    if (::mkdir(prefix.c_str(), static_cast<mode_t>(mode)) == 0) continue;
    // With its slash, only a directory or a link to one exists.
    if (errno != EEXIST || !exists(prefix.c_str())) return kNoDirectory;
  }
  return kDone;
}

int CUnixTools::exec_cmd(const char* command) {
  if (command == nullptr) return kNoCommand;
  // Bits 8 to 15 only: a command that a signal ended counts as done, a failed call reads as 255.
  return (std::system(command) >> 8) & 0xFF;
}

int CUnixTools::exec_cmd_results(const char* command, std::vector<std::string>& lines,
                                 const int& line_length) {
  if (command == nullptr) return kNoCommand;
  std::string output;
  if (!read_command(command, output)) return kNoOutput;
  if (line_length < 2) return kDone;
  for (std::string_view rest = output; !rest.empty();) {
    // A NUL byte ends what is seen of a line.
    const auto piece = take_line(rest, static_cast<std::size_t>(line_length) - 1);
    std::string line(piece.substr(0, piece.find('\0')));
    CStr::trim(line);
    lines.push_back(std::move(line));
  }
  return kDone;
}

unsigned long CUnixTools::GetTickCount() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<unsigned long>(now.tv_sec) * 1000 +
         static_cast<unsigned long>(now.tv_nsec) / 1000000;
}

std::string CUnixTools::get_time_now() {
  std::tm now{};
  if (!local_time(std::time(nullptr), now)) return {};
  char text[64];
  return {text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &now)};
}

std::string CUnixTools::get_process_user() {
  const UserEntry user = find_user_by_id(::getuid());
  return user ? user->pw_name : "";
}

std::string CUnixTools::get_process_path(const int& pid) {
  const auto number = std::to_string(static_cast<unsigned>(pid));
  std::string path;
  read_link_at(AT_FDCWD, ("/proc/" + number + "/exe").c_str(), 1024, path);
  return path;
}

}  // namespace utility
