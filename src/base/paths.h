#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

// Small questions about paths that several families ask.
namespace utility::detail {

/// Lets a null path be examined as the empty one, which never exists.
inline const char* or_empty(const char* path) noexcept { return path != nullptr ? path : ""; }

/// What stat(2) tells of a file. Where it tells nothing, the file is of no kind, and errno is set.
class FileStatus {
 public:
  /// Of `path`, links followed unless `flags` has AT_SYMLINK_NOFOLLOW.
  explicit FileStatus(const char* path, int flags = 0) noexcept
      : FileStatus(AT_FDCWD, or_empty(path), flags) {}
  /// Of `name` below the open directory `dir`.
  FileStatus(int dir, const char* name, int flags = 0) noexcept
      : is_known_(::fstatat(dir, name, &stat_, flags) == 0) {}
  /// Of an open file.
  explicit FileStatus(int fd) noexcept : is_known_(::fstat(fd, &stat_) == 0) {}

  explicit operator bool() const noexcept { return is_known_; }
  const struct stat* operator->() const noexcept { return &stat_; }
  /// True for a file of this kind, such as S_IFREG.
  bool is(mode_t kind) const noexcept { return is_known_ && (stat_.st_mode & S_IFMT) == kind; }
  bool is_same(const FileStatus& other) const noexcept {
    return stat_.st_dev == other->st_dev && stat_.st_ino == other->st_ino;
  }

 private:
  struct stat stat_ {};
  bool is_known_;
};

/// Appends the inode number of `entry`, below the open directory `dir`, if it leads to a socket.
inline void append_if_socket(int dir, const char* entry, std::vector<unsigned long>& inodes) {
  const FileStatus status(dir, entry);
  if (status.is(S_IFSOCK)) inodes.push_back(status->st_ino);
}

/// True when `path` exists (links followed, so a dangling link does not).
inline bool exists(const char* path) noexcept { return ::access(or_empty(path), F_OK) == 0; }

/// The same, but a dangling link exists too.
inline bool exists_itself(const char* path) noexcept {
  return exists(path) || FileStatus(path, AT_SYMLINK_NOFOLLOW).is(S_IFLNK);
}

/// Reads the link `path`, relative to the open directory `dir` (AT_FDCWD for the caller's).
///
/// At most `limit` bytes of the target are kept; `limit` is at most 4096. False, with errno set and
/// `target` untouched, when it is no readable link.
inline bool read_link_at(int dir, const char* path, std::size_t limit, std::string& target) {
  std::array<char, 4096> buffer;
  const ssize_t length = ::readlinkat(dir, path, buffer.data(), std::min(limit, buffer.size()));
  if (length < 0) return false;
  target.assign(buffer.data(), static_cast<std::size_t>(length));
  return true;
}

/// `path` without the slashes at its end: with them, a link would be followed whatever the call.
inline std::string without_end_slashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

/// `dir` + "/" + `name`, cut to at most `limit` bytes.
inline std::string join_path(const char* dir, const char* name, std::size_t limit) {
  std::string path(dir);
  path.append("/").append(name);
  if (path.size() > limit) path.resize(limit);
  return path;
}

}  // namespace utility::detail
