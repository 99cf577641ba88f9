#include "support/sandbox.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

// The ground that other tests stand on: what it promises must hold, or they prove nothing.

TEST(Sandbox, FailuresInsideAreTheCallersFailures) {
  EXPECT_NONFATAL_FAILURE(sandbox::run([] { EXPECT_EQ(1, 2) << "told apart"; }), "told apart");
  EXPECT_NONFATAL_FAILURE(sandbox::run([] { std::abort(); }), "died");
  EXPECT_NONFATAL_FAILURE(sandbox::run([] { throw std::runtime_error("thrown"); }), "thrown");
  EXPECT_NONFATAL_FAILURE(sandbox::run([] { ::pause(); }, {1, true}), "in time");
}

TEST(Sandbox, ChangesStayInside) {
  const bool had_marker = std::filesystem::exists("/etc/utility-sandbox-marker");
  std::string scratch;
  sandbox::run([] {
    EXPECT_LT(::getpid(), 10) << "process numbers of its own";
    sandbox::write_file("/etc/utility-sandbox-marker", "x");
    sandbox::bind_content("/proc/meminfo", "MemTotal: 7 kB\n");
    EXPECT_EQ(sandbox::read_file("/proc/meminfo"), "MemTotal: 7 kB\n");
    sandbox::make_private("/usr/sbin");
    sandbox::stand_in("/usr/sbin/utility-no-such-tool", 3);
    EXPECT_EQ(WEXITSTATUS(std::system("/usr/sbin/utility-no-such-tool a 'b  c'")), 3);
    EXPECT_EQ(sandbox::recorded_calls(), std::vector<std::string>{"utility-no-such-tool a b  c"});
    sandbox::record_shell(true);
    EXPECT_EQ(WEXITSTATUS(std::system("exit  4")), 4);
    EXPECT_EQ(sandbox::shell_commands(), std::vector<std::string>{"exit  4"});
  });
  EXPECT_FALSE(had_marker);
  EXPECT_FALSE(std::filesystem::exists("/etc/utility-sandbox-marker"));
  EXPECT_FALSE(std::filesystem::exists("/usr/sbin/utility-no-such-tool"));
  EXPECT_FALSE(std::filesystem::exists(sandbox::scratch()));
}
