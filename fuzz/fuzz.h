#pragma once

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "utility/utility.h"

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

  unsigned char byte() {
    const char first = bytes_.empty() ? '\0' : bytes_[0];
    bytes_.erase(0, 1);
    return static_cast<unsigned char>(first);
  }
  /// What stands before the next `end`, which is dropped.
  std::string text(char end) {
    const std::size_t size = std::min(bytes_.find(end), bytes_.size());
    const std::string taken = bytes_.substr(0, size);
    bytes_.erase(0, size + 1);
    return taken;
  }
  const std::string& rest() const { return bytes_; }

 private:
  std::string bytes_;
};

inline std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void write_file(const std::string& path, const std::string& content) {
  check((std::ofstream(path, std::ios::binary) << content).good(), "a written file");
}

/// A file `name` in memory, seen as the existing file `target` too where that is given. Its mounts
/// are the fuzzer's own: only it sees what is put over the machine's files, and everything is gone
/// when it ends. They hide /run, where nothing is that a fuzzer may reach. Takes root.
inline std::string scratch_file(const std::string& name, const std::string& target = "") {
  static const bool is_apart = ::unshare(CLONE_NEWNS) == 0 &&
                               ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                               ::mount("tmpfs", "/run", "tmpfs", 0, "mode=0755") == 0;
  check(is_apart, "mounts of its own");
  const std::string path = "/run/" + name;
  write_file(path, "");
  check(target.empty() || ::mount(path.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) == 0,
        "a scratch file");
  return path;
}
