#include "utility/CHmacMd5.h"

#include <array>
#include <cstring>

#include "base/handles.h"
#include "base/hex.h"
#include "utility/MD5.h"

namespace utility {

using namespace detail;

namespace {

constexpr std::size_t kBlock = 64;
constexpr std::size_t kDigest = 16;

/// Begins a digest with a pad: the key, stretched by zeros to a block and mixed with `mask`.
void begin(MD5::MD5_CTX& context, const char* key, std::size_t key_size, char mask) noexcept {
  std::array<unsigned char, kBlock> pad;
  pad.fill(static_cast<unsigned char>(mask));
  for (std::size_t i = 0; i < key_size; ++i) pad[i] = static_cast<unsigned char>(mask ^ key[i]);
  MD5::MD5Init(&context);
  MD5::MD5Update(&context, pad.data(), kBlock);
}

/// Ends a digest with `size` more bytes.
void end(MD5::MD5_CTX& context, const char* bytes, std::size_t size, char* digest) noexcept {
  auto* input = reinterpret_cast<unsigned char*>(const_cast<char*>(bytes));  // only read
  MD5::MD5Update(&context, input, static_cast<unsigned int>(size));
  MD5::MD5Final(reinterpret_cast<unsigned char*>(digest), &context);
}

}  // namespace

int CHmacMd5::md5(char* data, int len, char* digest) {
  if (data == nullptr || len < 1 || digest == nullptr) return 1;
  MD5::MD5_CTX context;
  MD5::MD5Init(&context);
  end(context, data, static_cast<std::size_t>(len), digest);
  return 0;
}

int CHmacMd5::hmac_md5(const char* text, int textLen, char* key, int keyLen, char* digest) {
  if (text == nullptr || textLen < 1 || key == nullptr || keyLen < 1 || digest == nullptr) return 1;
  const auto key_room = static_cast<std::size_t>(keyLen);
  std::size_t key_size = ::strnlen(key, key_room);
  char inner[kDigest];
  if (key_size > kBlock) {
    md5(key, static_cast<int>(key_size), inner);
    std::memset(key, 0, key_room);
    std::memcpy(key, inner, kDigest);
    key_size = kDigest;
  }
  MD5::MD5_CTX context;
  begin(context, key, key_size, 0x36);  // RFC 2104's ipad
  end(context, text, static_cast<std::size_t>(textLen), inner);
  begin(context, key, key_size, 0x5C);  // and opad
  end(context, inner, kDigest, digest);
  return 0;
}

std::string CHmacMd5::checksumtostring(char* digest) {
  if (digest == nullptr) return {};
  const Buffer text = make_buffer(2 * kDigest + 1);
  if (!text) return {};
  put_hex(text.get(), reinterpret_cast<const unsigned char*>(digest), kDigest, 'a');
  return text.get();
}

}  // namespace utility
