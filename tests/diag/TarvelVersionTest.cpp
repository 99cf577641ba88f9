#include "utility/TarvelVersion.h"

#include <gtest/gtest.h>

using utility::TarvelVersion;

TEST(TarvelVersion, FindsTheNumbers) {
  // clang-format off
  const std::pair<const char*, const char*> rows[] = {
      {"03.2.1", "7 3 2 1"}, {"tarvel_3.2.1", "7 3 2 1"}, {"3.2.1-beta", "7 3 2 1"}, {"..", "7"},
      {"3.2.1(x)", "7 3 2 1"}, {"(3.2.1", "7 3 2 1"}, {"a-3.2.1_4", "7 3 2 1"}, {" 3.2.1-5", "7 5"},
      {"V3.2.1", "7 0 2 1"}, {"1..2.3", "7 1 2 3"}, {"a( -3. 2x.+1. ", "7 -3 2 1"}, {"7-a.b.c", "7 7"},
      {"4294967297.2147483648.1", "7 1 -2147483648 1"}, {"3.2", "7 irregular"}, {"", "7 irregular"}};
  // clang-format on
  for (const auto& [text, expected] : rows) {
    std::vector<int> parts{7};
    const bool regular = TarvelVersion::analyze_version(text, parts);
    std::string got;
    for (const int part : parts) got += (got.empty() ? "" : " ") + std::to_string(part);
    EXPECT_EQ(got + (regular ? "" : " irregular"), expected) << text;
    EXPECT_EQ(TarvelVersion(text).is_regular_ver(), regular) << text;
  }
}

TEST(TarvelVersion, ComparesByTheFirstDifference) {
  // Which of ==, !=, <, <=, >, >= hold, in this order.
  const char* rows[][3] = {{"tarvel_3.2.1", "03.2.1", "100101"}, {"3.2", "x", "100101"},
                           {"3.2", "3.2.1", "010011"},           {"3.2.1", "3.2", "010011"},
                           {"3.2.1", "3.10.0", "011100"},        {"3.10.0", "3.2.1", "010011"},
                           {"3.2.1.9", "3.2.2", "011100"},       {"3.2.2", "3.2.1.9", "010011"},
                           {"3.2.0", "3.2.0.0", "010011"},       {"3.2.0.0", "3.2.0", "010011"}};
  for (const auto& [left, right, expected] : rows) {
    const TarvelVersion a(left), b(right);
    std::string holds;
    for (bool is : {a == b, a != b, (a < b), a <= b, (a > b), a >= b}) holds += is ? '1' : '0';
    EXPECT_EQ(holds, expected) << left << " and " << right;
  }
}
