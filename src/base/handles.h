#pragma once

#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

// Owners of what the C library hands out. Everything that the library opens lives in one of these,
// so that it is released on every path.
namespace utility::detail {

struct FileCloser {
  void operator()(FILE* stream) const noexcept { std::fclose(stream); }
};
struct PipeCloser {
  void operator()(FILE* stream) const noexcept { ::pclose(stream); }
};
struct DirCloser {
  void operator()(DIR* dir) const noexcept { ::closedir(dir); }
};

using File = std::unique_ptr<FILE, FileCloser>;
using Dir = std::unique_ptr<DIR, DirCloser>;

/// Opens a stream. Modes take the C library's "e" ("re", "we", ...): the agent forks from other
/// threads, and our files must not stay open in its children.
inline File open_file(const char* path, const char* mode) noexcept {
  return File(std::fopen(path, mode));
}

/// A command that runs in a shell. Its end is awaited when the pipe is closed.
class Pipe {
 public:
  explicit Pipe(const char* command) noexcept : command_(::popen(command, "re")) {
    if (!command_) return;
    cookie_io_functions_t functions{};
    functions.read = read_on;
    output_.reset(::fopencookie(command_.get(), "r", functions));
  }

  /// False when the command could not be started.
  explicit operator bool() const noexcept { return output_ != nullptr; }

  /// What the command prints. Not popen's own stream: where a signal interrupts that, fgets() loses
  /// what it has of the line.
  FILE* output() const noexcept { return output_.get(); }

 private:
  static ssize_t read_on(void* command, char* buffer, std::size_t size) noexcept {
    ssize_t count = 0;
    do {
      count = ::read(::fileno(static_cast<FILE*>(command)), buffer, size);
    } while (count < 0 && errno == EINTR);
    return count;
  }

  std::unique_ptr<FILE, PipeCloser> command_;
  File output_;
};

/// A file descriptor; -1 means none.
class Fd {
 public:
  Fd() noexcept = default;
  explicit Fd(int fd) noexcept : fd_(fd) {}
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
  int fd_ = -1;
};

using Buffer = std::unique_ptr<char[]>;

/// Takes `size` zeroed bytes from the heap without throwing; a null buffer means there were none.
inline Buffer make_buffer(std::size_t size) noexcept {
  return Buffer(new (std::nothrow) char[size]());
}

}  // namespace utility::detail
