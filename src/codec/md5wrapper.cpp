#include "utility/md5wrapper.h"

#include <algorithm>
#include <array>
#include <limits>

#include "base/handles.h"
#include "base/hex.h"
#include "utility/MD5.h"

namespace utility {

using namespace detail;

namespace {

// Large enough for the system calls not to count, small enough for any thread's stack. The digest
// does not depend on it.
constexpr std::size_t kFileBlock = 32768;

constexpr std::size_t kDigest = 16;

std::string to_text(const unsigned char* digest) {
  std::string text(2 * kDigest, '\0');
  put_hex(text.data(), digest, kDigest, 'a');
  return text;
}

std::string finish(MD5::MD5_CTX& context) {
  unsigned char digest[kDigest];
  MD5::MD5Final(digest, &context);
  return to_text(digest);
}

}  // namespace

md5wrapper::md5wrapper() : md5_(new (std::nothrow) MD5) {}

md5wrapper::~md5wrapper() = default;

std::string md5wrapper::getHashFromString(const std::string& text) { return hashit(text); }

std::string md5wrapper::hashit(const std::string& text) {
  MD5::MD5_CTX context;
  MD5::MD5Init(&context);
  constexpr std::size_t kMost = std::numeric_limits<unsigned int>::max();
  for (std::size_t at = 0; at < text.size(); at += kMost) {
    auto* bytes = reinterpret_cast<unsigned char*>(const_cast<char*>(text.data())) + at;
    const auto size = static_cast<unsigned int>(std::min(text.size() - at, kMost));
    MD5::MD5Update(&context, bytes, size);
  }
  return finish(context);
}

std::string md5wrapper::getHashFromFile(const std::string& path) {
  const File file = open_file(path.c_str(), "rbe");
  if (!file) return "-1";

  MD5::MD5_CTX context;
  MD5::MD5Init(&context);
  std::array<unsigned char, kFileBlock> block;
  while (const std::size_t size = std::fread(block.data(), 1, block.size(), file.get())) {
    MD5::MD5Update(&context, block.data(), static_cast<unsigned int>(size));
  }
  return finish(context);
}

std::string md5wrapper::convToString(unsigned char digest[16]) { return to_text(digest); }

}  // namespace utility
