// XXTEA: the first line is the key, the rest is enciphered, and deciphered as somebody's
// ciphertext, in both forms and as the published algorithm has it.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "check.h"
#include "input.h"
#include "utility/Ciphers.h"

namespace {

using Words = std::vector<std::uint32_t>;

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};

Words words_of(const std::string& bytes) {
  Words words((bytes.size() + 3) / 4);
  if (!words.empty()) std::memcpy(words.data(), bytes.data(), bytes.size());
  return words;
}

std::string bytes_of(const Words& words) {
  return {reinterpret_cast<const char*>(words.data()), 4 * words.size()};
}

/// The algorithm as its authors published it: a positive `n` enciphers, a negative one deciphers.
void btea(std::uint32_t* v, int n, const Words& key) {
  constexpr std::uint32_t kDelta = 0x9e3779b9;
  std::uint32_t y = 0;
  std::uint32_t z = 0;
  std::uint32_t sum = 0;
  std::uint32_t e = 0;
  const int count = n > 0 ? n : -n;
  const auto mx = [&](int p) {
    return ((z >> 5 ^ y << 2) + (y >> 3 ^ z << 4)) ^
           ((sum ^ y) + (key[(static_cast<std::uint32_t>(p) & 3) ^ e] ^ z));
  };
  // NOLINTNEXTLINE(clang-analyzer-core.DivideZero): there are at least two words
  auto rounds = static_cast<std::uint32_t>(6 + 52 / count);
  if (n > 0) {
    z = v[count - 1];
    for (; rounds > 0; --rounds) {
      sum += kDelta;
      e = sum >> 2 & 3;
      for (int p = 0; p < count; ++p) {
        y = v[(p + 1) % count];
        z = v[p] += mx(p);
      }
    }
    return;
  }
  y = v[0];
  for (sum = rounds * kDelta; rounds > 0; --rounds, sum -= kDelta) {
    e = sum >> 2 & 3;
    for (int p = count - 1; p >= 0; --p) {
      z = v[p > 0 ? p - 1 : count - 1];
      y = v[p] -= mx(p);
    }
  }
}

/// The first 16 bytes of `key`, up to a zero byte, filled up with zeros.
std::string key_memory(const std::string& key) {
  std::string memory = key.substr(0, 16).c_str();
  memory.resize(16);
  return memory;
}

std::string enciphered(const std::string& plain, const Words& key) {
  if (plain.empty()) return {};
  Words words = words_of(plain);
  words.push_back(static_cast<std::uint32_t>(plain.size()));
  btea(words.data(), static_cast<int>(words.size()), key);
  return bytes_of(words);
}

std::string deciphered(const std::string& cipher, const Words& key) {
  if (cipher.size() <= 4) return {};
  Words words = words_of(cipher);
  btea(words.data(), -static_cast<int>(words.size()), key);
  const std::size_t length = words.back();
  words.pop_back();
  if (length > 4 * words.size() || length + 3 < 4 * words.size()) return {};
  return bytes_of(words).substr(0, length);
}

using Cipher = void* (*)(const void*, std::size_t, const void*, std::size_t*);

std::string in_memory(Cipher cipher, const std::string& data, const std::string& key) {
  const std::vector<char> key_room(key.begin(), key.end());
  std::size_t size = 77;
  const std::unique_ptr<void, Free> result(
      cipher(data.data(), data.size(), key_room.data(), &size));
  FUZZ_CHECK(result || size == 0);
  if (!result) return {};
  FUZZ_CHECK(size > 0 && static_cast<const char*>(result.get())[size] == '\0');
  return {static_cast<const char*>(result.get()), size};
}

void words_and_back(const std::string& data, bool with_length) {
  std::size_t count = 77;
  const std::unique_ptr<std::uint32_t, Free> words(
      utility::xxtea_to_uint_array(data.data(), data.size(), with_length, &count));
  Words expected = words_of(data);
  if (with_length) expected.push_back(static_cast<std::uint32_t>(data.size()));
  FUZZ_CHECK(words && Words(words.get(), words.get() + count) == expected);

  std::size_t size = 77;
  const std::unique_ptr<unsigned char, Free> bytes(
      utility::xxtea_to_ubyte_array(words.get(), count, with_length, &size));
  const std::string back = with_length ? data : bytes_of(expected);
  // A length word with nothing in front of it never fits.
  const bool fits = !with_length || !data.empty();
  FUZZ_CHECK((bytes != nullptr) == fits && size == (fits ? back.size() : 0));
  FUZZ_CHECK(!fits || std::memcmp(bytes.get(), back.c_str(), size + 1) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::string key = input.text('\n');
  const std::string text = input.rest();
  const std::string memory = key_memory(key);
  const Words key_words = words_of(memory);

  const std::string cipher = enciphered(text, key_words);
  FUZZ_CHECK(utility::xxtea_encrypt(text, key) == cipher);
  FUZZ_CHECK(in_memory(utility::xxtea_encrypt, text, memory) == cipher);
  FUZZ_CHECK(utility::xxtea_decrypt(cipher, key) == text);

  const std::string plain = deciphered(text, key_words);
  FUZZ_CHECK(utility::xxtea_decrypt(text, key) == plain);
  FUZZ_CHECK(in_memory(utility::xxtea_decrypt, text, memory) == plain);

  // What a holder of the key can forge: any length word.
  Words forged = words_of(text);
  if (forged.size() > 1) btea(forged.data(), static_cast<int>(forged.size()), key_words);
  const std::string forgery = bytes_of(forged);
  FUZZ_CHECK(utility::xxtea_decrypt(forgery, key) == deciphered(forgery, key_words));

  words_and_back(text, true);
  words_and_back(text, false);
  return 0;
}
