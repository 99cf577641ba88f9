#include "base/dir_walk.h"

namespace utility::detail {

DirWalk::DirWalk(int parent, const char* name, int flags) noexcept
    : fd_(::openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags)) {}

const char* DirWalk::next() noexcept {
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

bool ProcWalk::next() noexcept {
  do {
    name_ = dir_.next();
  } while (name_ != nullptr && !is_process_(name_));
  return name_ != nullptr;
}

}  // namespace utility::detail
