#include "base/paths.h"

#include <unistd.h>

#include <algorithm>
#include <array>

namespace utility::detail {

bool exists(const char* path) noexcept { return ::access(or_empty(path), F_OK) == 0; }

bool read_link_at(int dir, const char* path, std::size_t limit, std::string& target) {
  std::array<char, 4096> buffer;
  const ssize_t length = ::readlinkat(dir, path, buffer.data(), std::min(limit, buffer.size()));
  if (length < 0) return false;
  target.assign(buffer.data(), static_cast<std::size_t>(length));
  return true;
}

std::string without_end_slashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

std::string join_path(const char* dir, const char* name, std::size_t limit) {
  std::string path(dir);
  path.append("/").append(name);
  if (path.size() > limit) path.resize(limit);
  return path;
}

}  // namespace utility::detail
