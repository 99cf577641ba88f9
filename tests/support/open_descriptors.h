#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

/// How many descriptors this process holds, one of the count's own included.
inline std::size_t open_descriptors() {
  namespace fs = std::filesystem;
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator{}));
}
