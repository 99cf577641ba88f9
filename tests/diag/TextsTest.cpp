#include <gtest/gtest.h>

#include <climits>

#include "support/cases.h"
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

TEST(TarvelVersion, NumbersAndOrder) {
  const auto version = [](const Case& row) {
    std::vector<int> parts{7}, expected{7};
    for (const auto& part : row.all("part")) expected.push_back(std::stoi(part));
    row.expect("regular", TarvelVersion::analyze_version(row["text"], parts));
    row.expect("regular", TarvelVersion(row["text"]).is_regular_ver());
    EXPECT_EQ(parts, expected);
  };
  const auto order = [](const Case& row) {
    const TarvelVersion a(row["left"]), b(row["right"]);
    const bool equal = row["is"] == "equal", before = row["is"] == "before";
    EXPECT_TRUE((a == b) == equal && (a != b) == !equal && (a < b) == before &&
                (a >= b) == !before);
    EXPECT_TRUE((a <= b) == (before || equal) && (a > b) == !(before || equal));
  };
  for_each_case(FIXTURES "/versions.txt", {{"version", version}, {"order", order}});
}
