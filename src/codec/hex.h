#pragma once

#include <array>
#include <cstddef>
#include <cstring>

// Bytes to hexadecimal digits, for every place of this family that prints them.
namespace utility::detail {

/// The two digits of each byte value, side by side: one load and one store a byte.
struct HexPairs {
  std::array<char, 512> text{};

  constexpr explicit HexPairs(const char* digits) {
    for (std::size_t byte = 0; byte < 256; ++byte) {
      text[2 * byte] = digits[byte >> 4];
      text[2 * byte + 1] = digits[byte & 15];
    }
  }
};

inline constexpr HexPairs kUpperHex("0123456789ABCDEF");
inline constexpr HexPairs kLowerHex("0123456789abcdef");

/// Writes two digits for each of `size` bytes and returns the position behind them.
inline char* put_hex(char* out, const unsigned char* bytes, std::size_t size,
                     const HexPairs& pairs) noexcept {
  for (std::size_t i = 0; i < size; ++i, out += 2) {
    std::memcpy(out, &pairs.text[2 * std::size_t{bytes[i]}], 2);
  }
  return out;
}

}  // namespace utility::detail
