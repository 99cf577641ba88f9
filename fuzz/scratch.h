#pragma once

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "check.h"

// Files of a fuzzer's own. It moves to mounts of its own first, where only it sees what it puts
// over the machine's files, and where everything is gone when it ends. That takes root.
namespace scratch {

/// An empty directory in memory, made where it is first asked for. It hides /run, where nothing is
/// that a fuzzer needs, nor may reach.
inline const std::string& dir() {
  static const std::string path = [] {
    FUZZ_CHECK(::unshare(CLONE_NEWNS) == 0);
    FUZZ_CHECK(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0);
    FUZZ_CHECK(::mount("tmpfs", "/run", "tmpfs", 0, "mode=0755") == 0);
    return "/run";
  }();
  return path;
}

/// Puts the file or directory `source` over the existing `target`.
inline void put_over(const std::string& source, const std::string& target) {
  FUZZ_CHECK(::mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) == 0);
}

/// A file in `dir()` that is written anew, in its place, for each input.
class File {
 public:
  explicit File(const std::string& name)
      : path_(dir() + "/" + name),
        fd_(::open(path_.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)) {
    FUZZ_CHECK(fd_ >= 0);
  }
  /// The same, seen as the existing file `target`, such as "/proc/meminfo".
  File(const std::string& name, const std::string& target) : File(name) { put_over(path_, target); }
  ~File() { ::close(fd_); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  const std::string& path() const { return path_; }

  void write(std::string_view content) {
    FUZZ_CHECK(::ftruncate(fd_, 0) == 0);
    const auto size = static_cast<ssize_t>(content.size());
    FUZZ_CHECK(::pwrite(fd_, content.data(), content.size(), 0) == size);
  }

  std::string read() const {
    std::string content(static_cast<std::size_t>(::lseek(fd_, 0, SEEK_END)), '\0');
    const auto size = static_cast<ssize_t>(content.size());
    FUZZ_CHECK(::pread(fd_, content.data(), content.size(), 0) == size);
    return content;
  }

 private:
  std::string path_;
  int fd_;
};

}  // namespace scratch
