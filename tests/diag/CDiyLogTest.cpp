#include "utility/CDiyLog.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <cstring>
#include <set>
#include <thread>

#include "support/alloc_fault.h"
#include "support/sandbox.h"
#include "support/temp_dir.h"

using std::filesystem::file_size, std::filesystem::resize_file;

class CDiyLog : public testing::Test {
 protected:
  // The messages in the log; date, time and four blanks are 23 bytes.
  std::vector<std::string> messages() const {
    std::ifstream lines(path);
    std::vector<std::string> found;
    for (std::string line; std::getline(lines, line);) found.push_back(line.substr(23));
    return found;
  }

  const TempDir dir;
  const std::string path = dir / "log";
  utility::CDiyLog log;
};

TEST_F(CDiyLog, CutsMessagesAtTheirBufferBounds) {
  ASSERT_TRUE(log.init(path, 0));
  std::vector<std::string> expected;
  for (const int bound : {512, 1024, 1536, 5120, 1000448, 1999 * 512}) {
    for (int length = bound - 3; length <= bound + 1; ++length) {
      log.write_log("%*d", length, 1);
      int buffer = 512;  // tried one after the other
      while (length >= buffer && buffer <= 1999 * 512) buffer += 512;
      const int kept = buffer > 1999 * 512 ? 510 : std::min(length, buffer - 2);
      expected.push_back(std::string(length - 1, ' ').append("1").substr(0, kept));
    }
  }
  const AllocFault fault(0);
  log.write_log("%5000d", 1);
  expected.emplace_back(510, ' ');
  EXPECT_TRUE(messages() == expected);
}

TEST_F(CDiyLog, StampsEveryLine) {
  ::setenv("TZ", "XXX-5:30", 1);
  for (const char* id : {"", "[%d,0] "}) {
    utility::CDiyLog stamped;
    ASSERT_TRUE(stamped.init(path, *id == '\0' ? 3 : 6));
    char expected[128] = "";
    for (std::time_t second = std::time(nullptr) + 1, end = second + 2; second < end; ++second) {
      while (std::time(nullptr) < second) ::usleep(1000);
      stamped.write_log("%d", 7);
      std::sprintf(expected + std::strlen(expected), id, ::getpid());
      std::strftime(expected + std::strlen(expected), 64, "%Y/%m/%d %T    7\n",
                    std::localtime(&second));
    }
    EXPECT_EQ(dir.read("log"), expected);
  }
}

TEST_F(CDiyLog, OpensOnceAndAppends) {
  dir.write("log", std::string(23, '-') + "old\n");
  ASSERT_TRUE(log.init(path, 0));
  EXPECT_FALSE(log.init(dir / "other", 6));
  log.write_log("a%cb", 0);
  log.write_log(std::string("%600s%m").c_str(), ((errno = EIO), ""));
  EXPECT_EQ(messages(),
            (std::vector<std::string>{"old", "a", std::string(600, ' ') + "Input/output error"}));
  utility::CDiyLog failed;
  EXPECT_FALSE(failed.init(dir.path(), 0));
  EXPECT_FALSE(failed.init(dir / "other", 0));
  failed.write_log("dropped");
  EXPECT_FALSE(std::filesystem::exists(dir / "other"));
}

TEST_F(CDiyLog, RestartsAtTenMebibytes) {
  ASSERT_TRUE(log.init(path, 0));
  const std::uintmax_t sizes[][2] = {{10485734, 10485759}, {10485759, 0}, {0, 25}, {10485735, 0}};
  for (const auto& [before, after] : sizes) {
    resize_file(path, before);  // grown by another
    log.write_log("x");
    EXPECT_EQ(file_size(path), after);
  }
}

TEST_F(CDiyLog, DropsLinesOnceTheDiskWasFull) {
  sandbox::run([this] {
    ASSERT_EQ(::mount("tmpfs", dir.path().c_str(), "tmpfs", 0, "size=64k"), 0);
    ASSERT_TRUE(log.init(path, 0));
    EXPECT_NE(std::system("ls -l /proc/self/fd | grep -q /log"), 0) << "passed on to a program";
    for (int line = 0; line < 100; ++line) log.write_log("%04000d", line);
    resize_file(path, 0);
    log.write_log("room again");
    EXPECT_EQ(file_size(path), 0U);
  });
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
  const std::vector<std::string> lines = messages();
  EXPECT_EQ(std::set(lines.begin(), lines.end()).size(), 4000U);
  for (const auto& line : lines) EXPECT_EQ(line, std::string(line.size() / 4 * 4 + 1, line[0]));
}
