#include "utility/CHmacMd5.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>

#include "base/handles.h"
#include "codec/hex.h"
#include "utility/MD5.h"

namespace utility {
namespace {

constexpr std::size_t kBlock = 64;
constexpr std::size_t kDigest = 16;
constexpr char kInnerPad = 0x36;
constexpr char kOuterPad = 0x5C;

/// 0, or 2 without memory. Lengths go beyond an int by the pad in front of a text.
int digest_of(char* data, std::size_t size, char* digest) noexcept {
  const std::unique_ptr<MD5::MD5_CTX> context(new (std::nothrow) MD5::MD5_CTX);
  if (!context) return 2;
  MD5::MD5Init(context.get());
  MD5::MD5Update(context.get(), reinterpret_cast<unsigned char*>(data),
                 static_cast<unsigned int>(size));
  MD5::MD5Final(reinterpret_cast<unsigned char*>(digest), context.get());
  return 0;
}

/// Puts the digest of a key that is longer than a block in its place.
int shorten_key(char* key, std::size_t used, std::size_t size) noexcept {
  char digest[kDigest];
  const int result = digest_of(key, used, digest);
  if (result != 0) return result;
  std::memset(key, 0, size);
  std::memcpy(key, digest, kDigest);
  return 0;
}

/// Writes the key, stretched by zeros to a block and mixed with `pad`.
void put_pad(char* out, const char* key, std::size_t key_size, char pad) noexcept {
  std::memset(out, pad, kBlock);
  for (std::size_t i = 0; i < key_size; ++i) out[i] = static_cast<char>(out[i] ^ key[i]);
}

}  // namespace

int CHmacMd5::md5(char* data, int len, char* digest) {
  if (data == nullptr || len < 1 || digest == nullptr) return 1;
  return digest_of(data, static_cast<std::size_t>(len), digest);
}

int CHmacMd5::hmac_md5(const char* text, int textLen, char* key, int keyLen, char* digest) {
  if (text == nullptr || textLen < 1 || key == nullptr || keyLen < 1 || digest == nullptr) return 1;
  const auto text_size = static_cast<std::size_t>(textLen);
  const auto key_room = static_cast<std::size_t>(keyLen);

  const detail::Buffer work = detail::make_buffer(kBlock + std::max(text_size, kDigest));
  const detail::Buffer scratch = detail::make_buffer(kDigest);
  const detail::Buffer inner_pad = detail::make_buffer(kBlock);
  const detail::Buffer outer_pad = detail::make_buffer(kBlock);
  if (!work || !scratch || !inner_pad || !outer_pad) return 2;

  std::size_t key_size = ::strnlen(key, key_room);
  if (key_size > kBlock) {
    if (const int result = shorten_key(key, key_size, key_room)) return result;
    key_size = kDigest;
  }
  put_pad(inner_pad.get(), key, key_size, kInnerPad);
  put_pad(outer_pad.get(), key, key_size, kOuterPad);

  std::memcpy(work.get(), inner_pad.get(), kBlock);
  std::memcpy(work.get() + kBlock, text, text_size);
  if (const int result = digest_of(work.get(), kBlock + text_size, scratch.get())) return result;

  std::memcpy(work.get(), outer_pad.get(), kBlock);
  std::memcpy(work.get() + kBlock, scratch.get(), kDigest);
  return digest_of(work.get(), kBlock + kDigest, digest);
}

std::string CHmacMd5::checksumtostring(char* digest) {
  if (digest == nullptr) return {};
  const detail::Buffer text = detail::make_buffer(2 * kDigest + 1);
  if (!text) return {};
  detail::put_hex(text.get(), reinterpret_cast<const unsigned char*>(digest), kDigest, 'a');
  return text.get();
}

}  // namespace utility
