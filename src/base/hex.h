#pragma once

#include <cstddef>
#include <optional>

// Bytes to hexadecimal digits and back, for every family that needs it.
namespace utility::detail {

/// Writes two digits for each of `size` bytes, `ten` being the letter for 10 ('A' or 'a'), and
/// returns the position after them.
char* put_hex(char* out, const unsigned char* bytes, std::size_t size, char ten) noexcept;

/// Makes `count` bytes of twice as many characters by the arithmetic that `CBinHex::hex2bin`
/// promises. The bytes may overwrite the characters.
void read_hex(char* out, const char* text, std::size_t count) noexcept;

/// The value of a hexadecimal digit; none for any other character.
inline std::optional<int> hex_digit(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return std::nullopt;
}

}  // namespace utility::detail
