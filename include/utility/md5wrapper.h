#pragma once

#include <memory>
#include <string>

#include "utility/Export.h"

namespace utility {

class MD5;

/// MD5 digests of texts and files as 32 lower-case hex characters.
///
///     utility::md5wrapper md5;
///     md5.getHashFromString("abc");  // "900150983cd24fb0d6963f7d28e17f72"
///
/// An object is not to be shared between threads; every thread may have its own.
class UTILITY_API md5wrapper {
 public:
  md5wrapper();
  ~md5wrapper();
  md5wrapper(const md5wrapper&) = delete;
  md5wrapper& operator=(const md5wrapper&) = delete;

  /// The digest of all bytes of `text`, zero bytes included.
  std::string getHashFromString(const std::string& text);
  /// The same as `getHashFromString`.
  std::string hashit(const std::string& text);

  /// The digest of the file `path`, read as fopen(3) and fread(3) have it.
  ///
  /// @return the digest, or "-1" when the file cannot be opened. A read error ends the digest at
  ///         the bytes read, so a directory has the digest of no bytes.
  std::string getHashFromFile(const std::string& path);

  /// Writes a digest of 16 bytes, which is only read, as hex text.
  std::string convToString(unsigned char digest[16]);

 private:
  std::unique_ptr<MD5> md5_;
};

}  // namespace utility
