#include "utility/CUnixFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "support/cases.h"

using utility::CUnixFile;
namespace fs = std::filesystem;
using S = std::string;

namespace {

// The items that `filter` lets through, sorted, after the result.
Words list(const S& dir, char filter) {
  Words items;
  const auto collect = [](const CUnixFile::UnixFileData& item, void* all) {
    const S text = item.name + ':' + static_cast<char>(item.type) + std::to_string(item.sub);
    static_cast<Words*>(all)->push_back(text);
    return 0;
  };
  const int result =
      CUnixFile::get_sub_item(dir, static_cast<unsigned char>(filter), collect, &items);
  items.push_back(std::to_string(result));
  std::sort(items.begin(), items.end());
  return items;
}

// A line for each item in a file, as stat(1) writes it, in the order of names.
int write_all(const S& dir, const S& path) {
  Words lines;
  const auto collect = [](const CUnixFile::UnixFileData& item, void* all) {
    std::ostringstream line;
    line << item.name << ' ' << item.size << ' ' << std::hex << item.mode << std::dec << ' '
         << item.uid << ' ' << item.gid << ' ' << item.mtime << ' ' << item.atime << ' '
         << item.ctime << '\n';
    static_cast<Words*>(all)->push_back(line.str());
    return 0;
  };
  const int result = CUnixFile::get_sub_item(dir, 'a', collect, &lines);
  std::sort(lines.begin(), lines.end());
  std::ofstream file(path);
  for (const S& line : lines) file << line;
  return result;
}

S show_mode(unsigned mode, int size, S& buffer) {
  buffer.assign(16, '?');
  const char* const shown = CUnixFile::mode_2_string(mode, buffer.data(), size);
  return shown == buffer.data() ? "text" : shown == nullptr ? "null" : "elsewhere";
}

int stop(const S& dir) {
  const auto callback = [](const CUnixFile::UnixFileData&, void*) { return 1; };
  return CUnixFile::get_sub_item(dir, 'a', callback, nullptr);
}

int delete_while_listing(S dir) {
  const auto callback = [](const CUnixFile::UnixFileData&, void* path) {
    return fs::remove_all(*static_cast<S*>(path)) > 0 ? 0 : 1;
  };
  return CUnixFile::get_sub_item(dir, 'a', callback, &dir);
}

int call_back_del(S parent, const S& name) {
  CUnixFile::UnixFileData record;
  record.type = 'd';
  record.name = name;
  return CUnixFile::call_back_del(record, &parent);
}

}  // namespace

TEST(CUnixFile, ItemsAreListedAndChanged) {
  run_cases(FIXTURES "/items.txt", {{"umask", call([](unsigned mode) { ::umask(mode); })},
                                    {"mode_2_string", call(show_mode)},
                                    {"create_item", call(CUnixFile::create_item)},
                                    {"mod_mode", call(CUnixFile::mod_mode)},
                                    {"rename_item", call(CUnixFile::rename_item)},
                                    {"list", call(list)},
                                    {"write_all", call(write_all)},
                                    {"stop", call(stop)},
                                    {"delete_while_listing", call(delete_while_listing)},
                                    {"has_subitem", call(CUnixFile::has_subitem)},
                                    {"delete_item", call(CUnixFile::delete_item)},
                                    {"call_back_del", call(call_back_del)}});
  EXPECT_EQ(CUnixFile::mode_2_string(S_IFREG, nullptr, 11), nullptr);
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

// Deeper than any path reaches, with little stack and few descriptors.
TEST(CUnixFile, DeletesADeepTree) {
  std::string tree = fs::absolute("tree");
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
  ASSERT_EQ(::pthread_create(&thread, &little, remove, &tree), 0);
  ::pthread_join(thread, nullptr);
  EXPECT_FALSE(fs::exists(tree));
}
