#include "utility/CUnixTools.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <set>

#include "support/alloc_fault.h"
#include "support/open_descriptors.h"
#include "support/sandbox.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;
using utility::CUnixTools;
using Lines = std::vector<std::string>;

TEST(CUnixTools, TypesAndExistence) {
  const TempDir dir;
  dir.write("file", "x");
  ::mkfifo((dir / "fifo").c_str(), 0600);
  fs::create_symlink("file", dir / "link");
  fs::create_symlink("nothing", dir / "dangling");
  fs::create_symlink(".", dir / "dirlink");
  const struct {
    const char* name;
    int type;
    bool exists, is_dir;
  } rows[] = {{"", 1, true, true},           {"file", 2, true, false},
              {"link", 3, true, false},      {"dangling", 3, false, false},
              {"dirlink", 3, true, false},   {"fifo", 255, true, false},
              {"missing", 255, false, false}};
  for (const auto& row : rows) {
    const std::string path = dir / row.name;
    EXPECT_EQ(CUnixTools::file_type(path.c_str()), row.type) << row.name;
    EXPECT_EQ(CUnixTools::file_is_exist(path.c_str()), row.exists) << row.name;
    EXPECT_EQ(CUnixTools::is_exist_dir(path.c_str()), row.is_dir) << row.name;
  }
  ::chmod((dir / "file").c_str(), 04751);
  EXPECT_EQ(CUnixTools::read_file_permission((dir / "link").c_str()), 0104751U);
  EXPECT_EQ(CUnixTools::read_file_permission((dir / "missing").c_str()), 0U);
  EXPECT_EQ(CUnixTools::file_type(nullptr), 255) << "null paths do not exist";
  EXPECT_EQ(CUnixTools::create_file(nullptr, 0600), 7);
  EXPECT_EQ(CUnixTools::copy_regular_file(nullptr, nullptr), 1);
  EXPECT_EQ(CUnixTools::copy_directory(nullptr, nullptr), 1);
  EXPECT_EQ(CUnixTools::rm_file(nullptr), 4);
  EXPECT_EQ(CUnixTools::rm_dir(nullptr), 11);
}

TEST(CUnixTools, CreatingAndChains) {
  const TempDir dir;
  const mode_t before = ::umask(027);
  EXPECT_EQ(CUnixTools::create_file((dir / "new").c_str(), 0666), 0);
  EXPECT_EQ(CUnixTools::read_file_permission((dir / "new").c_str()), 0100640U);
  dir.write("full", "content");
  EXPECT_EQ(CUnixTools::create_file((dir / "full").c_str(), 0666), 3);
  EXPECT_EQ(dir.read("full"), "content");
  EXPECT_EQ(CUnixTools::create_file((dir / "no/such").c_str(), 0666), 7);

  EXPECT_EQ(CUnixTools::mkdir_parents(dir / "a//b/c/", 0777), 0);
  EXPECT_EQ(CUnixTools::read_file_permission((dir / "a/b/c").c_str()), 0040750U);
  EXPECT_EQ(CUnixTools::mkdir_parents(dir / "a/b", 0777), 0);
  EXPECT_EQ(CUnixTools::mkdir_parents(dir / "full/x", 0777), 12);
  EXPECT_EQ(CUnixTools::mkdir_parents("", 0777), 0);
  ::umask(before);
}

TEST(CUnixTools, CopyingFiles) {
  const TempDir dir;
  const std::string big(3 * 16384 + 1, 'b');
  dir.write("big", big);
  ::chmod((dir / "big").c_str(), 0641);
  dir.write("old", "old content");
  fs::create_hard_link(dir / "old", dir / "other_name");
  fs::create_symlink("big", dir / "link");
  fs::create_symlink(".", dir / "dirlink");
  ::mkfifo((dir / "fifo").c_str(), 0600);
  fs::create_symlink("fifo", dir / "fifolink");
  const auto copy = [&](const char* from, const char* to) {
    return CUnixTools::copy_regular_file((dir / from).c_str(), (dir / to).c_str());
  };
  const std::size_t descriptors = open_descriptors();

  EXPECT_EQ(copy("link", "old"), 0);
  EXPECT_EQ(dir.read("old"), big);
  EXPECT_EQ(dir.read("other_name"), "old content") << "the target is unlinked, not written into";
  EXPECT_EQ(CUnixTools::read_file_permission((dir / "old").c_str()), 0100641U);
  EXPECT_EQ(copy("big", "link"), 1) << "the same file";
  EXPECT_EQ(dir.read("big"), big);
  EXPECT_EQ(copy("missing", "other_name"), 1);
  EXPECT_FALSE(fs::exists(dir / "other_name")) << "removed before the source is opened";
  EXPECT_EQ(copy("big", "no/such"), 1);
  EXPECT_EQ(copy("dirlink", "empty"), 0);
  EXPECT_EQ(copy("fifolink", "empty2"), 0);
  EXPECT_EQ(dir.read("empty") + dir.read("empty2"), "");

  EXPECT_EQ(CUnixTools::copy_file((dir / "missing").c_str(), (dir / "x").c_str(), true), 4);
  EXPECT_EQ(CUnixTools::copy_file((dir / "big").c_str(), (dir / "empty").c_str(), false), 3);
  EXPECT_EQ(CUnixTools::copy_file((dir / "fifo").c_str(), (dir / "x").c_str(), true), 13);
  EXPECT_EQ(CUnixTools::move_file((dir / "link").c_str(), (dir / "moved").c_str(), true), 0);
  EXPECT_EQ(dir.read("moved"), big);
  EXPECT_TRUE(fs::exists(dir / "big")) << "moving a link moves what it shows and removes the link";
  EXPECT_EQ(CUnixTools::move_file((dir / "fifo").c_str(), (dir / "y").c_str(), true), 0);
  EXPECT_FALSE(fs::exists(dir / "fifo")) << "an uncopyable source is lost";
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST(CUnixTools, AFullDiskStopsTheCopy) {
  sandbox::run([] {
    const std::string small = sandbox::scratch() + "/small";
    fs::create_directory(small);
    ASSERT_EQ(::mount("tmpfs", small.c_str(), "tmpfs", 0, "size=64k"), 0);
    sandbox::write_file(sandbox::scratch() + "/big", std::string(200000, 'x'));
    EXPECT_EQ(CUnixTools::copy_regular_file((sandbox::scratch() + "/big").c_str(),
                                            (small + "/copy").c_str()),
              1);
  });
}

TEST(CUnixTools, CopyingAndRemovingTrees) {
  const TempDir dir;
  fs::create_directories(dir / "tree/sub/deep");
  dir.write("tree/sub/deep/file", "x");
  fs::create_symlink("../..", dir / "tree/sub/up");
  fs::permissions(dir / "tree/sub", fs::perms(0700));
  EXPECT_EQ(CUnixTools::copy_file((dir / "tree").c_str(), (dir / "copy").c_str(), false), 0);
  EXPECT_EQ(dir.read("copy/sub/deep/file"), "x");
  EXPECT_EQ(CUnixTools::read_file_permission((dir / "copy/sub").c_str()), 0040700U);
  EXPECT_EQ(CUnixTools::copy_directory((dir / "none").c_str(), (dir / "x").c_str()), 1);
  fs::create_directory(dir / "pipes");
  ::mkfifo((dir / "pipes/fifo").c_str(), 0600);
  EXPECT_EQ(CUnixTools::copy_directory((dir / "pipes").c_str(), (dir / "x").c_str()), 13);

  fs::create_directory_symlink("tree", dir / "dirlink");
  EXPECT_EQ(CUnixTools::rm_file((dir / "dirlink").c_str()), 11);
  EXPECT_TRUE(fs::is_symlink(dir / "dirlink"));
  EXPECT_EQ(CUnixTools::rm_file((dir / "tree").c_str()), 0);
  EXPECT_FALSE(fs::exists(dir / "tree"));
  EXPECT_EQ(CUnixTools::rm_file((dir / "tree").c_str()), 4);
  EXPECT_EQ(CUnixTools::rm_dir((dir / "copy/sub/deep/file").c_str()), 11);
}

// Entries whose paths are cut to the directory itself or to its parent must not be descended into.
TEST(CUnixTools, CutPathsNeverLeadBack) {
  const TempDir dir;
  for (std::size_t length = 252; length <= 255; ++length) {
    std::string deep = dir / std::string(100, 'a');
    deep += "/" + std::string(length - deep.size() - 1, 'b');
    fs::create_directories(deep + "/..hidden/inner");
    EXPECT_EQ(CUnixTools::rm_dir(deep.c_str()), 11) << length;
    EXPECT_TRUE(fs::exists(deep + "/..hidden")) << length;
    fs::remove_all(deep);
  }
  // The same for copies, at their own limit: the walk ends.
  std::string source = dir / "s";
  while (source.size() < 1023 - 210) source += "/" + std::string(200, 's');
  source += "/" + std::string(1022 - source.size(), 't');
  ASSERT_EQ(source.size(), 1023U);
  ASSERT_EQ(CUnixTools::mkdir_parents(source, 0755), 0);
  fs::create_directory(source + "/sub");
  EXPECT_EQ(CUnixTools::copy_directory(source.c_str(), (dir / "copy").c_str()), 1);
}

TEST(CUnixTools, CommandsReportOneByteOfTheirStatus) {
  EXPECT_EQ(CUnixTools::exec_cmd("exit 3"), 3);
  EXPECT_EQ(CUnixTools::exec_cmd("exit 0"), 0);
  EXPECT_EQ(CUnixTools::exec_cmd("kill -9 $$"), 0) << "a signal counts as success";
  EXPECT_EQ(CUnixTools::exec_cmd("/no/such/tool 2>/dev/null"), 127);
  EXPECT_EQ(CUnixTools::exec_cmd(nullptr), 9);
}

TEST(CUnixTools, CommandOutputArrivesInPieces) {
  const struct {
    const char* command;
    int length;
    Lines expected;
  } rows[] = {
      {"printf 'abcdefgh\\n'", 5, {"abcd", "efgh", ""}},
      {"printf ' a \\n\\n\\tb'", 1024, {"a", "", "b"}},
      {"printf 'ab'", 2, {"a", "b"}},
      {"printf 'ab'", 1, {}},
      {"printf 'ab'", -7, {}},
      {"true", 1024, {}},
  };
  const std::size_t descriptors = open_descriptors();
  for (const auto& row : rows) {
    Lines lines{"kept"};
    EXPECT_EQ(CUnixTools::exec_cmd_results(row.command, lines, row.length), 0) << row.command;
    Lines expected{"kept"};
    expected.insert(expected.end(), row.expected.begin(), row.expected.end());
    EXPECT_EQ(lines, expected) << row.command << " in " << row.length;
  }
  Lines lines;
  EXPECT_EQ(CUnixTools::exec_cmd_results(nullptr, lines, 1024), 9);
  {
    const AllocFault fault(0);
    EXPECT_EQ(CUnixTools::exec_cmd_results("echo a", lines, 1024), 2);
    EXPECT_TRUE(fault.delivered());
  }
  EXPECT_TRUE(lines.empty());
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST(CUnixTools, ClockAndIdentity) {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  const auto seconds = static_cast<unsigned long>(now.tv_sec);
  EXPECT_GE(CUnixTools::GetTickCount(), seconds * 1000);
  EXPECT_LE(CUnixTools::GetTickCount(), (seconds + 60) * 1000);

  Lines date;
  ASSERT_EQ(CUnixTools::exec_cmd_results("date '+%Y-%m-%d %H:%M:%S'; id -nu", date, 64), 0);
  ASSERT_EQ(date.size(), 2U);
  const std::string text = CUnixTools::get_time_now();
  EXPECT_EQ(text.size(), date[0].size());
  EXPECT_LE(date[0], text);
  EXPECT_EQ(CUnixTools::get_process_user(), date[1]);
  EXPECT_EQ(CUnixTools::get_process_path(::getpid()), fs::read_symlink("/proc/self/exe"));
  EXPECT_EQ(CUnixTools::get_process_path(-1), "");
  sandbox::run([] {
    ASSERT_EQ(::setuid(54321), 0);
    EXPECT_EQ(CUnixTools::get_process_user(), "") << "an id without an entry";
  });
}
