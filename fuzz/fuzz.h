#pragma once

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

// What the fuzzers share. Each takes any bytes and holds what must be true of them whatever they
// are; what a call should give is said by the call that undoes it, or by another that does the
// same.

/// Ends the program, as a finding, where a property does not hold.
inline void check(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", property);
  std::abort();
}

/// The bytes of an input, taken from the front; zeros and empty texts once they are used up.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size)
      : bytes_(reinterpret_cast<const char*>(data), size) {}

  bool empty() const { return bytes_.empty(); }
  unsigned char byte() { return static_cast<unsigned char>(take(1, 1)[0]); }

  /// What stands before the next `end`, which is dropped.
  std::string text(char end) {
    const std::size_t size = bytes_.find(end);
    return size < bytes_.size() ? take(size, size + 1) : rest();
  }
  /// The same without bytes of zero: a text as C has it.
  std::string c_text(char end) { return text(end).c_str(); }

  std::string rest() { return take(bytes_.size(), bytes_.size()); }

 private:
  std::string take(std::size_t size, std::size_t dropped) {
    std::string taken(bytes_.substr(0, size));
    bytes_.remove_prefix(std::min(dropped, bytes_.size()));
    taken.resize(size);
    return taken;
  }

  std::string_view bytes_;
};

/// A directory in memory, in mounts of the fuzzer's own: only it sees what it puts over the
/// machine's files, and everything is gone when it ends. It hides /run, where nothing is that a
/// fuzzer needs, nor may reach. Takes root.
inline const std::string& scratch() {
  static const std::string path = [] {
    check(::unshare(CLONE_NEWNS) == 0 &&
              ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
              ::mount("tmpfs", "/run", "tmpfs", 0, "mode=0755") == 0,
          "mounts of its own");
    return "/run";
  }();
  return path;
}

/// A file in `scratch()`, seen as the existing file `target` too where that is given.
class ScratchFile {
 public:
  explicit ScratchFile(const std::string& name, const char* target = nullptr)
      : path(scratch() + "/" + name),
        fd_(::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)) {
    const bool seen =
        target == nullptr || ::mount(path.c_str(), target, nullptr, MS_BIND, nullptr) == 0;
    check(fd_ >= 0 && seen, "a scratch file");
  }
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;
  ~ScratchFile() { ::close(fd_); }

  void write(std::string_view content) const {
    const auto size = static_cast<ssize_t>(content.size());
    check(::ftruncate(fd_, 0) == 0 && ::pwrite(fd_, content.data(), content.size(), 0) == size,
          "a written file");
  }

  const std::string path;

 private:
  int fd_;
};

/// The file `path` whole; empty where there is none.
inline std::string read_file(const std::string& path) {
  std::string content;
  if (FILE* file = std::fopen(path.c_str(), "rbe")) {
    for (int byte = 0; (byte = std::getc(file)) != EOF;) content += static_cast<char>(byte);
    std::fclose(file);
  }
  return content;
}
