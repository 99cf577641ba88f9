#include "base/hex.h"

#include <array>
#include <cstring>

namespace utility::detail {
namespace {

// Loops of a fixed length over arrays of their own: the compiler turns them into vector code, five
// to ten times as fast as a table walked byte by byte.
constexpr std::size_t kStride = 16;

using Bytes = std::array<unsigned char, kStride>;
using Digits = std::array<unsigned char, 2 * kStride>;

/// Works through the first `size` bytes of a stride.
[[gnu::always_inline]] inline void put_stride(char* out, const unsigned char* bytes,
                                              std::size_t size, int letter_gap) noexcept {
  Bytes in{};
  Digits digits{};
  std::memcpy(in.data(), bytes, size);
  for (std::size_t i = 0; i < kStride; ++i) {
    digits[2 * i] = static_cast<unsigned char>(in[i] >> 4);
    digits[2 * i + 1] = in[i] & 15;
  }
  for (unsigned char& digit : digits) {
    digit = static_cast<unsigned char>(digit + '0' + (digit > 9 ? letter_gap : 0));
  }
  std::memcpy(out, digits.data(), 2 * size);
}

[[gnu::always_inline]] inline void read_stride(char* out, const char* text,
                                               std::size_t size) noexcept {
  std::array<signed char, 2 * kStride> in{};
  Digits digits{};
  Bytes bytes{};
  std::memcpy(in.data(), text, 2 * size);
  for (std::size_t i = 0; i < 2 * kStride; ++i) {
    digits[i] =
        static_cast<unsigned char>(in[i] - 48 - (in[i] >= 'A' ? 7 : 0) - (in[i] >= 'a' ? 32 : 0));
  }
  for (std::size_t i = 0; i < kStride; ++i) {
    bytes[i] = static_cast<unsigned char>(digits[2 * i] * 16 + digits[2 * i + 1]);
  }
  std::memcpy(out, bytes.data(), size);
}

}  // namespace

char* put_hex(char* out, const unsigned char* bytes, std::size_t size, char ten) noexcept {
  const int letter_gap = ten - 10 - '0';
  for (; size >= kStride; size -= kStride, bytes += kStride, out += 2 * kStride) {
    put_stride(out, bytes, kStride, letter_gap);
  }
  if (size > 0) put_stride(out, bytes, size, letter_gap);
  return out + 2 * size;
}

void read_hex(char* out, const char* text, std::size_t count) noexcept {
  for (; count >= kStride; count -= kStride, text += 2 * kStride, out += kStride) {
    read_stride(out, text, kStride);
  }
  if (count > 0) read_stride(out, text, count);
}

}  // namespace utility::detail
