#include "utility/CUnixFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>
#include <map>

#include "support/cases.h"
#include "support/sandbox.h"

using utility::CUnixFile;
namespace fs = std::filesystem;

namespace {

using Items = std::map<std::string, CUnixFile::UnixFileData>;

int collect(const CUnixFile::UnixFileData& item, void* items) {
  return static_cast<Items*>(items)->insert({item.name, item}).second ? 0 : 1;
}

// "name:type and sub" of each item that `filter` lets through.
std::string list(const std::string& dir, char filter, Items* items) {
  items->clear();
  EXPECT_EQ(CUnixFile::get_sub_item(dir, static_cast<unsigned char>(filter), collect, items), 0);
  std::string text;
  for (const auto& [name, item] : *items) {
    text += name + ":" + static_cast<char>(item.type) + std::to_string(item.sub) + " ";
  }
  return text;
}

}  // namespace

TEST(CUnixFile, ShowsModesAsText) {
  for_each_case(FIXTURES "/modes.txt",
                {{"shown", [](const Case& row) {
                    std::string buffer(64, '?');
                    const auto size = static_cast<int>(row.number("size"));
                    const auto mode = static_cast<unsigned>(row.number("mode"));
                    char* const expected = size == 0 ? nullptr : buffer.data();
                    EXPECT_EQ(CUnixFile::mode_2_string(mode, buffer.data(), size), expected);
                    const std::string text = row["text"] + (size == 0 ? '?' : '\0');
                    EXPECT_EQ(buffer, text + std::string(64 - text.size(), '?'));
                  }}});
  EXPECT_EQ(CUnixFile::mode_2_string(S_IFREG, nullptr, 11), nullptr);
}

TEST(CUnixFile, CreatesRenamesAndSetsModes) {
  sandbox::write_file("kept", "content");
  fs::create_symlink("nowhere", "link");
  ::umask(0777);
  EXPECT_EQ(CUnixFile::create_item("item", '_', 04640), 0);
  EXPECT_EQ(CUnixFile::create_item("other", 'd', 0700), 0);
  EXPECT_EQ(CUnixFile::create_item("", '_', 0), 1);
  EXPECT_EQ(CUnixFile::create_item("kept", '_', 0), 6);
  EXPECT_EQ(CUnixFile::create_item("no/such", '_', 0), 7);
  EXPECT_EQ(CUnixFile::create_item(std::string(5000, 'x'), 'd', 0), 8);
  EXPECT_EQ(CUnixFile::create_item("new", 'f', 0), 9);
  EXPECT_EQ(CUnixFile::mod_mode("", 0), 1);
  EXPECT_EQ(CUnixFile::mod_mode("link", 0), 10);
  EXPECT_EQ(CUnixFile::mod_mode("/proc/self/fd", 0), 13);
  EXPECT_EQ(CUnixFile::mod_mode("other", 01711), 0);
  EXPECT_EQ(CUnixFile::rename_item("", "new"), 1);
  EXPECT_EQ(CUnixFile::rename_item("item", ""), 1);
  EXPECT_EQ(CUnixFile::rename_item("missing", "new"), 10);
  EXPECT_EQ(CUnixFile::rename_item("item", "kept"), 6);
  EXPECT_EQ(CUnixFile::rename_item("item", "link"), 6);
  EXPECT_EQ(CUnixFile::rename_item("other", "other/in"), 12);
  EXPECT_EQ(CUnixFile::rename_item("item", "renamed"), 0);
  Items items;
  EXPECT_EQ(list(".", 'a', &items), "kept:_0 link:l0 other:d0 renamed:_0 ");
  EXPECT_EQ(sandbox::read_file("kept"), "content");
  EXPECT_EQ(items["renamed"].mode, S_IFREG | 04640U);
  EXPECT_EQ(items["other"].mode, S_IFDIR | 01711U);
}

TEST(CUnixFile, ListsEveryKindOfItem) {
  std::string dir = sandbox::scratch() + "/kinds";
  sandbox::write_file(dir + "/1023", std::string(1023, 'x'));
  sandbox::write_file(dir + "/1024", std::string(1024, 'x'));
  sandbox::write_file(dir + "/both/file", "");
  fs::current_path(dir);
  fs::create_directories("links");
  for (const char* link : {"link", "both/link", "links/link"}) fs::create_symlink("/etc", link);
  fs::create_symlink("nowhere", "links/dangling");
  for (const mode_t type : {010000U, 020000U, 060000U, 0140000U}) {
    ASSERT_EQ(::mknod(std::to_string(type).c_str(), type | 0600, makedev(7, 0)), 0) << type;
  }
  ASSERT_EQ(::chown("1023", 12, 34), 0);
  const timespec times[] = {{1000000001, 0}, {-7, 0}};  // access, modification
  ASSERT_EQ(::utimensat(AT_FDCWD, "1023", times, 0), 0);

  Items items;
  std::string by_type;
  for (const char type : {'_', 'b', 'c', 'd', 'f', 'l', 's', 'z'}) {
    by_type += list(dir, type, &items);
  }
  EXPECT_EQ(by_type, "1023:_0 1024:_0 24576:b0 8192:c0 both:d3 links:d1 4096:f0 link:l0 49152:s0 ");
  list(dir, 'a', &items);
  EXPECT_EQ(items.size(), 9U);
  EXPECT_EQ(std::pair(items["1023"].size, items["1024"].size), std::pair(0L, 1L));
  const auto& item = items["1023"];
  struct stat st {};
  ASSERT_EQ(::lstat("1023", &st), 0);
  EXPECT_EQ(std::tie(item.mode, item.uid, item.gid), std::tie(st.st_mode, st.st_uid, st.st_gid));
  EXPECT_EQ(std::tie(item.mtime, item.atime, item.ctime),
            std::tie(st.st_mtime, st.st_atime, st.st_ctime));
  EXPECT_EQ(CUnixFile::get_sub_item(dir, 'a', collect, &items), 5) << "known already";
  EXPECT_EQ(CUnixFile::get_sub_item("", 'a', collect, &items), 1);
  EXPECT_EQ(CUnixFile::get_sub_item(dir + "/absent", 'a', collect, &items), 2);
  EXPECT_EQ(CUnixFile::get_sub_item(dir + "/1023", 'a', collect, &items), 3);
  EXPECT_EQ(CUnixFile::get_sub_item(dir + "/link", 'a', collect, &items), 3);
  const auto vanish = [](const CUnixFile::UnixFileData&, void* path) {
    return fs::remove_all(*static_cast<std::string*>(path)) > 0 ? 0 : 1;
  };
  EXPECT_EQ(CUnixFile::get_sub_item(dir, 'a', vanish, &dir), 2);
  EXPECT_EQ(CUnixFile::has_subitem(dir), 0);
}

TEST(CUnixFile, AnUnknownTypeFillsTheRecordHalf) {
  struct stat64 st {};
  st.st_mode = 0644;
  st.st_uid = 1;
  CUnixFile::UnixFileData record;
  record.sub = 9;
  EXPECT_EQ(CUnixFile::stat_2_fd("a\xE4\xB8\xAD", st, record), 14);
  EXPECT_EQ(record.name, "a\xD6\xD0") << "U+4E2D in GBK";
  EXPECT_EQ(std::tuple(record.mode, record.uid, record.sub), std::tuple(0644U, 0U, 9));
}

TEST(CUnixFile, Deletes) {
  const std::string top = sandbox::scratch() + "/top", tree = top + "/tree";
  // More entries than one reading of the directory yields.
  for (int i = 0; i < 3000; ++i) sandbox::write_file(tree + "/" + std::to_string(i), "");
  sandbox::write_file(tree + "/a b\n$(x)/c/d", "");
  fs::create_symlink("/etc", tree + "/link");
  fs::create_symlink("nowhere", top + "/dangling");
  EXPECT_EQ(CUnixFile::delete_item("", true), 1);
  EXPECT_EQ(CUnixFile::delete_item(tree, false), 11);
  EXPECT_EQ(CUnixFile::delete_item(tree, true), 0);
  EXPECT_EQ(CUnixFile::delete_item(top + "/dangling", true), 0);
  EXPECT_EQ(CUnixFile::delete_item(top + "/dangling", true), 10);
  EXPECT_TRUE(fs::is_empty(top) && fs::exists("/etc/passwd"));
  sandbox::write_file("/etc/kept/file", "");
  fs::create_symlink("/etc/kept", top + "/link");
  EXPECT_EQ(CUnixFile::delete_item(top + "/link/", true), 11) << "no link is emptied";
  EXPECT_TRUE(fs::exists("/etc/kept/file") && fs::remove(top + "/link"));

  // Deeper than any path reaches, with little stack and few descriptors.
  fs::create_directory(tree);
  const int here = ::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(::chdir(tree.c_str()), 0);
  for (int depth = 0; depth < 20000; ++depth) ASSERT_EQ(::mkdir("d", 0700) + ::chdir("d"), 0);
  ASSERT_EQ(::fchdir(here) + ::close(here), 0);
  const rlimit few{40, 40};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
  pthread_attr_t little;
  ::pthread_attr_init(&little);
  ::pthread_attr_setstacksize(&little, 256 << 10);
  pthread_t thread;
  const auto remove = [](void* path) -> void* {
    EXPECT_EQ(CUnixFile::delete_item(*static_cast<std::string*>(path), true), 0);
    return nullptr;
  };
  std::string deep = tree;
  ASSERT_EQ(::pthread_create(&thread, &little, remove, &deep), 0);
  ::pthread_join(thread, nullptr);
  EXPECT_TRUE(fs::is_empty(top));

  // Three trees that cannot go: an entry in use, and names that are not their own GBK text.
  for (const std::string name : {"busy", "\xE4\xB8\xAD", "\xff"}) {
    const std::string file = fs::path(tree) / name / "file";
    sandbox::write_file(file, "");
    if (name == "busy") sandbox::bind_path("/etc/passwd", file);
    EXPECT_EQ(CUnixFile::delete_item(tree, true), 5) << name;
    EXPECT_TRUE(fs::exists(file)) << name;
    ::umount(file.c_str());
    fs::remove_all(tree);
  }
  // What such names are cut to must not lead back to the directory or out of it.
  for (const char* name : {"", ".", ".."}) {
    CUnixFile::UnixFileData record;
    record.type = 'd';
    record.name = name;
    std::string parent = tree;
    sandbox::write_file(tree + "/file", "");
    EXPECT_EQ(CUnixFile::call_back_del(record, &parent), -1) << name;
    EXPECT_TRUE(fs::exists(tree + "/file")) << name;
  }
}
