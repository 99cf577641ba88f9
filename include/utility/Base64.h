#pragma once

#include <string>

#include "utility/Export.h"

namespace utility {

/// Base64 after RFC 4648: the standard alphabet with "+" and "/", padded with "=", no line breaks.
///
/// The buffer forms hand out new buffers that the caller frees with `delete[]`; they are not
/// NUL-terminated. All operations may run on any number of threads at once.
class UTILITY_API Base64 {
 public:
  /// Encodes `inLen` bytes.
  ///
  /// @param out     receives a new buffer of `outLen` characters. Nothing is handed out, and `out`
  ///                is untouched, for `inLen` 0 and without memory.
  /// @param outLen  receives (inLen + 2) / 3 * 4, or 0 when nothing is handed out.
  /// @param in      the bytes; only read.
  /// @param inLen   their count.
  static void encode(unsigned char*& out, unsigned long& outLen, const unsigned char* in,
                     unsigned long inLen);

  /// Copies what belongs to base64 text: the characters of the alphabet and every "=", in order.
  ///
  /// @param out     receives a new buffer with room for `inLen` characters; untouched without
  ///                memory.
  /// @param outLen  receives the count of characters kept, or 0 without memory.
  /// @param in      the text; only read.
  /// @param inLen   its characters.
  static void removeNonBase64Chars(unsigned char*& out, unsigned long& outLen,
                                   const unsigned char* in, unsigned long inLen);

  /// Decodes base64 text; line breaks and all else that `removeNonBase64Chars` drops is skipped.
  ///
  /// Up to two "=" at the end shorten the result; an "=" elsewhere counts as a character of
  /// value 63.
  ///
  /// @param out     receives a new buffer of `outLen` bytes. Nothing is handed out, and `out` is
  ///                untouched, when `inLen` is 0, when the characters left are not a multiple of 4,
  ///                and without memory. Where no character is left the buffer has no bytes.
  /// @param outLen  receives the count of bytes, or 0 when nothing is handed out.
  /// @param in      the text; only read.
  /// @param inLen   its characters.
  static void decode(unsigned char*& out, unsigned long& outLen, const unsigned char* in,
                     unsigned long inLen);

  /// The base64 text of `bytes`, zero bytes included; empty without memory.
  static std::string encode(const std::string& bytes);

  /// The bytes of base64 text, zero bytes included; empty where the buffer form hands out nothing.
  static std::string decode(const std::string& text);
};

}  // namespace utility
