#include <gtest/gtest.h>

#include <climits>

#include "utility/CDump.h"
#include "utility/CTime.h"
#include "utility/TarvelVersion.h"

using utility::CDump, utility::CTime, utility::TarvelVersion;

// What is printed, after a look at what goes into buffers of every size.
static std::string dumped(std::string data, unsigned long width = CDump::getmaxline()) {
  CDump::setmaxline(width);
  testing::internal::CaptureStdout();
  CDump::dump(data.data(), data.size());
  const std::string whole = testing::internal::GetCapturedStdout();
  for (std::size_t size = 0; size < whole.size() + 3; ++size) {
    std::string out(size + 1, '~');
    EXPECT_EQ(CDump::sndump(out.data(), size, data.data(), data.size()), 0);
    EXPECT_EQ(out.c_str(), size == 0 ? "~" : whole.substr(0, size - 1)) << "room for " << size;
    EXPECT_EQ(out.back(), '~');
  }
  return whole;
}

TEST(CDump, LaysOutLines) {
  EXPECT_EQ(dumped({'A', 0, 127, -1}), "41 00 7F FF " + std::string(36, ' ') + " A . . . \n");
  EXPECT_EQ(dumped("01 ~", 2), "30 31  0 1 \n20 7E  . ~ \n       \n");
  EXPECT_EQ(dumped("endless", 0), " \n");
}

TEST(CDump, Refuses) {
  char data[] = "kept";
  EXPECT_EQ(CDump::fdump(nullptr, data, 1), 1);
  EXPECT_EQ(CDump::dump(nullptr, 0), 1);
  EXPECT_EQ(CDump::sndump(nullptr, 5, data, 1), 1);
  EXPECT_EQ(CDump::sndump(data, 5, nullptr, 1), 1);
  CDump::setmaxline(-1UL / 3 + 1);  // the size of its buffers would wrap to a few bytes
  EXPECT_EQ(CDump::sndump(data, 5, data, 1), 2);
  EXPECT_STREQ(data, "kept");
}

TEST(CTime, FormatsIntoTheRoomGiven) {
  char format[] = "%F %T";
  char out[64] = "kept";
  for (int zone : {2, -1}) EXPECT_EQ(CTime::chtm_base(0, zone, format, out, 64), nullptr) << zone;
  EXPECT_EQ(CTime::chtm_base(LONG_MAX, 0, format, out, 64), nullptr) << "a year beyond int";
  EXPECT_EQ(CTime::chtm_base(0, 1, nullptr, out, 64), nullptr);
  EXPECT_EQ(CTime::chtm_base(0, 1, format, nullptr, 64), nullptr);
  EXPECT_STREQ(out, "kept");
  for (int size : {19, 0, -1}) EXPECT_EQ(CTime::chtm_base(0, 1, format, out, size), nullptr);
  ::setenv("TZ", "ABC-5:30", 1);
  EXPECT_STREQ(CTime::chtm_base(1000000000, 1, format, out, 20), "2001-09-09 01:46:40");
  EXPECT_STREQ(CTime::chtm_base(1000000000, 0, format, out, 64), "2001-09-09 07:16:40");
  ::setenv("TZ", "DEF+1", 1);  // counts from now on
  EXPECT_STREQ(CTime::get_local_time_yyyymmdd(3599, out, 11), "1969-12-31");
  EXPECT_STREQ(CTime::get_local_time_all(3599, out, 64), "Wed Dec 31 23:59:59 1969");
  EXPECT_STREQ(CTime::get_local_time_4_mysql(3599, out, 64), "1969-12-31 23:59:59");
  CTime::TimeSeg seg{};
  CTime::time_2_seg(-183845, &seg);
  EXPECT_EQ(std::tie(seg.days, seg.hours, seg.minutes, seg.seconds), std::tuple(-2, -3, -4, -5));
}

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
