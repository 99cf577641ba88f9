#include "utility/CUnixTools.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>

#include "support/cases.h"
#include "support/open_descriptors.h"
#include "support/sandbox.h"
#include "utility/CUnixFile.h"

namespace fs = std::filesystem;
using utility::CUnixFile;
using utility::CUnixTools;
using Lines = std::vector<std::string>;

namespace {

// Paths are below the test's own directory.
struct CUnixToolsFiles : ::testing::Test {
  CUnixToolsFiles() { fs::current_path(sandbox::scratch()); }
};

}  // namespace

TEST_F(CUnixToolsFiles, TypesAndExistence) {
  sandbox::write_file("file", "x");
  ::chmod("file", 04751);
  ::mkfifo("fifo", 0600);
  fs::create_symlink("file", "link");
  fs::create_symlink("nothing", "dangling");
  fs::create_symlink(".", "dirlink");
  for_each_case(FIXTURES "/types.txt",
                {{"file", [](const Case& row) {
                    const std::string name = row["name"];
                    const char* const path = name == "null" ? nullptr : name.c_str();
                    row.expect("type", CUnixTools::file_type(path));
                    row.expect("exists", CUnixTools::file_is_exist(path));
                    row.expect("is_dir", CUnixTools::is_exist_dir(path));
                    row.expect("mode",
                               static_cast<long long>(CUnixTools::read_file_permission(path)));
                  }}});
}

TEST_F(CUnixToolsFiles, AreCreatedWithTheirDirectories) {
  ::umask(027);
  sandbox::write_file("full", "content");
  EXPECT_EQ(CUnixTools::create_file("new", 0666), 0);
  EXPECT_EQ(CUnixTools::read_file_permission("new"), 0100640U);
  EXPECT_EQ(CUnixTools::create_file("full", 0666), 3);
  EXPECT_EQ(sandbox::read_file("full"), "content");
  EXPECT_EQ(CUnixTools::create_file("no/such", 0666), 7);
  EXPECT_EQ(CUnixTools::create_file(nullptr, 0600), 7);
  EXPECT_EQ(CUnixTools::mkdir_parents(sandbox::scratch() + "/" + "a//b/c/", 0777), 0);
  EXPECT_EQ(CUnixTools::read_file_permission("a/b/c"), 0040750U);
  EXPECT_EQ(CUnixTools::mkdir_parents("a/b", 0777), 0);
  EXPECT_EQ(CUnixTools::mkdir_parents("full/x", 0777), 12);
  EXPECT_EQ(CUnixTools::mkdir_parents("a/b/../../full", 0777), 12) << "the last is no directory";
  fs::create_symlink("a", "link");
  EXPECT_EQ(CUnixTools::mkdir_parents("link/b/new", 0777), 0);
  EXPECT_EQ(CUnixTools::mkdir_parents("", 0777), 0);
}

TEST_F(CUnixToolsFiles, AreCopiedAndMoved) {
  const std::string big(3 * 16384 + 1, 'b');
  sandbox::write_file("big", big);
  ::chmod("big", 0641);
  sandbox::write_file("old", "old content");
  fs::create_hard_link("old", "other_name");
  fs::create_symlink("big", "link");
  fs::create_symlink(".", "dirlink");
  ::mkfifo("fifo", 0600);
  fs::create_symlink("fifo", "fifolink");
  const std::size_t descriptors = open_descriptors();

  EXPECT_EQ(CUnixTools::copy_regular_file("link", "old"), 0);
  EXPECT_EQ(sandbox::read_file("old"), big);
  EXPECT_EQ(sandbox::read_file("other_name"), "old content")
      << "the target is unlinked, not written into";
  EXPECT_EQ(CUnixTools::read_file_permission("old"), 0100641U);
  EXPECT_EQ(CUnixTools::copy_regular_file("big", "./big"), 1) << "one directory entry";
  EXPECT_EQ(sandbox::read_file("big"), big);
  EXPECT_EQ(CUnixTools::copy_regular_file("missing", "other_name"), 1);
  EXPECT_FALSE(fs::exists("other_name")) << "removed before the source is opened";
  EXPECT_EQ(CUnixTools::copy_regular_file("big", "no/such"), 1);
  EXPECT_EQ(CUnixTools::copy_regular_file(nullptr, nullptr), 1);
  EXPECT_EQ(CUnixTools::copy_regular_file("dirlink", "empty"), 0);
  EXPECT_EQ(CUnixTools::copy_regular_file("fifolink", "empty2"), 0);
  EXPECT_EQ(sandbox::read_file("empty") + sandbox::read_file("empty2"), "");

  EXPECT_EQ(CUnixTools::copy_file("missing", "x", true), 4);
  EXPECT_EQ(CUnixTools::copy_file("big", "empty", false), 3);
  EXPECT_EQ(CUnixTools::copy_file("fifo", "x", true), 13);
  EXPECT_EQ(CUnixTools::move_file("link", "moved", true), 0);
  EXPECT_EQ(sandbox::read_file("moved"), big);
  EXPECT_TRUE(fs::exists("big")) << "moving a link moves what it shows and removes the link";
  EXPECT_EQ(CUnixTools::move_file("fifo", "y", true), 0);
  EXPECT_FALSE(fs::exists("fifo")) << "an uncopyable source is lost";
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(CUnixToolsFiles, AreCopiedAndRemovedAsTrees) {
  fs::create_directories("tree/sub/deep");
  sandbox::write_file("tree/sub/deep/file", "x");
  fs::create_symlink("../..", "tree/sub/up");
  fs::permissions("tree/sub", fs::perms(0700));
  fs::create_directory_symlink("tree", "dirlink");
  fs::create_directory("pipes");
  ::mkfifo("pipes/fifo", 0600);
  EXPECT_EQ(CUnixTools::copy_file("tree", "copy", false), 0);
  EXPECT_EQ(sandbox::read_file("copy/sub/deep/file"), "x");
  EXPECT_EQ(CUnixTools::read_file_permission("copy/sub"), 0040700U);
  EXPECT_EQ(CUnixTools::copy_directory("none", "x"), 1);
  EXPECT_EQ(CUnixTools::copy_directory(nullptr, nullptr), 1);
  EXPECT_EQ(CUnixTools::copy_directory("tree", nullptr), 1);
  EXPECT_EQ(CUnixTools::copy_directory("pipes", "x"), 13);

  EXPECT_EQ(CUnixTools::rm_file("dirlink"), 11);
  EXPECT_TRUE(fs::is_symlink("dirlink"));
  EXPECT_EQ(CUnixTools::rm_file("tree"), 0);
  EXPECT_FALSE(fs::exists("tree"));
  EXPECT_EQ(CUnixTools::rm_file("tree"), 4);
  EXPECT_EQ(CUnixTools::rm_file(nullptr), 4);
  EXPECT_EQ(CUnixTools::rm_dir("copy/sub/deep/file"), 11);
  EXPECT_EQ(CUnixTools::rm_dir(nullptr), 11);
}

// A target that is a link to the source is another entry: it goes, and the source's content stays.
TEST_F(CUnixToolsFiles, LinksToTheSourceBecomeCopies) {
  const std::string whole = sandbox::scratch() + "/source";
  for (const std::string& target : {std::string("symbolic"), std::string("hard"), whole}) {
    SCOPED_TRACE(target);
    const bool is_same = target == whole;
    for (const bool moves : {false, true}) {
      for (const char* name : {"source", "symbolic", "hard"}) fs::remove(name);
      sandbox::write_file("source", "content");
      fs::create_symlink("source", "symbolic");
      fs::create_hard_link("source", "hard");
      const auto operation = moves ? CUnixTools::move_file : CUnixTools::copy_file;
      EXPECT_EQ(operation("source", target.c_str(), true), !is_same ? 0 : moves ? 4 : 1);
      EXPECT_EQ(sandbox::read_file(target), "content");
      EXPECT_FALSE(fs::is_symlink(target));
      EXPECT_EQ(fs::exists("source"), !moves || is_same);
    }
  }
}

TEST_F(CUnixToolsFiles, ALeasedSourceIsWaitedFor) {
  sandbox::write_file("source", "content");
  const pid_t holder = ::fork();
  if (holder == 0) {
    ::signal(SIGIO, [](int) { ::_exit(0); });  // asked to let go
    const int fd = ::open("source", O_RDWR);
    if (::fcntl(fd, F_SETLEASE, F_WRLCK) != 0) ::_exit(1);
    sandbox::write_file("leased", "");
    for (;;) ::pause();
  }
  while (!fs::exists("leased")) ASSERT_EQ(::waitpid(holder, nullptr, WNOHANG), 0);
  EXPECT_EQ(CUnixTools::move_file("source", "target", false), 0);
  EXPECT_EQ(sandbox::read_file("target"), "content");
  int status = -1;
  ::waitpid(holder, &status, 0);
  EXPECT_EQ(status, 0) << "the lease was broken";
}

TEST_F(CUnixToolsFiles, ACopyIntoItselfEnds) {
  fs::create_directories("tree/sub");
  sandbox::write_file("tree/sub/file", "x");
  CUnixTools::copy_directory("tree", "tree/sub/copy");
  EXPECT_EQ(sandbox::read_file("tree/sub/copy/sub/file"), "x");
  EXPECT_FALSE(fs::exists("tree/sub/copy/sub/copy"));
  EXPECT_EQ(CUnixTools::copy_directory("tree", "tree/../tree"), 1);
  EXPECT_EQ(sandbox::read_file("tree/sub/file"), "x");
}

// While an entry becomes a link out of the tree and back, nothing outside is touched.
TEST_F(CUnixToolsFiles, SwappedEntriesLeadNowhere) {
  fs::create_directories("outside/precious");
  const pid_t swapper = ::fork();
  while (swapper == 0) ::renameat2(AT_FDCWD, "tree/entry", AT_FDCWD, "spare", RENAME_EXCHANGE);
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
TEST_F(CUnixToolsFiles, CutPathsNeverLeadBack) {
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

TEST(CUnixTools, AFullDiskStopsTheCopy) {
  ASSERT_EQ(::mount("tmpfs", "/mnt", "tmpfs", 0, "size=64k"), 0);
  sandbox::write_file("/etc/big", std::string(200000, 'x'));
  EXPECT_EQ(CUnixTools::copy_regular_file("/etc/big", "/mnt/copy"), 1);
  EXPECT_EQ(CUnixTools::read_file_permission("/mnt/copy"), 0100600U) << "nobody else reads a part";
}

TEST(CUnixTools, CommandsReportOneByteOfTheirStatus) {
  EXPECT_EQ(CUnixTools::exec_cmd("exit 3"), 3);
  EXPECT_EQ(CUnixTools::exec_cmd("exit 0"), 0);
  EXPECT_EQ(CUnixTools::exec_cmd("kill -9 $$"), 0) << "a signal counts as success";
  EXPECT_EQ(CUnixTools::exec_cmd("/no/such/tool 2>/dev/null"), 127);
  EXPECT_EQ(CUnixTools::exec_cmd(nullptr), 9);
}

TEST(CUnixTools, CommandOutputArrivesInPieces) {
  // What the lines are then, and the result after them.
  const auto run = [](const char* command, int length) {
    Lines lines{"kept"};
    const int result = CUnixTools::exec_cmd_results(command, lines, length);
    lines.push_back(std::to_string(result));
    return lines;
  };
  const std::size_t descriptors = open_descriptors();
  EXPECT_EQ(run("printf 'abcdefgh\\n'", 5), (Lines{"kept", "abcd", "efgh", "", "0"}));
  EXPECT_EQ(run("printf ' a \\n\\n\\tb'", 1024), (Lines{"kept", "a", "", "b", "0"}));
  EXPECT_EQ(run("printf 'ab'", 2), (Lines{"kept", "a", "b", "0"}));
  EXPECT_EQ(run("printf 'ab'", 1), (Lines{"kept", "0"})) << "no room for a byte";
  EXPECT_EQ(run("printf 'ab'", -7), (Lines{"kept", "0"}));
  EXPECT_EQ(run("true", 1024), (Lines{"kept", "0"}));
  EXPECT_EQ(run(nullptr, 1024), (Lines{"kept", "9"}));
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST(CUnixTools, ClockAndIdentity) {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  const auto seconds = static_cast<unsigned long>(now.tv_sec);
  EXPECT_GE(CUnixTools::GetTickCount(), seconds * 1000);
  EXPECT_LE(CUnixTools::GetTickCount(), (seconds + 60) * 1000);

  Lines tools;
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
