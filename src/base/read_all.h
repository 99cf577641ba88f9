#pragma once

#include <array>
#include <cstdio>
#include <string>

namespace utility::detail {

/// Everything that is left to read; the stream tells (ferror) whether an error cut it short.
inline std::string read_all(FILE* stream) {
  std::string text;
  std::array<char, 4096> block;
  while (const std::size_t count = std::fread(block.data(), 1, block.size(), stream)) {
    text.append(block.data(), count);
  }
  return text;
}

}  // namespace utility::detail
