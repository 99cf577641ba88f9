#include "utility/CIPFormat.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <array>

#include "support/cases.h"
#include "utility/CBigInt.h"

namespace {

using S = std::string;
utility::CIPFormat& format = *utility::CIPFormat::instance();

std::vector<IPRangeExpress> ranges_of(const S& expression) {
  std::vector<IPRangeExpress> ranges;
  format.add_ip_to_range(expression, ranges);
  return ranges;
}

// The ends of a range, or the one address.
void range(const S& expression, Words& ends) {
  for (const IPRangeExpress& one : ranges_of(expression)) {
    ends.push_back(one.begin_text);
    if (one.is_single == 0) ends.push_back(one.end_text);
  }
}

}  // namespace

TEST(CIPFormat, TextsAndRanges) {
  const auto parse_v4 = [](const char* text, unsigned& value) {
    return format.ipv4_to_i(text, &value);
  };
  const auto type_of = [](const char* text) { return format.ipv6_address_field_type_get(text); };
  const auto full_form = [](const char* text, S& out) {
    return format.format_ip_address(text, out);
  };
  const auto compress = [](const char* text) { return format.ipv6_zero_compress(text); };
  const auto map = [](const S& text) { return format.ipv4_to_ipv6(text); };
  const auto unmap = [](const S& text) { return format.ipv6_to_ipv4(text); };
  const auto subtract = [](S& a, const S& b) {
    return utility::CBigInt::sub(a.c_str(), b.c_str(), a);
  };
  const auto is_in = [](const char* ip, const S& expression) {
    std::vector<IPRangeExpress> ranges = ranges_of(expression);
    return format.is_ip_in_range(ip, ranges);
  };
  const auto in_range = [](const S& begin, const S& end, const S& ip) {
    return format.ipv6_in_range(begin, end, ip);
  };
  run_cases(FIXTURES "/addresses.txt", {{"ipv4_to_i", call(parse_v4)},
                                        {"ipv6_address_field_type_get", call(type_of)},
                                        {"format_ip_address", call(full_form)},
                                        {"ipv6_zero_compress", call(compress)},
                                        {"ipv4_to_ipv6", call(map)},
                                        {"ipv6_to_ipv4", call(unmap)},
                                        {"sub", call(subtract)},
                                        {"range", call(range)},
                                        {"is_in", call(is_in)},
                                        {"ipv6_in_range", call(in_range)}});
}

TEST(CIPFormat, WordsAreKeptWhereATextIsRefused) {
  unsigned words[4] = {1, 2, 3, 4};
  EXPECT_EQ(format.ipv6_to_i("1:2:3::4::5", 128, words), 0);
  EXPECT_TRUE(words[0] == 1 && words[1] == 2 && words[2] == 3 && words[3] == 4);
  std::string ignored;
  EXPECT_EQ(utility::CBigInt::sub("12345678\xff", "123456780", ignored), -1) << "as char";
}

// All 256 patterns of zero and other groups; the C library is the judge.
TEST(CIPFormat, AgreesWithTheCLibrary) {
  for (unsigned pattern = 0; pattern < 256; ++pattern) {
    std::array<unsigned char, 16> address{}, bytes{};
    for (unsigned i = 0; i < 16; ++i) {
      address[i] = static_cast<unsigned char>((pattern >> (i / 2) & 1) * (0xF0 + i));
    }
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
