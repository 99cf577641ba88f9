#pragma once

#include <string>

#include "utility/Export.h"

namespace utility {

/// MD5 and HMAC-MD5 (RFC 2104) of a buffer, and the hex form of a digest.
///
/// All operations may run on any number of threads at once, each with buffers of its own.
class UTILITY_API CHmacMd5 {
 public:
  /// The MD5 digest of `len` bytes.
  ///
  /// @param data    the bytes, which are only read.
  /// @param len     their count, at least 1.
  /// @param digest  receives 16 bytes; on failure it is untouched.
  /// @return 0; 1 when `data` or `digest` is null or `len` is less than 1. 2 is kept for a lack of
  ///         memory and does not occur: none is taken.
  static int md5(char* data, int len, char* digest);

  /// The HMAC-MD5 checksum of a text.
  ///
  /// A key of more than 64 bytes is replaced in the caller's own buffer: it then holds the MD5
  /// digest of the key in its first 16 bytes and zeros up to `keyLen`.
  ///
  /// @param text     the message.
  /// @param textLen  its bytes, at least 1.
  /// @param key      the key. It ends at its first zero byte, so it may be empty.
  /// @param keyLen   the bytes of `key`, at least 1.
  /// @param digest   receives 16 bytes; on failure it is untouched.
  /// @return 0; 1 when a pointer is null or a length is less than 1 (`key` is untouched as well). 2
  ///         is kept for a lack of memory and does not occur: none is taken.
  static int hmac_md5(const char* text, int textLen, char* key, int keyLen, char* digest);

  /// Writes a digest of 16 bytes, which is only read, as 32 lower-case hex characters.
  ///
  /// @return the text; empty for a null `digest` and without memory.
  static std::string checksumtostring(char* digest);
};

}  // namespace utility
