#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <algorithm>
#include <filesystem>
#include <thread>

#include "support/child.h"
#include "support/sandbox.h"
#include "utility/CUnixProc.h"

namespace fs = std::filesystem;
using Unix = utility::CUnixProc;

static std::vector<int> pids_of(const std::string& name) {
  std::vector<int> pids;
  Unix::ProcFilterCtx filter{&name, &pids};
  EXPECT_EQ(Unix::get_all_proc_data(Unix::filter_procs_by_procname, &filter), 0);
  return pids;
}

TEST(CUnixProc, KillProcesses) {
  for (const int pid : {0, -5}) EXPECT_EQ(Unix::kill_proc(pid), 1);
  EXPECT_EQ(Unix::kill_proc(99999), 4);
  EXPECT_EQ(Unix::kill_proc_tree("nobody-is-called-so"), 0);
  // Nobody reaps these: zombies do not keep the call. Names are longer than the program's.
  const pid_t victim = start_child("the-victim");
  const pid_t other = start_child("the-victims");
  EXPECT_EQ(Unix::kill_proc_tree("the-victim"), 0);
  EXPECT_TRUE(was_killed(victim) && ::waitpid(other, nullptr, WNOHANG) == 0);

  const auto is_zombie = [](pid_t pid) {
    return sandbox::read_file(proc_path(pid, "status")).find("State:\tZ") != std::string::npos;
  };
  const pid_t headless = start_child("the-headless", [&] {
    std::thread([&] {
      while (!is_zombie(::getpid())) std::this_thread::yield();
      ::close_range(3, ~0U, 0);  // which tells the starter
      for (;;) ::pause();
    }).detach();
    ::syscall(SYS_exit, 0);
  });
  EXPECT_EQ(Unix::kill_proc_tree("the-headless"), 0);
  EXPECT_TRUE(was_killed(headless)) << "its first thread had ended, another had not";

  start_child("supervisor", [] {
    std::thread([first = start_child("restarted")] {
      ::waitid(P_PID, static_cast<id_t>(first), nullptr, WEXITED | WNOWAIT);
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
      start_child("restarted");
    }).detach();
  });
  EXPECT_EQ(Unix::kill_proc_tree("restarted"), 0);
  const std::vector<int> dead = pids_of("restarted");
  EXPECT_EQ(std::count_if(dead.begin(), dead.end(), is_zombie), 2);

  fs::copy_file("/bin/sleep", "/etc/tool");
  const pid_t by_path = start_child("", [] { ::execl("/etc/tool", "sleep", "60", nullptr); });
  const pid_t by_cmd = start_child("", [] { ::execl("/bin/sleep", "/etc/tool", "60", nullptr); });
  EXPECT_EQ(Unix::kill_proc_tree("/etc/tool"), 0);
  EXPECT_TRUE(was_killed(by_path) && was_killed(by_cmd));

  const pid_t parent =
      start_child("", [] { start_child("", [] { start_child("the-grandchild"); }); });
  EXPECT_EQ(Unix::kill_proc_tree(parent), 0);
  EXPECT_TRUE(was_killed(parent));
  EXPECT_EQ(pids_of("the-grandchild").size(), 1U);
}
