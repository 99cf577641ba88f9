#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

#include "utility/Ciphers.h"

// Corrected Block TEA (XXTEA), D. Wheeler and R. Needham, 1998.
namespace utility {
namespace {

constexpr std::uint32_t kDelta = 0x9E3779B9;
constexpr std::size_t kKeySize = 16;

struct Free {
  void operator()(void* memory) const noexcept { std::free(memory); }
};
using Words = std::unique_ptr<std::uint32_t[], Free>;

/// The four words of a key.
class Key {
 public:
  /// Takes up to 16 of `size` bytes and none after the first zero byte.
  Key(const void* bytes, std::size_t size) noexcept {
    const std::size_t used = ::strnlen(static_cast<const char*>(bytes), std::min(size, kKeySize));
    std::memcpy(words_.data(), bytes, used);
  }
  std::uint32_t operator[](std::size_t i) const noexcept { return words_[i]; }

 private:
  std::array<std::uint32_t, 4> words_{};
};

std::uint32_t mix(std::uint32_t y, std::uint32_t z, std::uint32_t sum,
                  std::uint32_t key_word) noexcept {
  return (((z >> 5) ^ (y << 2)) + ((y >> 3) ^ (z << 4))) ^ ((sum ^ y) + (key_word ^ z));
}

std::uint32_t cycles(std::size_t n) noexcept { return static_cast<std::uint32_t>(6 + 52 / n); }

/// `n` is at least 2 here and below.
void encipher(std::uint32_t* v, std::size_t n, const Key& key) noexcept {
  std::uint32_t sum = 0;
  std::uint32_t z = v[n - 1];
  for (std::uint32_t left = cycles(n); left > 0; --left) {
    sum += kDelta;
    const std::size_t e = (sum >> 2) & 3;
    for (std::size_t p = 0; p < n - 1; ++p) {
      z = v[p] += mix(v[p + 1], z, sum, key[(p & 3) ^ e]);
    }
    z = v[n - 1] += mix(v[0], z, sum, key[((n - 1) & 3) ^ e]);
  }
}

void decipher(std::uint32_t* v, std::size_t n, const Key& key) noexcept {
  std::uint32_t sum = cycles(n) * kDelta;
  std::uint32_t y = v[0];
  for (; sum != 0; sum -= kDelta) {
    const std::size_t e = (sum >> 2) & 3;
    for (std::size_t p = n - 1; p > 0; --p) {
      y = v[p] -= mix(y, v[p - 1], sum, key[(p & 3) ^ e]);
    }
    y = v[0] -= mix(y, v[n - 1], sum, key[e]);
  }
}

void* encrypt(const void* data, std::size_t len, const Key& key, std::size_t* out_len) noexcept {
  // The length word has 32 bits; what it cannot tell could not be deciphered.
  if (len == 0 || len > std::numeric_limits<std::uint32_t>::max()) return nullptr;
  std::size_t count = 0;
  const Words words(xxtea_to_uint_array(data, len, true, &count));
  if (!words) return nullptr;
  encipher(words.get(), count, key);
  return xxtea_to_ubyte_array(words.get(), count, false, out_len);
}

void* decrypt(const void* data, std::size_t len, const Key& key, std::size_t* out_len) noexcept {
  if (len == 0) return nullptr;
  std::size_t count = 0;
  const Words words(xxtea_to_uint_array(data, len, false, &count));
  if (!words) return nullptr;
  if (count > 1) decipher(words.get(), count, key);
  return xxtea_to_ubyte_array(words.get(), count, true, out_len);
}

using Cipher = void* (*)(const void*, std::size_t, const Key&, std::size_t*) noexcept;

std::string run(Cipher cipher, const std::string& data, const std::string& key) {
  std::size_t size = 0;
  const std::unique_ptr<void, Free> result(
      cipher(data.data(), data.size(), Key(key.data(), key.size()), &size));
  return {static_cast<const char*>(result.get()), size};
}

void* run(Cipher cipher, const void* data, std::size_t len, const void* key,
          std::size_t* out_len) noexcept {
  *out_len = 0;
  if (data == nullptr || key == nullptr) return nullptr;
  return cipher(data, len, Key(key, kKeySize), out_len);
}

}  // namespace

// The string forms take their key by value: that is their published signature.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
std::string xxtea_encrypt(const std::string& data, std::string key) {
  return run(encrypt, data, key);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param)
std::string xxtea_decrypt(const std::string& data, std::string key) {
  return run(decrypt, data, key);
}

void* xxtea_encrypt(const void* data, std::size_t len, const void* key, std::size_t* outLen) {
  return run(encrypt, data, len, key, outLen);
}

void* xxtea_decrypt(const void* data, std::size_t len, const void* key, std::size_t* outLen) {
  return run(decrypt, data, len, key, outLen);
}

std::uint32_t* xxtea_to_uint_array(const void* data, std::size_t len, bool includeLength,
                                   std::size_t* outCount) {
  *outCount = 0;
  const std::size_t data_words = len / 4 + (len % 4 != 0 ? 1 : 0);
  const std::size_t count = data_words + (includeLength ? 1 : 0);
  // calloc may answer null to a size of 0, which is not to be taken for a failure.
  Words words(static_cast<std::uint32_t*>(std::calloc(std::max<std::size_t>(count, 1), 4)));
  if (!words) return nullptr;
  if (len > 0) std::memcpy(words.get(), data, len);
  if (includeLength) words[data_words] = static_cast<std::uint32_t>(len);
  *outCount = count;
  return words.release();
}

unsigned char* xxtea_to_ubyte_array(const std::uint32_t* words, std::size_t count,
                                    bool includeLength, std::size_t* outLen) {
  *outLen = 0;
  std::size_t size = 4 * count;
  if (includeLength) {
    if (count == 0) return nullptr;
    const std::size_t length = words[count - 1];
    // For one word the lower bound wraps round: a length word with nothing in front never fits.
    if (length < size - 7 || length > size - 4) return nullptr;
    size = length;
  }
  auto* bytes = static_cast<unsigned char*>(std::malloc(size + 1));
  if (bytes == nullptr) return nullptr;
  if (size > 0) std::memcpy(bytes, words, size);
  bytes[size] = 0;
  *outLen = size;
  return bytes;
}

}  // namespace utility
