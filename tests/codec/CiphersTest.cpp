#include "utility/Ciphers.h"

#include <cstdlib>
#include <tuple>
#include <vector>

#include "codec/oracle.h"
#include "utility/md5wrapper.h"

namespace {

using namespace utility;
using std::string_literals::operator""s;

const std::string kKey = "0123456789abcdef";

// Owns what the library took with malloc and shows `size` bytes of it.
std::string take(void* memory, std::size_t size) {
  const std::unique_ptr<void, void (*)(void*)> owner(memory, std::free);
  return memory == nullptr ? "null" : std::string(static_cast<const char*>(memory), size);
}

// The ciphertexts come from a short Python program written after the published algorithm, which
// gives the published ab043705 808c5d57 for a block and a key of zeros.
TEST(Xxtea, KnownCiphertexts) {
  const std::string rows[][3] = {
      {"A", kKey, "91f040172b25f672"},
      {"abcd", kKey + "more", "4f899b071e20367b"},
      {std::string(3, '\0'), kKey, "f70712118892bac6"},
      {"Hello", std::string("key\0more than zeros", 19), "d44f952d968a2d9dd0191d57"},
      {"Hello, XXTEA!", "", "b3ea2022eebb0797729ad5750f880e1f0277988f"},
      {"", kKey, ""},
  };
  for (const auto& [data, key, out] : rows) EXPECT_EQ(hex_of(xxtea_encrypt(data, key)), out);
  std::string all;
  for (std::size_t size = 1; size <= 300; ++size) {
    const std::string cipher = xxtea_encrypt(sample(size), kKey);
    EXPECT_EQ(xxtea_decrypt(cipher, kKey), sample(size)) << size;
    EXPECT_EQ(xxtea_decrypt(cipher, "another key"), "") << size;
    all += cipher;
  }
  EXPECT_EQ(md5wrapper().hashit(all), "40ea19b4af3918520ca0cf19d57773ad") << "the same program's";
}

TEST(Xxtea, LengthWordMustFitTheWords) {
  const auto bytes_of = [](const std::vector<std::uint32_t>& words, bool include_length) {
    std::size_t size = 99;
    void* const out = xxtea_to_ubyte_array(words.data(), words.size(), include_length, &size);
    // NOLINTNEXTLINE(readability-redundant-string-cstr): up to its NUL
    return std::to_string(size) + " " + take(out, size + 1).c_str();
  };
  EXPECT_EQ(bytes_of({0x64636261, 0x68676665}, false), "8 abcdefgh") << "all bytes of all words";
  EXPECT_EQ(bytes_of({0x64636261, 0x68676665, 4}, true), "0 null") << "below the lower bound";
  EXPECT_EQ(bytes_of({0x64636261, 0x68676665, 5}, true), "5 abcde") << "the lower bound";
  EXPECT_EQ(bytes_of({0x64636261, 0x68676665, 8}, true), "8 abcdefgh") << "the upper bound";
  EXPECT_EQ(bytes_of({0x64636261, 0x68676665, 9}, true), "0 null") << "above the upper bound";
  EXPECT_EQ(bytes_of({}, true), "0 null") << "no words";
}

TEST(Xxtea, PlainMemory) {
  const std::string key("key\0more than ze", 16);
  std::size_t size = 99;
  const std::string cipher = take(xxtea_encrypt("Hello", 5, key.data(), &size), 13);
  EXPECT_EQ(hex_of(cipher), "d44f952d968a2d9dd0191d5700") << "with a zero byte after it";
  EXPECT_EQ(size, 12U);
  EXPECT_EQ(take(xxtea_decrypt(cipher.data(), size, key.data(), &size), 6).c_str(), "Hello"s);
  EXPECT_EQ(size, 5U);
  EXPECT_EQ(xxtea_decrypt("", 0, key.data(), &size), nullptr);
  EXPECT_EQ(xxtea_encrypt("text", 4, nullptr, &size), nullptr);
  EXPECT_EQ(take(xxtea_to_uint_array("abcde", 5, true, &size), 9), "abcde\0\0\0\5"s);
  EXPECT_EQ(size, 3U);
}

TEST(Substitution, TablesRoundsAndForeignCharacters) {
  const std::string plain = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
  // Where each of these stands among the images.
  const int places[] = {29, 5,  12, 14, 35, 7,  6, 26, 31, 9,  11, 4,  18, 25, 28, 34, 10, 19,
                        17, 20, 0,  2,  1,  24, 3, 27, 15, 21, 8,  22, 33, 16, 32, 13, 30, 23};
  for (int i = -128; i < 128; ++i) {
    const char c = static_cast<char>(i);
    const std::size_t at = plain.find(c);
    EXPECT_EQ(get_sbox_idx(c), at < 36 ? static_cast<int>(at) : -1) << i;
    EXPECT_EQ(get_invsbox_idx(c), at < 36 ? places[at] : -1) << i;
  }
  const std::tuple<std::string, int, std::string> rows[] = {
      {"A", 0, "A"},     {"A", -3, "A"},
      {"A", 1, "BM"},    {"A", 2, "BLBX"},
      {"", 1 << 30, ""}, {"\x01\x23\x45\x67\x89\xab\xcd\xef", 1, "KMLOB165S9GA2X3Q"},
  };
  for (const auto& [text, rounds, cipher] : rows) {
    EXPECT_EQ(aes_encrypt(text, rounds), cipher);
    EXPECT_EQ(aes_decrypt(cipher, rounds), text);
  }
  EXPECT_EQ(aes_decrypt(aes_encrypt("ab\0c"s, 1), 1), "ab") << "ends at a zero byte";
  EXPECT_EQ(aes_decrypt_imp("aK!M"), "\xa0\x11") << "no images: a stays and is 10, ! is -15";
}

}  // namespace
