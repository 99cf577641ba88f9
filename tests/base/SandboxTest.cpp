#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

// The ground that other tests stand on, seen from outside.

static int in_sandbox(const std::string& script) {
  const int status = std::system((LAUNCHER " bash -c '" + script + "'").c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Sandbox, KeepsChangesInsideAndEndsAsTheCommandEnds) {
  for (const std::string dir : {"/etc", "/usr/sbin", "/var/log", "/run"}) {
    const std::string mark = dir + "/utility-test-mark";
    EXPECT_EQ(in_sandbox("echo x > " + mark + " && [ -s " + mark + " ] && exit 7"), 7) << dir;
    EXPECT_NE(::unlink(mark.c_str()), 0) << dir;
  }
  EXPECT_EQ(in_sandbox("[ $$ -lt 30 ] && ip -br link | grep -vc ^lo"), 1) << "its own only";
  EXPECT_EQ(in_sandbox("kill -9 $$"), 128 + 9);
  ASSERT_EQ(in_sandbox("sleep 47111 >/dev/null & exit 0"), 0);
  EXPECT_NE(std::system("pgrep -xf 'sleep 47111'"), 0) << "left running";
}

TEST(Sandbox, TestsRefuseToRunOutside) {
  const std::string quiet = "--gtest_brief=1";
  EXPECT_EXIT(::execl(SANDBOXED, SANDBOXED, quiet.c_str(), nullptr), testing::ExitedWithCode(2),
              "tests/support/sandbox");
}
