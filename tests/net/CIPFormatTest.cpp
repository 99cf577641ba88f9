#include "utility/CIPFormat.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <array>

#include "support/cases.h"
#include "utility/CBigInt.h"

namespace {

utility::CIPFormat& format = *utility::CIPFormat::instance();

// A check of all texts of a case, by what `call` gives for each.
template <class Call>
auto each_text(const char* field, Call call) {
  return [field, call](const Case& row) {
    for (const std::string& text : row.all("text")) row.expect(field, call(text));
  };
}

void check_range(const Case& row) {
  std::vector<IPRangeExpress> ranges(1);
  format.add_ip_to_range(row["expression"], ranges);
  ASSERT_EQ(ranges.size(), 2U);
  row.expect("begin", ranges[1].begin_text);
  EXPECT_EQ(ranges[1].is_single, row.has("end") ? 0 : 1);
  if (row.has("end")) row.expect("end", ranges[1].end_text);
  for (const auto& ip : row.all("inside")) EXPECT_TRUE(format.is_ip_in_range(ip.c_str(), ranges));
  for (const auto& ip : row.all("outside")) EXPECT_FALSE(format.is_ip_in_range(ip.c_str(), ranges));
}

}  // namespace

TEST(CIPFormat, TextsAndRanges) {
  const auto type_of = [](const std::string& text) -> long long {
    return format.ipv6_address_field_type_get(text.c_str());
  };
  const auto compress = [](const std::string& text) {
    return format.ipv6_zero_compress(text.c_str());
  };
  const auto map = [](const std::string& text) { return format.ipv4_to_ipv6(text); };
  const auto unmap = [](const std::string& text) { return format.ipv6_to_ipv4(text); };
  const auto parse_v4 = [](const Case& row) {
    for (const std::string& text : row.all("text")) {
      unsigned value = 77;
      row.expect("result", format.ipv4_to_i(text.c_str(), &value));
      row.expect("value", value);
    }
  };
  const auto full_form = [](const Case& row) {
    for (const std::string& text : row.all("text")) {
      std::string out = "as before";
      row.expect("result", format.format_ip_address(text.c_str(), out));
      row.expect("out", out);
    }
  };
  const auto subtract = [](const Case& row) {
    std::string a = row["a"];
    row.expect("order", utility::CBigInt::sub(a.c_str(), row["b"].c_str(), a));
    row.expect("difference", a);
  };
  const auto no_range = [](const Case& row) {
    std::vector<IPRangeExpress> ranges;
    for (const auto& expression : row.all("expression")) format.add_ip_to_range(expression, ranges);
    EXPECT_TRUE(ranges.empty());
  };
  const auto in_range = [](const Case& row) {
    row.expect("result", format.ipv6_in_range(row["begin"], row["end"], row["ip"]));
  };
  for_each_case(FIXTURES "/addresses.txt",
                {{"ipv4_to_i", parse_v4},
                 {"ipv6_address_field_type_get", each_text("result", type_of)},
                 {"format_ip_address", full_form},
                 {"ipv6_zero_compress", each_text("out", compress)},
                 {"ipv4_to_ipv6", each_text("out", map)},
                 {"ipv6_to_ipv4", each_text("out", unmap)},
                 {"sub", subtract},
                 {"range", check_range},
                 {"no_range", no_range},
                 {"ipv6_in_range", in_range}});
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
