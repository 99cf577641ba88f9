#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "support/cases.h"
#include "utility/utility.h"

using utility::CDump, utility::CEvent, utility::CTime, utility::TarvelVersion;

TEST(CDiyLog, Lines) {
  const auto fresh = [] {
    const auto log = std::make_shared<utility::CDiyLog>();
    std::filesystem::remove("log");
    return Calls{{"init", call([log](const char* path, unsigned long flags) {
                    return log->init(path, flags);
                  })},
                 {"write_log", call([log](const char* text) { log->write_log("%s", text); })},
                 {"set_zone", call([](const char* zone) { ::setenv("TZ", zone, 1); })}};
  };
  run_cases(FIXTURES "/log.txt", fresh);
}

TEST(CDiyLog, ThreadsAndProcessesKeepLinesWhole) {
  utility::CDiyLog log;
  const pid_t child = ::fork();
  log.init("log", 0);
  std::vector<std::thread> threads;
  for (char name = child == 0 ? 'a' : 'e'; threads.size() < 4; ++name) {
    threads.emplace_back([&log, name] {
      for (std::size_t i = 1; i < 2000; i += 4) log.write_log("%s", std::string(i, name).c_str());
    });
  }
  for (std::thread& thread : threads) thread.join();
  if (child == 0) ::_exit(0);
  ::waitpid(child, nullptr, 0);
  std::ifstream file("log");
  for (std::string line; std::getline(file, line);) {
    EXPECT_EQ(line.substr(23), std::string((line.size() - 23) / 4 * 4 + 1, line.back()));
  }
  EXPECT_EQ(std::filesystem::file_size("log"), 8 * 500 * (24 + (1 + 1997) / 2));
}

TEST(CEvent, StaysSetUntilReleased) {
  const auto fresh = [] {
    const auto event = std::make_shared<CEvent>();
    return Calls{{"init", call([event] { return event->init(); })},
                 {"is_valid", call([event] { return event->is_valid(); })},
                 {"wait", call([event](int ms) { return event->wait(ms); })},
                 {"signal", call([event] { event->signal(); })},
                 {"release", call([event] { event->release(); })}};
  };
  run_cases(FIXTURES "/event.txt", fresh);
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

TEST(CDump, LaysOutLinesOrRefuses) {
  EXPECT_EQ(dumped({'A', 0, 127, -1}), "41 00 7F FF " + std::string(36, ' ') + " A . . . \n");
  EXPECT_EQ(dumped("01 ~", 2), "30 31  0 1 \n20 7E  . ~ \n       \n");
  EXPECT_EQ(dumped("0", 1), "30  0 \n    \n");
  EXPECT_EQ(dumped("endless", 0), " \n");
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
  const auto analyze = [](const std::string& text) {
    std::vector<int> parts{7};
    Words told = texts(TarvelVersion::analyze_version(text, parts));
    for (const int part : parts) tell(told, part);
    return told;
  };
  const auto operators = [](const std::string& left, const std::string& right) {
    const TarvelVersion a(left), b(right);
    const std::pair<bool, const char*> all[] = {{a == b, " =="}, {a != b, " !="}, {a < b, " <"},
                                                {a > b, " >"},   {a <= b, " <="}, {a >= b, " >="}};
    std::string text;
    for (const auto& [holds, name] : all) text += holds ? name : "";
    return text.substr(1);
  };
  const auto is_regular = [](const std::string& text) {
    return TarvelVersion(text).is_regular_ver();
  };
  run_cases(FIXTURES "/versions.txt", {{"analyze_version", call(analyze)},
                                       {"operators", call(operators)},
                                       {"is_regular", call(is_regular)}});
}
