#pragma once

#include <dirent.h>
#include <fcntl.h>

#include <array>
#include <cstdlib>
#include <cstring>

#include "base/handles.h"

namespace utility::detail {

/// The entries of a directory in listing order, without "." and "..".
///
/// Reads the kernel's records itself: a DIR costs two more calls for each directory, and memory
/// from the heap, which a child may not take between fork and exec.
class DirWalk {
 public:
  explicit DirWalk(const char* path) noexcept : DirWalk(AT_FDCWD, path) {}
  /// Opens `name` below the open directory `parent`; a link only without O_NOFOLLOW in `flags`.
  DirWalk(int parent, const char* name, int flags = 0) noexcept
      : fd_(::openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags)) {}

  /// False when the directory could not be opened; `next` then yields nothing.
  explicit operator bool() const noexcept { return static_cast<bool>(fd_); }

  /// The name of the next entry, or null after the last one. Valid until the next call.
  const char* next() noexcept {
    for (;;) {
      if (at_ == filled_) {
        const ssize_t count = fd_ ? ::getdents64(fd_.get(), block_.data(), block_.size()) : 0;
        if (count <= 0) return nullptr;
        at_ = 0;
        filled_ = static_cast<std::size_t>(count);
      }
      const auto* entry = reinterpret_cast<const dirent64*>(block_.data() + at_);
      at_ += entry->d_reclen;
      const char* name = entry->d_name;
      if (std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0) return name;
    }
  }

  /// The open directory, for the *at() calls.
  int fd() const noexcept { return fd_.get(); }

 private:
  Fd fd_;
  std::size_t at_ = 0;
  std::size_t filled_ = 0;
  alignas(dirent64) std::array<char, 4096> block_;  // filled up to `filled_`, never beyond
};

/// True when every byte of `name` is a decimal digit; so too for the empty name.
inline bool is_decimal(const char* name) noexcept {
  return name[std::strspn(name, "0123456789")] == '\0';
}

/// True when `name` reads as a number above zero; what follows its digits is ignored.
inline bool begins_with_pid(const char* name) noexcept {
  return std::strtol(name, nullptr, 10) > 0;
}

/// The process entries of /proc in listing order.
///
/// Families differ in what they take for a process entry (`is_decimal` or `begins_with_pid`); on
/// the kernel's own /proc both name the same entries.
class ProcWalk {
 public:
  using NameTest = bool (*)(const char* name) noexcept;

  explicit ProcWalk(NameTest is_process) noexcept : dir_("/proc"), is_process_(is_process) {}

  explicit operator bool() const noexcept { return static_cast<bool>(dir_); }

  /// Goes to the next process; false after the last one.
  bool next() noexcept {
    do {
      name_ = dir_.next();
    } while (name_ != nullptr && !is_process_(name_));
    return name_ != nullptr;
  }

  /// The entry in hand: its name and the number that it reads as.
  const char* name() const noexcept { return name_; }
  int pid() const noexcept { return static_cast<int>(std::strtol(name_, nullptr, 10)); }

  /// The open /proc.
  int fd() const noexcept { return dir_.fd(); }

 private:
  DirWalk dir_;
  NameTest is_process_;
  const char* name_ = nullptr;
};

}  // namespace utility::detail
