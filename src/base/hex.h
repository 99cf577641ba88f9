#pragma once

#include <cstddef>

// Bytes to hexadecimal digits and back, for every family that needs it.
namespace utility::detail {

/// Writes two digits for each of `size` bytes, `ten` being the letter for 10 ('A' or 'a'), and
/// returns the position after them.
char* put_hex(char* out, const unsigned char* bytes, std::size_t size, char ten) noexcept;

/// Makes `count` bytes of twice as many characters by the arithmetic that `CBinHex::hex2bin`
/// promises. The bytes may overwrite the characters.
void read_hex(char* out, const char* text, std::size_t count) noexcept;

}  // namespace utility::detail
