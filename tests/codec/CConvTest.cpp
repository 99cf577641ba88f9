#include "utility/CConv.h"

#include <algorithm>
#include <cstring>

#include "codec/oracle.h"

namespace {

using utility::CConv;

TEST(CConv, EveryGbkCharacterAsTheIconvToolHasIt) {
  std::string gbk;
  std::string utf8;
  for (int lead = 0x01; lead <= 0xFF; ++lead) {
    for (int trail = 0x40; trail <= 0xFF; ++trail) {
      const std::string pair = {static_cast<char>(lead), static_cast<char>(trail)};
      std::string out(7, '\0');
      const int size = CConv::gbk_to_utf8(bytes(pair), bytes(out), 7);
      if (size == 0) continue;
      out.resize(static_cast<std::size_t>(size));
      EXPECT_EQ(CConv::gbk_to_utf8_string(pair.c_str()), out);
      EXPECT_EQ(CConv::utf8_to_gbk_string(out.c_str()), pair);
      gbk += pair + "\n";
      utf8 += out + "\n";
    }
  }
  const TempDir dir;
  EXPECT_GT(gbk.size(), 3 * 21000U) << "GBK has more than 21,000 characters of two bytes";
  EXPECT_EQ(utf8, output_of("iconv -f GBK -t UTF-8 " + dir.write("gbk", gbk)));
}

TEST(CConv, BufferFormsConvertOnceAndKeepWhatPrecedesAFailure) {
  // The result and the eight bytes of `out`, in which "_" is a zero byte.
  const auto convert = [](auto form, const std::string& in, int room) {
    std::string out(8, '.');
    const int result = form(bytes(in), bytes(out), room);
    std::replace(out.begin(), out.end(), '\0', '_');
    return std::to_string(result) + " " + out;
  };
  const auto to_utf8 = CConv::gbk_to_utf8;
  const auto to_gbk = CConv::utf8_to_gbk;
  const std::string gbk = "\xc4\xe3\xba\xc3";
  const std::string utf8 = "\xe4\xbd\xa0\xe5\xa5\xbd";
  EXPECT_EQ(convert(to_utf8, gbk, 8), "6 " + utf8 + "..") << "the rest is left alone";
  EXPECT_EQ(convert(to_gbk, utf8, 6), "4 " + gbk + "__..") << "the rest is zeroed";
  EXPECT_EQ(convert(to_utf8, gbk, 5), "0 \xe4\xbd\xa0.....") << "a byte short";
  EXPECT_EQ(convert(to_gbk, utf8, 3), "0 \xc4\xe3_.....") << "a byte short, zeroed";
  EXPECT_EQ(convert(to_utf8, "a\xc4", 4), "0 a.......") << "a sequence that is not complete";
  EXPECT_EQ(convert(to_gbk, "a\xff!", 2), "0 a_......") << "an invalid sequence";
  EXPECT_EQ(convert(to_gbk, "a\xf0\x9f\x98\x80", 2), "0 a_......") << "not a character of GBK";
  EXPECT_EQ(convert(to_gbk, "a", -1), "0 ........") << "negative room";
  EXPECT_EQ(CConv::gbk_to_utf8_string("\xc4\xe3\xba"), "\xe4\xbd\xa0") << "a prefix is a result";
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
}

TEST(CConv, SizeQueriesAndNullTexts) {
  EXPECT_EQ(CConv::gbk_to_utf8(bytes("abcd"), nullptr, 0), 13);
  EXPECT_EQ(CConv::utf8_to_gbk(bytes("abcd"), nullptr, 0), 13);
  EXPECT_EQ(CConv::unicode_to_utf8(L"abcd", nullptr, 0), 25);
  EXPECT_EQ(CConv::utf8_to_unicode("abcd", nullptr, 0), 25);
  EXPECT_EQ(CConv::gbk_to_utf8(nullptr, nullptr, 0) + CConv::utf8_to_gbk(nullptr, nullptr, 0), 0);
  EXPECT_EQ(CConv::unicode_to_utf8_string(nullptr) + CConv::gbk_to_utf8_url_string(nullptr), "");
}

TEST(CConv, UrlText) {
  for (int c = 1; c < 256; ++c) {
    const std::string text(1, static_cast<char>(c));
    const bool stays = c < 127 && (std::isalnum(c) != 0 || std::strchr("-._", c) != nullptr);
    const std::string expected = c == ' ' ? "+" : stays ? text : hex_of(text, "%%%02X");
    EXPECT_EQ(CConv::url_encode(text), expected);
    EXPECT_EQ(CConv::url_decode(expected), text);
  }
  EXPECT_EQ(CConv::url_string("a b~/\xc3\xa9"), "a+b%7E%2F%C3%A9");
  EXPECT_EQ(CConv::gbk_to_utf8_url_string("\xc4\xe3"), "%E4%BD%A0");
  EXPECT_EQ(CConv::url_decode("%4g%%41%2541%c3%a9%4"), "%4g%A%41\xc3\xa9%4");
  EXPECT_EQ(CConv::url_decode("a%00b"), "a");
}

TEST(CConv, FindsGbkCharactersBehindThePunctuation) {
  for (const char* text : {"\xc4\xe3", "\xa1\xa1\xc4\xe3", "\xa1\xc4\xe3", "\xa2\xa4!", "a\xa4!"}) {
    EXPECT_TRUE(CConv::has_chinese_char(text)) << hex_of(text);
  }
  for (const char* text : {"", "\xc4", "A\xc4", "\xa1\xa1", "\xa1\xa1\xc4", "\xa3\xc4!", "\xa2!"}) {
    EXPECT_FALSE(CConv::has_chinese_char(text)) << hex_of(text);
  }
}

}  // namespace
