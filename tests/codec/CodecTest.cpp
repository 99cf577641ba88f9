#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "support/cases.h"
#include "support/sandbox.h"
#include "utility/utility.h"

using namespace utility;
using namespace std::string_literals;

namespace {

const std::string kKey = "0123456789abcdef";

/// `size` bytes in which every value turns up, no two lengths alike.
std::string sample(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>(i * 7 + size);
  return text;
}

unsigned char* bytes(const std::string& text) {
  return reinterpret_cast<unsigned char*>(const_cast<char*>(text.data()));
}

// A copy of `size` bytes of `memory`, which is freed.
std::string take(void* memory, std::size_t size) {
  const std::string copy(static_cast<const char*>(memory), memory != nullptr ? size : 0);
  std::free(memory);
  return copy;
}

// What a buffer form hands out; the input lies in a block of exactly its size, so that the
// sanitizer sees every byte too many.
using BufferForm = void (*)(unsigned char*&, unsigned long&, const unsigned char*, unsigned long);
std::string handed_out(BufferForm form, const std::string& in) {
  const std::unique_ptr<unsigned char[]> exact(new unsigned char[in.size()]);
  std::copy(in.begin(), in.end(), exact.get());
  unsigned char untouched = 0, *out = &untouched;
  unsigned long length = 99;
  form(out, length, exact.get(), in.size());
  if (out == &untouched) return length == 0 ? "nothing" : "a length but no buffer";
  const std::unique_ptr<unsigned char[]> owner(out);
  return {reinterpret_cast<const char*>(out), length};
}

std::string digest_in_pieces(unsigned char* text, std::size_t size, std::size_t piece) {
  MD5::MD5_CTX context;
  MD5::MD5Init(&context);
  for (std::size_t at = 0; at < size; at += piece) {
    MD5::MD5Update(&context, text + at, static_cast<unsigned int>(std::min(piece, size - at)));
  }
  unsigned char digest[16];
  MD5::MD5Final(digest, &context);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(&context), sizeof context), std::string(88, '\0'));
  return md5wrapper().convToString(digest);
}

std::string hmac(std::string& key, std::string text) {
  char digest[16];
  const int text_size = int(text.size()), key_size = int(key.size());
  EXPECT_EQ(CHmacMd5::hmac_md5(text.data(), text_size, key.data(), key_size, digest), 0);
  return CHmacMd5::checksumtostring(digest);
}

template <bool has_length>
std::string bytes_of(const Words& texts) {
  std::vector<std::uint32_t> words;
  for (const auto& text : texts) words.push_back(std::uint32_t(std::stoul(text, nullptr, 0)));
  std::size_t size = 99;
  void* const out = xxtea_to_ubyte_array(words.data(), words.size(), has_length, &size);
  EXPECT_TRUE(out != nullptr || size == 0);
  return out != nullptr ? take(out, size) : "null";
}

// Where a character is found elsewhere than in these lists.
int count_other_places(const std::string& plain, const std::string& images) {
  int count = 0;
  for (int i = -128; i < 128; ++i) {
    const char c = static_cast<char>(i);
    count += get_sbox_idx(c) != static_cast<int>(plain.find(c)) ? 1 : 0;
    count += get_invsbox_idx(c) != static_cast<int>(images.find(c)) ? 1 : 0;
  }
  return count;
}

template <class Form>
auto converts(Form form) {
  return call([form](const std::string& text, std::string& out, int room) {
    return form(bytes(text), bytes(out), room);
  });
}

}  // namespace

TEST(Codec, Vectors) {
  const auto decode = [](const std::string& text) { return handed_out(Base64::decode, text); };
  using Text = std::string(const std::string&, std::string);
  run_cases(FIXTURES "/vectors.txt", {{"base64_decode", call(decode)},
                                      {"hmac", call(hmac)},
                                      {"xxtea_encrypt", call<Text>(xxtea_encrypt)},
                                      {"bytes_of", call(bytes_of<false>)},
                                      {"bytes_in_length", call(bytes_of<true>)},
                                      {"aes_encrypt", call(aes_encrypt)},
                                      {"aes_decrypt", call(aes_decrypt)},
                                      {"aes_decrypt_imp", call(aes_decrypt_imp)},
                                      {"count_other_places", call(count_other_places)},
                                      {"gbk_to_utf8", converts(CConv::gbk_to_utf8)},
                                      {"utf8_to_gbk", converts(CConv::utf8_to_gbk)},
                                      {"has_chinese_char", call(CConv::has_chinese_char)},
                                      {"url_decode", call(CConv::url_decode)},
                                      {"url_encode", call(CConv::url_encode)},
                                      {"simple_hex2bin", call(CBinHex::simple_hex2bin)}});
}

TEST(Codec, EveryLengthAsOtherProgramsHaveIt) {
  md5wrapper md5;
  std::string all, digests, ciphers;
  for (int size = 0; size <= 300; ++size) {
    const std::string in = sample(static_cast<std::size_t>(size)), text = Base64::encode(in);
    const std::string name = sandbox::write_file(std::to_string(1000 + size), in);
    EXPECT_EQ(Base64::decode(text), in) << "in one pass, length " << size;
    EXPECT_EQ(Base64::decode(" " + text + "\r\n"), in) << "filtered, length " << size;

    const std::string digest = md5.getHashFromString(in);
    for (std::size_t piece = 1; piece <= 130; ++piece) {
      EXPECT_EQ(digest_in_pieces(bytes(in), in.size(), piece), digest) << size << '/' << piece;
    }
    EXPECT_EQ(md5.getHashFromFile(name), digest);
    digests += digest + "  " + name + "\n";

    std::string room(2 * in.size(), '.');
    EXPECT_EQ(CBinHex::bin2hex(in.data(), size, room.data(), 2 * size), 0);
    all += text + room + "\n";
    EXPECT_EQ(CBinHex::hex2bin(room.data(), 2 * size, room.data(), size), 0) << "in place";
    EXPECT_EQ(room.substr(0, in.size()), in);
    EXPECT_EQ(CBinHex::simple_hex2bin(CBinHex::simple_bin2hex(in)), in.c_str());

    const std::string cipher = xxtea_encrypt(in, kKey);
    EXPECT_EQ(xxtea_decrypt(cipher, kKey) + xxtea_decrypt(cipher, "another key"), in) << size;
    ciphers += cipher;
  }
  EXPECT_EQ(all, sandbox::output_of("python3 -c 'from base64 import *; import glob\n"
                                    "for name in sorted(glob.glob(\"1*\")):\n"
                                    "  data = open(name, \"rb\").read()\n"
                                    "  print((b64encode(data) + b16encode(data)).decode())'"));
  EXPECT_EQ(digests, sandbox::output_of("md5sum 1*"));
  EXPECT_EQ(md5.hashit(ciphers), "40ea19b4af3918520ca0cf19d57773ad") << "see vectors.txt";
  EXPECT_EQ(md5.getHashFromFile("missing"), "-1");
  EXPECT_EQ(md5.getHashFromFile("."), md5.hashit("")) << "it opens, but no read succeeds";
  std::string every;
  for (int i = 255; i >= 0; --i) every += static_cast<char>(i);
  EXPECT_EQ(handed_out(Base64::removeNonBase64Chars, every),
            "zyxwvutsrqponmlkjihgfedcbaZYXWVUTSRQPONMLKJIHGFEDCBA=9876543210/+");
}

TEST(Codec, EveryGbkCharacterAsTheIconvToolHasIt) {
  std::string gbk, utf8;
  for (int lead = 0x01; lead <= 0xFF; ++lead) {
    for (int trail = 0x40; trail <= 0xFF; ++trail) {
      const std::string pair = {static_cast<char>(lead), static_cast<char>(trail)};
      const std::string out = CConv::gbk_to_utf8_string(pair.c_str());
      if (CConv::utf8_to_gbk_string(out.c_str()) != pair) continue;
      gbk += pair + "\n";
      utf8 += out + "\n";
    }
  }
  EXPECT_GT(gbk.size(), 3 * 21000U) << "GBK has more than 21,000 characters of two bytes";
  sandbox::write_file("gbk", gbk);
  EXPECT_EQ(utf8, sandbox::output_of("iconv -f GBK -t UTF-8 gbk"));
}

TEST(CConv, WideFormsCountCharactersAsBytes) {
  char out[] = ".........";
  EXPECT_EQ(CConv::unicode_to_utf8(L"ABCD", out, 8), 2) << "4 bytes: the units A and NUL";
  EXPECT_EQ(std::memcmp(out, "A\0\0\0\0\0\0\0.", 9), 0);
  EXPECT_EQ(CConv::unicode_to_utf8_string(L"ABCD"), "A");
  EXPECT_EQ(CConv::unicode_to_utf8_string(L"ABC"), "") << "half a unit is left: a failure";
  wchar_t wide[] = {9, 9, 9};
  EXPECT_EQ(CConv::utf8_to_unicode("ABC", wide, 8), 8) << "mark and three units, in bytes";
  EXPECT_EQ(std::memcmp(wide, "\xff\xfe\x41\0\x42\0\x43\0\t", 9), 0);
  EXPECT_EQ(CConv::utf8_to_unicode_string("AB"), (std::wstring{0x41FEFF, 0x42}));
  EXPECT_EQ(CConv::utf8_to_unicode_string("A\xff"), L"") << "nothing is taken of a failure";
  EXPECT_EQ(CConv::gbk_to_utf8_string("\xc4\xe3\xba"), "\xe4\xbd\xa0") << "a prefix is a result";
  EXPECT_EQ(CConv::utf8_to_gbk_string("\xe4\xbd\xa0\xff"), "\xc4\xe3") << "here as well";

  EXPECT_EQ(CConv::gbk_to_utf8(bytes("abcd"), nullptr, 0), 13);
  EXPECT_EQ(CConv::utf8_to_gbk(bytes("abcd"), nullptr, 0), 13);
  EXPECT_EQ(CConv::unicode_to_utf8(L"abcd", nullptr, 0), 25);
  EXPECT_EQ(CConv::utf8_to_unicode("abcd", nullptr, 0), 25);
  EXPECT_EQ(CConv::gbk_to_utf8(nullptr, nullptr, 0) + CConv::utf8_to_gbk(nullptr, nullptr, 0), 0);
  EXPECT_EQ(CConv::unicode_to_utf8_string(nullptr) + CConv::gbk_to_utf8_url_string(nullptr), "");
  EXPECT_EQ(CConv::gbk_to_utf8_url_string("\xc4\xe3") + CConv::url_string("\xff"), "%E4%BD%A0%FF");
}

TEST(MD5, StepsAndBitsBeyondThirtyTwo) {
  // 2^32 bits of zeros: the kernel's own page, again and again, which costs no memory.
  constexpr std::size_t kSize = std::size_t{512} << 20;
  const std::unique_ptr<void, decltype(&std::free)> zeros(std::calloc(kSize, 1), std::free);
  EXPECT_EQ(digest_in_pieces(static_cast<unsigned char*>(zeros.get()), kSize, kSize),
            "aa559b4e3523a6c931f08f4df52d58f2")
      << "md5sum's";
  MD5::MD5_CTX context = {{}, {0xFFFFFE00, 0}, {}};
  MD5::MD5Update(&context, bytes(std::string(64, 'x')), 64);
  EXPECT_TRUE(context.count[0] == 0 && context.count[1] == 1) << "the carry of the low word";

  MD5::MD5Init(&context);
  std::string block = "abc\x80" + std::string(52, '\0') + "\x18" + std::string(7, '\0');
  MD5::MD5Transform(context.state, bytes(block));
  MD5::Encode(bytes(block), context.state, 16);
  EXPECT_EQ(md5wrapper().convToString(bytes(block)), "900150983cd24fb0d6963f7d28e17f72")
      << "RFC 1321";
  MD5::Decode(context.count, bytes(block), 8);
  EXPECT_EQ(context.count[0], 0x98500190U) << "the first byte is the lowest";
}

TEST(Codec, RefusalsLeaveEverythingAlone) {
  char k[] = "a key", d[] = "its room for 16.";
  EXPECT_EQ(CHmacMd5::hmac_md5(nullptr, 1, k, 5, d) + CHmacMd5::hmac_md5("x", 0, k, 5, d), 2);
  EXPECT_EQ(CHmacMd5::hmac_md5("x", 1, nullptr, 5, d) + CHmacMd5::hmac_md5("x", 1, k, 0, d), 2);
  EXPECT_EQ(CHmacMd5::hmac_md5("x", 1, k, 5, nullptr), 1);
  EXPECT_EQ(CHmacMd5::md5(nullptr, 1, d) + CHmacMd5::md5(k, 0, d) + CHmacMd5::md5(k, 1, nullptr),
            3);
  EXPECT_EQ(CBinHex::bin2hex("\x0a\xff", 2, d, 3), 4);
  EXPECT_EQ(CBinHex::bin2hex("", INT_MAX, nullptr, 0), INT_MAX) << "an int counts no further";
  EXPECT_EQ(CBinHex::hex2bin("0a1", 3, d, 1), 2);
  EXPECT_EQ(std::string(k) + d + CHmacMd5::checksumtostring(nullptr), "a keyits room for 16.");

  const std::string key("key\0more than ze", 16);
  std::size_t size = 99;
  EXPECT_EQ(xxtea_decrypt("", 0, key.data(), &size), nullptr);
  EXPECT_EQ(xxtea_encrypt("text", 4, nullptr, &size), nullptr);
  EXPECT_EQ(take(xxtea_to_uint_array("abcde", 5, true, &size), 9), "abcde\0\0\0\5"s);
  EXPECT_EQ(size, 3U);
  const std::string cipher = take(xxtea_encrypt("Hello", 5, key.data(), &size), 13);
  EXPECT_EQ(cipher, "\xd4O\x95-\x96\x8a-\x9d\xd0\x19\x1dW\0"s) << "a zero byte after it";
  EXPECT_EQ(take(xxtea_decrypt(cipher.data(), 12, key.data(), &size), 6), "Hello\0"s);
}
