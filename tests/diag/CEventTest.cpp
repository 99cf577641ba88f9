#include "utility/CEvent.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <ctime>
#include <fstream>
#include <future>
#include <string>
#include <vector>

using utility::CEvent, std::chrono::system_clock;

TEST(CEvent, StaysSetUntilReleased) {
  CEvent event;
  event.signal();
  EXPECT_EQ(event.wait(-1), -1) << "not ready";
  for (int round = 0; round < 2; ++round, event.release()) {
    ASSERT_TRUE(event.init() && event.is_valid());
    EXPECT_EQ(event.wait(1), 1);  // a second begins
    const auto second = std::chrono::floor<std::chrono::seconds>(system_clock::now());
    ::usleep(500'000);  // to its middle
    const std::clock_t busy = std::clock();
    EXPECT_EQ(event.wait(0), 1);
    EXPECT_EQ(event.wait(1500), 1);
    EXPECT_EQ((system_clock::now() - second) / std::chrono::milliseconds(500), 4);
    EXPECT_LT(std::clock() - busy, CLOCKS_PER_SEC / 4) << "asleep meanwhile";
    event.signal();
    EXPECT_TRUE(event.init()) << "ready already";
    for (const int ms : {0, -1, 1, INT_MAX, INT_MIN}) EXPECT_EQ(event.wait(ms), 0) << ms;
  }
}

TEST(CEvent, ASignalWakesOneWaiter) {
  for (const int ms : {-1, INT_MAX, 4000}) {
    CEvent event;
    event.init();
    std::vector<std::future<int>> waits(ms == 4000 ? 8 : 1);
    for (auto& wait : waits) {
      std::atomic<int> id{0};
      wait = std::async(std::launch::async, [&] { return id = ::gettid(), event.wait(ms); });
      for (std::string state; state != "S";) {  // until it sleeps
        std::ifstream("/proc/self/task/" + std::to_string(id) + "/stat") >> state >> state >> state;
      }
    }
    event.signal();
    const auto woken = [](std::future<int>& wait) { return wait.get() == 0; };
    EXPECT_EQ(std::count_if(waits.begin(), waits.end(), woken), 1);
  }
}
