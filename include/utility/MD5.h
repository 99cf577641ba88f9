#pragma once

#include "utility/Export.h"

namespace utility {

/// The MD5 message digest, step by step as RFC 1321 names the steps.
///
/// A digest is `MD5Init`, any number of `MD5Update`, `MD5Final` over one context. The class has no
/// data; digests over different contexts may run on any number of threads at once. MD5 protects
/// nothing against forgers any more: it is here for formats and protocols that ask for it.
class UTILITY_API MD5 {
 public:
  /// A digest under way.
  struct MD5_CTX {
    unsigned int state[4];     ///< the chaining words A, B, C, D
    unsigned int count[2];     ///< bits of the message so far, low word first
    unsigned char buffer[64];  ///< message bytes that do not fill a block yet
  };

  /// Begins a digest in `context`, whatever it held.
  static void MD5Init(MD5_CTX* context);

  /// Adds `inputLen` bytes to the message; `input` is only read.
  static void MD5Update(MD5_CTX* context, unsigned char* input, unsigned int inputLen);

  /// Ends the message, writes its digest of 16 bytes and zeroes the whole context.
  static void MD5Final(unsigned char digest[16], MD5_CTX* context);

  /// Works one block of 64 bytes into the chaining words.
  static void MD5Transform(unsigned int state[4], unsigned char block[64]);

  /// Writes words as bytes, lowest byte first.
  ///
  /// @param out  receives `len` bytes.
  /// @param in   len / 4 words.
  /// @param len  a count of bytes, a multiple of 4.
  static void Encode(unsigned char* out, unsigned int* in, unsigned int len);
  /// Reads `len` bytes (a multiple of 4) as words, lowest byte first; the reverse of `Encode`.
  static void Decode(unsigned int* out, unsigned char* in, unsigned int len);

  /// Copies `len` bytes; the two places must not overlap.
  static void MD5_memcpy(unsigned char* output, unsigned char* input, unsigned int len);
  /// Sets `len` bytes to the low byte of `value`.
  static void MD5_memset(unsigned char* output, int value, unsigned int len);
};

}  // namespace utility
