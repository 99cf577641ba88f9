#include "utility/CIPFormat.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <array>
#include <map>
#include <tuple>

#include "utility/CBigInt.h"

using utility::CBigInt;
using utility::CIPFormat;

namespace {

using Texts = std::vector<std::string>;

CIPFormat& format = *CIPFormat::instance();

// Every text of a row has the row's result.
void expect(std::string (*call)(const std::string&), const std::map<std::string, Texts>& rows) {
  for (const auto& [result, texts] : rows) {
    for (const std::string& text : texts) EXPECT_EQ(call(text), result) << text;
  }
}

}  // namespace

TEST(CIPFormat, ReadsFieldsLeniently) {
  const auto number = [](const std::string& text) {
    unsigned value = 77;
    const int result = format.ipv4_to_i(text.c_str(), &value);
    return std::to_string(result) + ": " + std::to_string(value);
  };
  expect(number, {{"1: 16909060", {"1.2.3.4", "1.2.3.4.x", "1.2.3.4/24", "1/9.02.3.4"}},
                  {"1: 167837696", {"10.1", "10.1.", "10.1..0"}},
                  {"1: 0", {"", "/", "..."}},
                  {"0: 77", {"256.1.1.1", "1.2x", " 1.2", "1.-2", "1.18446744073709551617"}}});
  const auto type = [](const std::string& field) {
    return std::to_string(format.ipv6_address_field_type_get(field.c_str()));
  };
  expect(type, {{"1", {""}},
                {"0", {"a", "aBcD", "0000"}},
                {"2", {"1.2.3.4", "10.0.0.0/8", "255.255.255.255"}},
                {"-1", {"g", "abcde", "123456", "1.2.3", "1.2.3.256", "192.168.100.0/24"}}});
}

TEST(CIPFormat, BringsAddressesToTheFullForm) {
  const auto full_form = [](const std::string& text) {
    std::string out = "untouched";
    const int result = format.format_ip_address(text.c_str(), out);
    return std::to_string(result) + ": " + out;
  };
  expect(full_form,
         {{"0: 0000:0000:0000:0000:0000:FFFF:C0A8:0101", {"192.168.1.1", "::ffff:192.168.1.1"}},
          {"0: 0102:0304:0000:0000:0000:0000:0000:0000",
           {"1.2.3.4::", " 1\v02\t:\n3\f04\r::", std::string(118, ' ') + "1.2.3.4::"}},
          {"0: 0001:0002:0003:0004:0005:0006:0007:0008",
           {":1:2:3:4:5:6:7:8", "1:2:3:4:5:6:7:8:", ":1:2:3:4::5:6:7:8", "1:2:3:4:5:6:0.7.0.8/24"}},
          {"1: untouched",
           {"1::2::3", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8:9", "1:2:3:4:5:6:7:1.2.3.4", "12345::1",
            ":1:2:3:4::5:6:7:8:", "::g", "1.2.3", "", ":", ":::", std::string(5000, '1'),
            std::string(125, ' ') + "::1"}}});
  unsigned words[4] = {1, 2, 3, 4};
  EXPECT_EQ(format.ipv6_to_i("1:2:3::4::5", 128, words), 0);
  EXPECT_TRUE(words[0] == 1 && words[1] == 2 && words[2] == 3 && words[3] == 4);
}

// All 256 patterns of zero and other groups; the C library is the judge.
TEST(CIPFormat, AgreesWithTheCLibrary) {
  for (unsigned pattern = 0; pattern < 256; ++pattern) {
    std::array<unsigned char, 16> address{};
    for (unsigned i = 0; i < 16; ++i) {
      address[i] = static_cast<unsigned char>((pattern >> (i / 2) & 1) * (0xF0 + i));
    }
    std::array<unsigned char, 16> bytes{};
    char text[INET6_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET6, address.data(), text, sizeof text);
    format.ipv6_str_to_uint8_array(text, bytes.data());
    EXPECT_EQ(bytes, address) << text;
    const std::string full = format.ipv6_uint8_array_to_str(bytes.data());
    for (const auto& form : {full, format.ipv6_zero_compress(full.c_str())}) {
      EXPECT_EQ(::inet_pton(AF_INET6, form.c_str(), bytes.data()), 1) << form;
      EXPECT_EQ(bytes, address) << form;
    }
  }
}

TEST(CIPFormat, CompressesByItsOwnRules) {
  const auto compress = [](const std::string& text) {
    return format.ipv6_zero_compress(text.c_str());
  };
  expect(compress, {{"FE80::202:B3FF:FE1E:8329", {"fe80:0000:0000:0000:0202:b3ff:fe1e:8329"}},
                    {"1:2:3:4:5:6:0:0", {"1:2:3:4:5:6:0:0"}},
                    {"::1", {"0:0:0:0:0:0:0:1", "::1"}},
                    {"1::2:0:0:0:0:0", {"1:0:2:0:0:0:0:0"}},
                    {"1:0:2::3:4:5", {"1:0:2:0:0:3:4:5"}},
                    {"1::2:0:0:3:4", {"1:0:0:2:0:0:3:4"}},
                    {"::", {"0:0:0:0:0:0:0:0", "0:0:0:0:0:0:0:", "g:h:i:j:k:l:m:n"}},
                    {"1:2:3:4:5:6:7:0", {":1:2:3:4:5:6:7", "1:2:3:4:5:6:7:"}},
                    {"1234:0:2:3:4:5:6:ABCD", {"12345678:00001:2:3:4:5:6:abcdef"}},
                    {"a:0:0:0:0:0:1.2.3.4", {"a:0:0:0:0:0:1.2.3.4"}}});
}

TEST(CIPFormat, MapsBothWays) {
  EXPECT_EQ(format.ipv4_to_ipv6("not.an.address"), "::ffff:not.an.address");
  EXPECT_EQ(format.ipv4_to_ipv6("1234") + format.ipv4_to_ipv6("::1.2.3.4"), "");
  expect([](const std::string& text) { return format.ipv6_to_ipv4(text); },
         {{"192.168.1.1", {"::FFFF:C0A8:0101", "0000:0000:0000:0000:0000:ffff:c0a8:0101"}},
          {"1.0.0.0", {"::ffff:1.2.3.4", "ffff:1::ffff:c0a8:0101"}},
          {"", {"0:0:0:0:0:ffff:c0a8:0101", "2001:db8::1"}}});
}

TEST(CBigInt, OrdersByLengthThenDigits) {
  // The order and the difference, which takes the place of an operand.
  const auto sub = [](std::string a, const std::string& b) {
    const int order = CBigInt::sub(a.c_str(), b.c_str(), a);
    return std::to_string(order) + " " + a;
  };
  EXPECT_EQ(sub("007", "7"), "1 000");
  EXPECT_EQ(sub("5", "5"), "0 0");
  EXPECT_EQ(sub("", "12"), "-1 12");
  EXPECT_EQ(sub("99", "100"), "-1 001");
  EXPECT_EQ(sub("12345678\xff", "123456780").substr(0, 2), "-1") << "compared as char";
  EXPECT_EQ(sub("2000301", "1999402"), "1 0000899");
  EXPECT_EQ(sub(std::string(5000, '5'), std::string(5000, '1')), "1 " + std::string(5000, '4'));
}

TEST(IPRanges, MatchInDecimalTextOrder) {
  using Row = std::tuple<const char*, const char*, Texts, Texts>;
  for (const auto& [expression, record, inside, outside] :
       {// A single address also matches what its decimal text begins with: 1.0.0.0 here.
        Row{"10.0.0.1", "0065535167772161", {"10.0.0.1", "1.0.0.0"}, {"10.0.0.2", "", "1.2"}},
        Row{"1.0.0.0", "006553516777216", {"1.0.0.0"}, {"10.0.0.1"}},
        Row{"10.0.0.0/8", "0065535167772160", {"10.0.0.0"}, {"10.0.0.1"}},
        Row{"9.9.9.8-9.9.9.9.-1", "0065535151587080-0065535151587081", {"9.9.9.8"}, {"9.9.9.7"}},
        Row{"9.9.9.9-9.9.9.9", "0065535151587081", {"9.9.9.9"}, {"9.9.9.8"}},
        Row{"1.0.0.0 - 10.0.0.0",
            "006553516777216-0065535167772160",
            {"1.0.0.0", "::ffff:9.9.9.9", "10.0.0.0"},
            {"0.9.9.9", "10.0.0.1"}},
        Row{"10.0.0.0-1.0.0.0", "0065535167772160-006553516777216", {}, {"1.0.0.0", "5.5.5.5"}},
        // 0:1:: has the words 1, 0, 0, 0: a short text, though a large number.
        Row{"::1-::ffff:0.0.0.2", "0001-00655352", {"::1", "0:1::"}, {"::", "::ffff:0.0.0.3"}}}) {
    SCOPED_TRACE(expression);
    std::vector<IPRangeExpress> ranges(1);
    format.add_ip_to_range(expression, ranges);
    ASSERT_EQ(ranges.size(), 2U);
    const std::string end = ranges[1].is_single == 1 ? "" : "-";
    EXPECT_EQ(ranges[1].begin_text + end + ranges[1].end_text, record);
    for (const auto& ip : inside) EXPECT_TRUE(format.is_ip_in_range(ip.c_str(), ranges));
    for (const auto& ip : outside) EXPECT_FALSE(format.is_ip_in_range(ip.c_str(), ranges));
  }
  std::vector<IPRangeExpress> none;
  for (const char* expression : {"", "-", "10.0.0.1-", "-10.0.0.1", "192.168.100.0/24",
                                 "::1-10.0.0.1", "10.0.0.1-::2", "10.0.0.1-10.0.0.2-10.0.0.3"}) {
    format.add_ip_to_range(expression, none);
    EXPECT_TRUE(none.empty()) << expression;
  }
  EXPECT_TRUE(format.ipv6_in_range("2001:db8::1", "2001:db8::ff", "2001:db8::10"));
  EXPECT_FALSE(format.ipv6_in_range("2001:db8::1", "2001:db8::ff", "2001:db8::100"));
  EXPECT_TRUE(format.ipv6_in_range("no address", "::", "10.0.0.1")) << "all of them ::";
}
