#pragma once

#include <string>

#include "utility/Export.h"

namespace utility {

/// Bytes to upper-case hexadecimal text and back.
///
/// All operations may run on any number of threads at once.
class UTILITY_API CBinHex {
 public:
  /// Writes two upper-case digits for each byte, high nibble first, without a terminating NUL.
  ///
  /// @param in       the bytes.
  /// @param inLen    their count.
  /// @param out      receives the digits; may be null where `outSize` does not suffice.
  /// @param outSize  characters that `out` has room for.
  /// @return 0, or 2 * inLen, the room needed, when `outSize` is less (at most the largest `int`);
  ///         on failure `out` is untouched.
  static int bin2hex(const void* in, int inLen, char* out, int outSize);

  /// Turns each pair of characters into a byte; `out` may be the same memory as `in`.
  ///
  /// No character is refused. Seen as a signed char, "a" and all above count as c - 87, else "A"
  /// and all above as c - 55, all others as c - 48; the byte is high * 16 + low, cut to 8 bits.
  ///
  /// @param in       the text.
  /// @param inLen    its count of characters. Where it is odd, the byte after the last one is read
  ///                 as the low digit (for a C string, its NUL).
  /// @param out      receives the bytes; may be null where `outSize` does not suffice.
  /// @param outSize  bytes that `out` has room for.
  /// @return 0, or inLen / 2 rounded up, the room needed, when 2 * outSize is less than inLen; on
  ///         failure `out` is untouched.
  static int hex2bin(const char* in, int inLen, void* out, int outSize);

  /// The hex text of `bytes`, zero bytes included; empty without memory.
  static std::string simple_bin2hex(const std::string& bytes);

  /// The bytes of the hex text `text` as `hex2bin` has them, cut at the first zero byte; empty
  /// without memory.
  static std::string simple_hex2bin(const std::string& text);
};

}  // namespace utility
