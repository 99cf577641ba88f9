#include "utility/CTime.h"

#include <gtest/gtest.h>

#include <climits>

using utility::CTime;

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
