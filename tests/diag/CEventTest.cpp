#include "utility/CEvent.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <fstream>
#include <thread>

#include "support/alloc_fault.h"

using utility::CEvent;

TEST(CEvent, StaysSetUntilReleased) {
  using std::chrono::system_clock;
  const auto second_now = [] { return system_clock::to_time_t(system_clock::now()); };
  CEvent event;
  event.signal();
  EXPECT_EQ(event.wait(-1), -1) << "not ready";
  for (std::size_t allowed : {0, 1}) {
    const AllocFault fault(allowed);
    EXPECT_FALSE(event.init() || event.is_valid());
  }
  for (int round = 0; round < 2; ++round, event.release()) {
    ASSERT_TRUE(event.init() && event.is_valid());
    EXPECT_EQ(event.wait(1), 1);  // a second begins
    const std::time_t start = second_now();
    const std::clock_t busy = std::clock();
    EXPECT_EQ(event.wait(0), 1);
    EXPECT_EQ(second_now(), start);
    EXPECT_EQ(event.wait(1500), 1);
    EXPECT_EQ(second_now(), start + 2);
    EXPECT_LT(std::clock() - busy, CLOCKS_PER_SEC / 4) << "asleep meanwhile";
    event.signal();
    EXPECT_TRUE(event.init()) << "ready already";
    for (const int ms : {0, -1, 1, INT_MAX, INT_MIN}) EXPECT_EQ(event.wait(ms), 0) << ms;
  }
}

TEST(CEvent, ASignalWakesOneWaiter) {
  for (const int ms : {-1, INT_MAX, 4000}) {
    CEvent event;
    ASSERT_TRUE(event.init());
    std::atomic<int> woken{0};
    std::vector<std::thread> waiters;
    for (std::string state; waiters.size() < (ms == 4000 ? 8 : 1); state.clear()) {
      std::atomic<int> id{0};
      waiters.emplace_back([&] { id = ::gettid(), woken += event.wait(ms) == 0 ? 1 : 0; });
      while (state != "S") {  // asleep
        std::ifstream("/proc/self/task/" + std::to_string(id) + "/stat") >> state >> state >> state;
      }
    }
    event.signal();
    for (std::thread& waiter : waiters) waiter.join();
    EXPECT_EQ(woken, 1);
  }
}
