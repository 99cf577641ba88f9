#include "utility/CTime.h"

#include <gtest/gtest.h>

#include <climits>

using utility::CTime;

// What chtm_base writes, or "refused" for null.
static std::string text(long t, int zone, std::string format, int size = 64) {
  char out[64];
  return CTime::chtm_base(t, zone, format.data(), out, size) == out ? out : "refused";
}

TEST(CTime, FormatsIntoTheRoomGiven) {
  ::setenv("TZ", "XXX-5:30", 1);
  EXPECT_EQ(text(1000000000, 1, "%F %T"), "2001-09-09 01:46:40");
  EXPECT_EQ(text(1000000000, 0, "%F %T"), "2001-09-09 07:16:40");
  for (const int size : {10, 0, -1}) EXPECT_EQ(text(0, 1, "%F", size), "refused") << size;
  for (const int zone : {2, -1}) EXPECT_EQ(text(0, zone, "%F"), "refused") << zone;
  EXPECT_EQ(text(LONG_MAX, 0, "%F"), "refused") << "a year beyond int";
  char out[64] = "kept";
  EXPECT_EQ(CTime::chtm_base(0, 1, nullptr, out, 64), nullptr);
  EXPECT_EQ(CTime::get_local_time_all(0, nullptr, 64), nullptr);
  EXPECT_STREQ(out, "kept");
  ::setenv("TZ", "YYY+1", 1);  // counts from now on
  EXPECT_STREQ(CTime::get_local_time_yyyymmdd(3599, out, 11), "1969-12-31");
  EXPECT_STREQ(CTime::get_local_time_all(3599, out, 64), "Wed Dec 31 23:59:59 1969");
  EXPECT_STREQ(CTime::get_local_time_4_mysql(3599, out, 64), "1969-12-31 23:59:59");
  CTime::TimeSeg seg{};
  CTime::time_2_seg(-183845, &seg);
  EXPECT_EQ(std::tie(seg.days, seg.hours, seg.minutes, seg.seconds), std::tuple(-2, -3, -4, -5));
}
