#include "utility/Ciphers.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>

#include "utility/CBinHex.h"

namespace utility {
namespace {

constexpr std::string_view sbox = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::string_view invsbox = "KMLOB165S9GA2X3QVICHJRTZND7PE0Y8WUF4";
static_assert(sbox.size() == 36 && invsbox.size() == 36);

/// Replaces each character that has an index by the entry of `images` at that index.
void substitute(std::string& text, int (*index)(char), std::string_view images) {
  for (char& c : text) {
    const int at = index(c);
    if (at >= 0) c = images[static_cast<std::size_t>(at)];
  }
}

/// Nothing comes of an empty text in any round, so the rounds end there.
std::string repeat(std::string (*round)(const std::string&), std::string text, int rounds) {
  for (; rounds > 0 && !text.empty(); --rounds) text = round(text);
  return text;
}

// Corrected Block TEA (XXTEA), D. Wheeler and R. Needham, 1998.

constexpr std::uint32_t kDelta = 0x9E3779B9;

struct Free {
  void operator()(void* memory) const noexcept { std::free(memory); }
};
using Words = std::unique_ptr<std::uint32_t[], Free>;

using Key = std::array<std::uint32_t, 4>;

/// Takes 16 bytes, but none after the first zero byte.
Key make_key(const void* bytes) noexcept {
  Key key{};
  std::memcpy(key.data(), bytes, ::strnlen(static_cast<const char*>(bytes), sizeof key));
  return key;
}

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

using Cipher = void* (*)(const void*, std::size_t, const void*, std::size_t*);

std::string run(Cipher cipher, const std::string& data, std::string& key) {
  key.resize(sizeof(Key));
  std::size_t size = 0;
  const std::unique_ptr<void, Free> result(cipher(data.data(), data.size(), key.data(), &size));
  return {static_cast<const char*>(result.get()), size};
}

}  // namespace

std::string aes_encrypt(const std::string& text, int rounds) {
  return repeat(aes_encrypt_imp, text, rounds);
}

std::string aes_decrypt(const std::string& text, int rounds) {
  return repeat(aes_decrypt_imp, text, rounds);
}

std::string aes_encrypt_imp(const std::string& text) {
  std::string digits = CBinHex::simple_bin2hex(text);
  substitute(digits, get_sbox_idx, invsbox);
  return digits;
}

std::string aes_decrypt_imp(const std::string& text) {
  std::string digits = text;
  substitute(digits, get_invsbox_idx, sbox);
  return CBinHex::simple_hex2bin(digits);
}

// Where there is none, find() answers -1 in the width of an int.
int get_sbox_idx(char c) { return static_cast<int>(sbox.find(c)); }

int get_invsbox_idx(char c) { return static_cast<int>(invsbox.find(c)); }

std::string xxtea_encrypt(const std::string& data, std::string key) {
  return run(xxtea_encrypt, data, key);
}

std::string xxtea_decrypt(const std::string& data, std::string key) {
  return run(xxtea_decrypt, data, key);
}

void* xxtea_encrypt(const void* data, std::size_t len, const void* key, std::size_t* outLen) {
  *outLen = 0;
  // The length word has 32 bits; what it cannot tell could not be deciphered.
  const bool fits = len > 0 && len <= std::numeric_limits<std::uint32_t>::max();
  if (data == nullptr || key == nullptr || !fits) return nullptr;
  std::size_t count = 0;
  const Words words(xxtea_to_uint_array(data, len, true, &count));
  if (!words) return nullptr;
  encipher(words.get(), count, make_key(key));
  return xxtea_to_ubyte_array(words.get(), count, false, outLen);
}

void* xxtea_decrypt(const void* data, std::size_t len, const void* key, std::size_t* outLen) {
  *outLen = 0;
  if (data == nullptr || key == nullptr || len == 0) return nullptr;
  std::size_t count = 0;
  const Words words(xxtea_to_uint_array(data, len, false, &count));
  if (!words) return nullptr;
  if (count > 1) decipher(words.get(), count, make_key(key));
  return xxtea_to_ubyte_array(words.get(), count, true, outLen);
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
