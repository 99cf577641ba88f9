#include "utility/CDiyLog.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <iomanip>
#include <thread>

#include "support/sandbox.h"

using std::filesystem::file_size, std::filesystem::resize_file;

struct CDiyLog : testing::Test {
  const std::string path = "log";
  utility::CDiyLog log;
};

TEST_F(CDiyLog, CutsMessagesAndRestartsTheFileAtTheirBounds) {
  ASSERT_TRUE(log.init(path, 0));
  std::uintmax_t size = 0;
  for (const int bound : {512, 1024, 1536, 5120, 1000448, 1999 * 512}) {
    for (int length = bound - 3; length <= bound + 1; ++length) {
      log.write_log("%*d", length, 1);
      int buffer = 512;  // tried one after the other
      while (length >= buffer && buffer <= 1999 * 512) buffer += 512;
      size += static_cast<unsigned>(buffer > 1999 * 512 ? 510 : std::min(length, buffer - 2)) + 24;
      EXPECT_EQ(file_size(path), size) << length;
    }
  }
  const std::uintmax_t sizes[][2] = {{10485734, 10485759}, {10485759, 0}, {0, 25}, {10485735, 0}};
  for (const auto& [before, after] : sizes) {
    resize_file(path, before);  // grown by another
    log.write_log("x");
    EXPECT_EQ(file_size(path), after) << before;
  }
}

TEST_F(CDiyLog, StampsEveryLine) {
  ::setenv("TZ", "ABC-5:30", 1);
  for (const std::string& id : {std::string(), "[" + std::to_string(::getpid()) + ",0] "}) {
    utility::CDiyLog stamped;
    ASSERT_TRUE(stamped.init(path, id.empty() ? 3 : 6));
    std::ostringstream expected;
    for (std::time_t second = std::time(nullptr) + 1, end = second + 2; second < end; ++second) {
      while (std::time(nullptr) < second) ::usleep(1000);
      stamped.write_log("%d", 7);
      expected << id << std::put_time(std::localtime(&second), "%Y/%m/%d %T    7\n");
    }
    EXPECT_EQ(sandbox::read_file("log"), expected.str());
  }
}

TEST_F(CDiyLog, OpensOnceAndAppends) {
  EXPECT_FALSE(log.init(".", 0));
  EXPECT_FALSE(log.init(sandbox::write_file("log", "old\n"), 0)) << "not even after a failure";
  log.write_log("dropped");
  utility::CDiyLog second;
  ASSERT_TRUE(second.init(path, 0));
  EXPECT_FALSE(second.init("other", 6));
  second.write_log("new");
  EXPECT_EQ(sandbox::read_file("log").erase(4, 23), "old\nnew\n");
}

TEST_F(CDiyLog, DropsLinesOnceTheDiskWasFull) {
  ASSERT_EQ(::mount("tmpfs", "/mnt", "tmpfs", 0, "size=64k"), 0);
  ASSERT_TRUE(log.init("/mnt/log", 0));
  EXPECT_NE(std::system("ls -l /proc/self/fd | grep -q /log"), 0) << "passed on to a program";
  for (int line = 0; line < 100; ++line) log.write_log("%04000d", line);
  resize_file("/mnt/log", 0);
  log.write_log("room again");
  EXPECT_EQ(file_size("/mnt/log"), 0U);
}

TEST_F(CDiyLog, ThreadsAndProcessesKeepLinesWhole) {
  const pid_t child = ::fork();
  log.init(path, 0);
  std::vector<std::thread> threads;
  for (char name = child == 0 ? 'a' : 'e'; threads.size() < 4; ++name) {
    threads.emplace_back([this, name] {
      for (std::size_t i = 1; i < 2000; i += 4) log.write_log("%s", std::string(i, name).c_str());
    });
  }
  for (std::thread& thread : threads) thread.join();
  if (child == 0) ::_exit(0);
  ::waitpid(child, nullptr, 0);
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    EXPECT_EQ(line.substr(23), std::string((line.size() - 23) / 4 * 4 + 1, line.back()));
  }
  EXPECT_EQ(file_size(path), 8 * 500 * (24 + (1 + 1997) / 2));
}
