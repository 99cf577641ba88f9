#pragma once

#include <unistd.h>

#include <cstdio>
#include <memory>
#include <new>
#include <utility>

// Everything that the library opens lives in one of these, so that it is released on every path.
namespace utility::detail {

struct FileCloser {
  void operator()(FILE* stream) const noexcept { std::fclose(stream); }
};

using File = std::unique_ptr<FILE, FileCloser>;

/// Opens a stream. Modes take the C library's "e" ("re", "we", ...): the agent forks from other
/// threads, and our files must not stay open in its children.
inline File open_file(const char* path, const char* mode) noexcept {
  return File(std::fopen(path, mode));
}

/// A file descriptor; -1 means none.
class Fd {
 public:
  explicit Fd(int fd = -1) noexcept : fd_(fd) {}
  Fd(Fd&& other) noexcept : fd_(other.release()) {}
  Fd& operator=(Fd&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  ~Fd() { reset(); }

  explicit operator bool() const noexcept { return fd_ >= 0; }
  int get() const noexcept { return fd_; }
  int release() noexcept { return std::exchange(fd_, -1); }
  void reset(int fd = -1) noexcept {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_;
};

using Buffer = std::unique_ptr<char[]>;

/// Takes `size` zeroed bytes from the heap without throwing; a null buffer means there were none.
inline Buffer make_buffer(std::size_t size) noexcept {
  return Buffer(new (std::nothrow) char[size]());
}

}  // namespace utility::detail
