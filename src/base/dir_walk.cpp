#include "base/dir_walk.h"

#include <fcntl.h>

#include <cstdlib>
#include <cstring>

namespace utility::detail {

DirWalk::DirWalk(int parent, const char* name) noexcept {
  Fd fd(::openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd) return;
  dir_.reset(::fdopendir(fd.get()));
  if (dir_) fd.release();
}

const char* DirWalk::next() noexcept {
  if (!dir_) return nullptr;
  const dirent* entry = nullptr;
  do {
    entry = ::readdir(dir_.get());
    if (entry == nullptr) return nullptr;
  } while (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0);
  return entry->d_name;
}

bool is_decimal(const char* name) noexcept {
  return name[std::strspn(name, "0123456789")] == '\0';
}

bool begins_with_pid(const char* name) noexcept {
  return std::strtol(name, nullptr, 10) > 0;
}

bool ProcWalk::next() noexcept {
  do {
    name_ = dir_.next();
  } while (name_ != nullptr && !is_process_(name_));
  return name_ != nullptr;
}

int ProcWalk::pid() const noexcept {
  return static_cast<int>(std::strtol(name_, nullptr, 10));
}

}  // namespace utility::detail
