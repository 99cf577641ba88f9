#include "utility/CDump.h"

#include <gtest/gtest.h>

#include "support/alloc_fault.h"

using utility::CDump;

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
  for (std::size_t allowed : {0U, 1U, 2U}) {
    if (allowed == 2) CDump::setmaxline(-1UL / 3 + 1);  // its buffers' sizes wrap to a few bytes
    const AllocFault fault(allowed);
    EXPECT_EQ(CDump::sndump(data, 5, data, 1), 2);
  }
  EXPECT_STREQ(data, "kept");
}
