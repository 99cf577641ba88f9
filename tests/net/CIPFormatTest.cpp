#include "utility/CIPFormat.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <array>
#include <random>

#include "support/alloc_fault.h"
#include "utility/CBigInt.h"

using utility::CBigInt;
using utility::CIPFormat;

namespace {

using Texts = std::vector<std::string>;

CIPFormat& format() {
  return *CIPFormat::instance();
}

std::string full_form(const std::string& text) {
  std::string out = "untouched";
  return format().format_ip_address(text.c_str(), out) == 0 ? out : "refused, " + out;
}

}  // namespace

TEST(CIPFormat, ReadsDottedTextLeniently) {
  struct Row {
    unsigned value;
    Texts texts;
  };
  for (const Row& row : {Row{0x01020304, {"1.2.3.4", "1.2.3.4.x", "1.2.3.4/24", "1/9.02.3.4"}},
                         {0x0A010000, {"10.1", "10.1.", "10.1..0"}},
                         {0, {"", "/", "..."}},
                         {0xFFFEFDFC, {"255.254.253.252"}}}) {
    for (const std::string& text : row.texts) {
      unsigned value = 77;
      EXPECT_EQ(format().ipv4_to_i(text.c_str(), &value), 1) << text;
      EXPECT_EQ(value, row.value) << text;
    }
  }
  unsigned value = 77;
  for (const char* text :
       {"256.1.1.1", "1.2.3.4x", " 1.2.3.4", "1.-2", "1.2.18446744073709551617"}) {
    EXPECT_EQ(format().ipv4_to_i(text, &value), 0) << text;
    EXPECT_EQ(format().ipv4_str_to_uint(text), 0U);
  }
  EXPECT_EQ(format().ipv4_to_i(nullptr, &value), 0);
  EXPECT_EQ(value, 77U);
  char buffer[16];
  EXPECT_EQ(format().ipv4_to_str(buffer, 0xFFFEFDFC), 15);
  EXPECT_STREQ(buffer, "255.254.253.252");
}

TEST(CIPFormat, TellsFieldsApart) {
  struct Row {
    int type;
    Texts fields;
  };
  for (const Row& row :
       {Row{1, {""}},
        {0, {"a", "aBcD", "0000"}},
        {2, {"1.2.3.4", "10.0.0.0/8", "255.255.255.255"}},
        {-1, {"g", "abcde", "123456", "1.2.3", "1.2.3.256", "192.168.100.0/24"}}}) {
    for (const std::string& field : row.fields) {
      EXPECT_EQ(format().ipv6_address_field_type_get(field.c_str()), row.type) << field;
    }
  }
}

TEST(CIPFormat, BringsAddressesToTheFullForm) {
  EXPECT_EQ(full_form("192.168.1.1"), "0000:0000:0000:0000:0000:FFFF:C0A8:0101");
  EXPECT_EQ(full_form("1.2.3.4::"), "0102:0304:0000:0000:0000:0000:0000:0000");
  EXPECT_EQ(full_form(" 1 \t:: \n\v\f\r2 "), "0001:0000:0000:0000:0000:0000:0000:0002");
  for (const char* text : {"1:2:3:4:5:6:7:8", ":1:2:3:4:5:6:7:8",
                           "1:2:3:4:5:6:7:8:", ":1:2:3:4::5:6:7:8", "1:2:3:4:5:6:0.7.0.8/24"}) {
    EXPECT_EQ(full_form(text), "0001:0002:0003:0004:0005:0006:0007:0008") << text;
  }
  std::string endless = "1";
  for (int i = 0; i < 5000; ++i) endless += ":1";
  for (const std::string& text :
       Texts{"1::2::3", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8:9", "1:2:3:4:5:6:7:1.2.3.4", "12345::1",
             ":1:2:3:4::5:6:7:8:", "::g", "1.2.3", "", ":", ":::", endless, std::string(5000, '1'),
             std::string(125, ' ') + "::1"}) {
    EXPECT_EQ(full_form(text), "refused, untouched") << text;
    unsigned words[4] = {1, 2, 3, 4};
    EXPECT_EQ(format().ipv6_to_i(text.c_str(), 128, words), 0);
    EXPECT_TRUE(words[0] == 1 && words[1] == 2 && words[2] == 3 && words[3] == 4);
  }
}

// All 256 patterns of zero and other groups; the C library is the judge.
TEST(CIPFormat, AgreesWithTheCLibrary) {
  std::mt19937 random(20240501);
  for (unsigned pattern = 0; pattern < 256; ++pattern) {
    std::array<unsigned char, 16> address{};
    std::string full;
    for (unsigned group = 0; group < 8; ++group) {
      const auto value =
          static_cast<unsigned>((pattern >> group & 1) != 0 ? random() % 0xFFFF + 1 : 0);
      address[2 * group] = static_cast<unsigned char>(value >> 8);
      address[2 * group + 1] = static_cast<unsigned char>(value);
      char digits[8];
      std::snprintf(digits, sizeof digits, group < 7 ? "%04X:" : "%04X", value);
      full += digits;
    }
    char text[INET6_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET6, address.data(), text, sizeof text);
    EXPECT_EQ(full_form(text), full);
    EXPECT_EQ(format().ipv6_uint8_array_to_str(address.data()), full);
    std::array<unsigned char, 16> bytes{};
    format().ipv6_str_to_uint8_array(text, bytes.data());
    EXPECT_EQ(bytes, address) << text;
    const std::string shorter = format().ipv6_zero_compress(full.c_str());
    EXPECT_EQ(::inet_pton(AF_INET6, shorter.c_str(), bytes.data()), 1) << shorter;
    EXPECT_EQ(bytes, address) << shorter;
  }
}

TEST(CIPFormat, CompressesByItsOwnRules) {
  const std::pair<const char*, const char*> rows[] = {
      {"fe80:0000:0000:0000:0202:b3ff:fe1e:8329", "FE80::202:B3FF:FE1E:8329"},
      {"1:0:2:3:4:5:6:7", "1::2:3:4:5:6:7"},
      {"0:0:0:0:0:0:0:1", "::1"},
      {"1:0:2:0:0:0:0:0", "1::2:0:0:0:0:0"},
      {"1:2:3:4:5:6:0:0", "1:2:3:4:5:6:0:0"},
      {"1:0:2:0:0:3:4:5", "1:0:2::3:4:5"},
      {"1:0:0:2:0:0:3:4", "1::2:0:0:3:4"},
      {"0:0:0:0:0:0:0:0", "::"},
      {"0:0:0:0:0:0:0:", "::"},
      {":1:2:3:4:5:6:7", "1:2:3:4:5:6:7:0"},
      {"12345678:00001:2:3:4:5:6:abcdef", "1234:0:2:3:4:5:6:ABCD"},
      {"a:0:0:0:0:0::b", "a:0:0:0:0:0::b"},
      {"0:0:0:0:0:ffff:1.2.3.4", "0:0:0:0:0:ffff:1.2.3.4"},
  };
  for (const auto& [text, shorter] : rows) {
    EXPECT_EQ(format().ipv6_zero_compress(text), shorter) << text;
  }
  const AllocFault fault(0);
  EXPECT_EQ(format().ipv6_zero_compress("00:0:0:0:0:0:0:1"), "00:0:0:0:0:0:0:1");
}

TEST(CIPFormat, MapsBothWays) {
  EXPECT_EQ(format().ipv4_to_ipv6("not.an.address"), "::ffff:not.an.address");
  EXPECT_EQ(format().ipv4_to_ipv6("1234") + format().ipv4_to_ipv6("::1.2.3.4"), "");
  const std::pair<const char*, const char*> rows[] = {
      {"::FFFF:C0A8:0101", "192.168.1.1"},
      {"0000:0000:0000:0000:0000:ffff:c0a8:0101", "192.168.1.1"},
      {"::ffff:1.2.3.4", "1.0.0.0"},
      {"ffff:0102:0304::ffff:1", "1.2.3.4"},
      {"0:0:0:0:0:ffff:c0a8:0101", ""},
      {"2001:db8::1", ""},
  };
  for (const auto& [text, dotted] : rows) EXPECT_EQ(format().ipv6_to_ipv4(text), dotted) << text;
}

TEST(CBigInt, OrdersByLengthThenDigits) {
  struct Row {
    std::string a;
    std::string b;
    int order;
    std::string difference;
  };
  for (const Row& row :
       {Row{"007", "7", 1, "000"},
        {"5", "5", 0, "0"},
        {"", "12", -1, "12"},
        {std::string(5000, '5'), std::string(5000, '1'), 1, std::string(5000, '4')},
        {"010", "20", 1, ""},
        {"1\xff", "10", -1, ""}}) {
    std::string difference;
    EXPECT_EQ(CBigInt::sub(row.a.c_str(), row.b.c_str(), difference), row.order) << row.a;
    EXPECT_EQ(row.difference.empty() ? "" : difference, row.difference);
  }
  std::mt19937_64 random(7);
  for (int i = 0; i < 1000; ++i) {
    const unsigned long a = random() >> (random() % 64);
    const unsigned long b = random() >> (random() % 64);
    char texts[3][21];
    std::snprintf(texts[0], sizeof texts[0], "%020lu", a);
    std::snprintf(texts[1], sizeof texts[1], "%020lu", b);
    std::snprintf(texts[2], sizeof texts[2], "%020lu", a > b ? a - b : b - a);
    std::string in_place = texts[0];
    EXPECT_EQ(CBigInt::sub(in_place.c_str(), texts[1], in_place), a > b ? 1 : a < b ? -1 : 0);
    EXPECT_EQ(in_place, texts[2]);
  }
}

TEST(IPRanges, MatchInDecimalTextOrder) {
  struct Row {
    const char* expression;
    const char* begin;
    const char* end;
    Texts inside;
    Texts outside;
  };
  for (const Row& row :
       {// A single address also matches what its decimal text begins with: 1.0.0.0 here.
        Row{"10.0.0.1", "0065535167772161", "", {"10.0.0.1", "1.0.0.0"}, {"10.0.0.2", "", "1.2"}},
        {"1.0.0.0", "006553516777216", "", {"1.0.0.0"}, {"10.0.0.1"}},
        {"10.0.0.0/8", "0065535167772160", "", {"10.0.0.0"}, {"10.0.0.1"}},
        {"9.9.9.9-9.9.9.9", "0065535151587081", "", {"9.9.9.9"}, {"9.9.9.8"}},
        {"1.0.0.0 - 10.0.0.0",
         "006553516777216",
         "0065535167772160",
         {"1.0.0.0", "5.5.5.5", "::ffff:9.0.0.0", "10.0.0.0"},
         {"0.255.255.255", "10.0.0.1"}},
        {"10.0.0.0-1.0.0.0", "0065535167772160", "006553516777216", {}, {"1.0.0.0", "5.5.5.5"}},
        // 0:1:: has the words 1, 0, 0, 0: a short text, though a large number.
        {"::1-::ffff:0.0.0.2", "0001", "00655352", {"::1", "0:1::"}, {"::", "::ffff:0.0.0.3"}}}) {
    SCOPED_TRACE(row.expression);
    std::vector<IPRangeExpress> ranges;
    EXPECT_FALSE(format().is_ip_in_range("10.0.0.1", ranges));
    format().add_ip_to_range("250.0.0.1", ranges);
    format().add_ip_to_range(row.expression, ranges);
    ASSERT_EQ(ranges.size(), 2U);
    EXPECT_STREQ(ranges[1].begin_text, row.begin);
    EXPECT_STREQ(ranges[1].end_text, row.end);
    EXPECT_EQ(ranges[1].is_single, row.end[0] == '\0' ? 1 : 0);
    for (const auto& ip : row.inside)
      EXPECT_TRUE(format().is_ip_in_range(ip.c_str(), ranges)) << ip;
    for (const auto& ip : row.outside)
      EXPECT_FALSE(format().is_ip_in_range(ip.c_str(), ranges)) << ip;
    EXPECT_FALSE(format().is_ip_in_range(nullptr, ranges));
  }
  std::vector<IPRangeExpress> none;
  for (const char* expression : {"", "-", "10.0.0.1-", "-10.0.0.1", "192.168.100.0/24",
                                 "::1-10.0.0.1", "10.0.0.1-::2", "10.0.0.1-10.0.0.2-10.0.0.3"}) {
    format().add_ip_to_range(expression, none);
    EXPECT_TRUE(none.empty()) << expression;
  }
  EXPECT_TRUE(format().ipv6_in_range("2001:db8::1", "2001:db8::ff", "2001:db8::10"));
  EXPECT_FALSE(format().ipv6_in_range("2001:db8::1", "2001:db8::ff", "2001:db8::100"));
  EXPECT_TRUE(format().ipv6_in_range("no address", "::", "10.0.0.1")) << "all of them ::";
}

TEST(IPRanges, AreNumericRangesOfIpv4) {
  std::mt19937 random(11);
  for (int i = 0; i < 1000; ++i) {
    unsigned numbers[3];
    Texts dotted;
    for (unsigned& number : numbers) {
      number = static_cast<unsigned>(random() >> (random() % 32));
      dotted.push_back(format().ipv4_uint_to_str(number));
    }
    const auto [begin, ip, end] = numbers;
    std::vector<IPRangeExpress> ranges;
    format().add_ip_to_range(dotted[0] + " -" + dotted[2], ranges);
    EXPECT_EQ(format().is_ip_in_range(dotted[1].c_str(), ranges), begin <= ip && ip <= end);
  }
}
