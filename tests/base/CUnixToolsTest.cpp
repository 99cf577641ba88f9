#include "utility/CUnixTools.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>

#include "support/cases.h"
#include "support/child.h"
#include "support/sandbox.h"
#include "utility/CUnixFile.h"

namespace fs = std::filesystem;
using utility::CUnixFile;
using utility::CUnixTools;

TEST(CUnixTools, FilesAndCommands) {
  using T = CUnixTools;
  const auto permission = [](const char* path) {
    std::ostringstream text;
    text << std::oct << T::read_file_permission(path);
    return text.str();
  };
  ::umask(027);
  run_cases(FIXTURES "/tools.txt", {{"file_type", call(T::file_type)},
                                    {"file_is_exist", call(T::file_is_exist)},
                                    {"is_exist_dir", call(T::is_exist_dir)},
                                    {"read_file_permission", call(permission)},
                                    {"create_file", call(T::create_file)},
                                    {"mkdir_parents", call(T::mkdir_parents)},
                                    {"copy_regular_file", call(T::copy_regular_file)},
                                    {"copy_file", call(T::copy_file)},
                                    {"copy_directory", call(T::copy_directory)},
                                    {"move_file", call(T::move_file)},
                                    {"rm_file", call(T::rm_file)},
                                    {"rm_dir", call(T::rm_dir)},
                                    {"exec_cmd", call(T::exec_cmd)},
                                    {"exec_cmd_results", call(T::exec_cmd_results)}});
}

TEST(CUnixTools, ALeasedSourceIsWaitedFor) {
  sandbox::write_file("source", "content");
  const pid_t holder = start_child("", [] {
    ::signal(SIGIO, [](int) { ::_exit(0); });  // asked to let go
    const int fd = ::open("source", O_RDWR);
    if (::fcntl(fd, F_SETLEASE, F_WRLCK) != 0) ::_exit(1);
  });
  EXPECT_EQ(CUnixTools::move_file("source", "target", false), 0);
  EXPECT_EQ(sandbox::read_file("target"), "content");
  int status = -1;
  ::waitpid(holder, &status, 0);
  EXPECT_EQ(status, 0) << "the lease was broken";
}

// While an entry becomes a link out of the tree and back, nothing outside is touched.
TEST(CUnixTools, SwappedEntriesLeadNowhere) {
  fs::create_directories("outside/precious");
  const pid_t swapper = ::fork();
  if (swapper == 0)
    for (;;) ::renameat2(AT_FDCWD, "tree/entry", AT_FDCWD, "spare", RENAME_EXCHANGE);
  const std::function<void()> operations[] = {[] { CUnixTools::rm_dir("tree"); },
                                              [] { CUnixFile::delete_item("tree", true); },
                                              [] { CUnixTools::copy_directory("tree", "copy"); }};
  for (int round = 0; round < 300; ++round) {
    std::error_code swapped;
    fs::remove_all("tree", swapped);
    fs::remove_all("spare", swapped);
    fs::create_directories("tree/entry/sub", swapped);
    fs::create_symlink("../outside", "spare", swapped);
    operations[round % 3]();
  }
  ::kill(swapper, SIGKILL);
  ::waitpid(swapper, nullptr, 0);
  EXPECT_TRUE(fs::exists("outside/precious"));
  EXPECT_FALSE(fs::exists("copy/entry/precious"));
}

// Entries whose paths are cut to the directory itself or to its parent must not be descended into.
TEST(CUnixTools, CutPathsNeverLeadBack) {
  for (std::size_t length = 252; length <= 255; ++length) {
    const std::string deep = std::string(100, 'a') + "/" + std::string(length - 101, 'b');
    fs::create_directories(deep + "/..hidden/inner");
    EXPECT_EQ(CUnixTools::rm_dir(deep.c_str()), 11) << length;
    EXPECT_TRUE(fs::exists(deep + "/..hidden")) << length;
    fs::remove_all(deep);
  }
  // The same for copies, at their own limit: the walk ends.
  std::string source = "s";
  while (source.size() < 1023 - 210) source += "/" + std::string(200, 's');
  source += "/" + std::string(1022 - source.size(), 't');
  ASSERT_EQ(CUnixTools::mkdir_parents(source + "/sub", 0755), 0);
  EXPECT_EQ(CUnixTools::copy_directory(source.c_str(), "copy"), 1);
}

TEST(CUnixTools, ClockAndIdentity) {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  const auto seconds = static_cast<unsigned long>(now.tv_sec);
  EXPECT_GE(CUnixTools::GetTickCount(), seconds * 1000);
  EXPECT_LE(CUnixTools::GetTickCount(), (seconds + 60) * 1000);

  Words tools;
  ASSERT_EQ(CUnixTools::exec_cmd_results("date '+%Y-%m-%d %H:%M:%S'; id -nu", tools, 64), 0);
  ASSERT_EQ(tools.size(), 2U);
  const std::string text = CUnixTools::get_time_now();
  EXPECT_EQ(text.size(), tools[0].size());
  EXPECT_LE(tools[0], text);
  EXPECT_EQ(CUnixTools::get_process_user(), tools[1]);
  EXPECT_EQ(CUnixTools::get_process_path(::getpid()), fs::read_symlink("/proc/self/exe"));
  EXPECT_EQ(CUnixTools::get_process_path(-1), "");
  ASSERT_EQ(::setuid(54321), 0);
  EXPECT_EQ(CUnixTools::get_process_user(), "") << "an id without an entry";
}
