#include "utility/CUnixProc.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <climits>
#include <ctime>
#include <filesystem>
#include <thread>

#include "proc/proc_children.h"
#include "support/alloc_fault.h"
#include "support/sandbox.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;
using utility::CUnixProc;
using Data = CUnixProc::UnixProcData;
using namespace std::string_literals;

namespace {

int go_on(const Data& /*data*/, void* /*ctx*/) {
  return 0;
}
int stop(const Data& /*data*/, void* calls) {
  return ++*static_cast<int*>(calls);
}

// The record of `pid`, by the operation that fills it and by those that read one file each.
Data read_whole(pid_t pid) {
  Data data;
  data.uid = data.gid = 77;
  EXPECT_EQ(CUnixProc::get_proc_data(pid, data), 0);
  return data;
}
Data read_singly(pid_t pid) {
  Data data;
  data.uid = data.gid = 77;
  const std::string status = proc_path(pid, "status");
  const std::string cmdline = proc_path(pid, "cmdline");
  EXPECT_EQ(CUnixProc::get_info(proc_path(pid, "stat"), data.ppid = 77, data.start_time), 0);
  EXPECT_EQ(CUnixProc::get_proc_name(status, data.name), 0);
  EXPECT_EQ(CUnixProc::get_uid(status, data.uid), 0);
  EXPECT_EQ(CUnixProc::get_gid(status, data.gid), 0);
  EXPECT_EQ(CUnixProc::get_cmd(cmdline, data.cmd = "old"), 0);
  if (data.cmd.empty()) data.cmd = "[" + data.name + "]";
  EXPECT_EQ(CUnixProc::get_proc_name_ext(cmdline, proc_path(pid, "exe"), data.path), 0);
  EXPECT_EQ(CUnixProc::get_proc_environ(proc_path(pid, "environ"), data.environ = "old"), 0);
  return data;
}

// What a record has from `file`.
std::string show(const std::string& file, const Data& data) {
  if (file == "stat") return std::to_string(data.ppid) + " " + std::to_string(data.start_time);
  if (file == "cmdline") return data.cmd + "|" + data.path;
  if (file == "environ") return data.environ;
  return data.name + " " + std::to_string(data.uid) + " " + std::to_string(data.gid);
}

}  // namespace

TEST(CUnixProc, FilesOfAProcess) {
  const std::string nums = " 1 2 3 4 5 -6 7 8 9 10 11 12 13 14 15 16 17 ";
  const std::string kept(4096, 'k');
  const std::string link = fs::read_symlink("/proc/self/exe");
  const struct {
    const char *sentence, *file;
    std::string text, expected;
  } rows[] = {
      {"the path of a file", "cmdline", "/etc/tool\0a\0bc\0"s, "/etc/tool a bc|/etc/tool"},
      {"a blank ends it", "cmdline", "/etc/tool a\0"s, "/etc/tool a|/etc/tool"},
      {"leading separators", "cmdline", "0x \t/etc/tool\0"s, "0x \t/etc/tool|/etc/tool"},
      {"cut at its 0", "cmdline", "/etc/b0t\0"s, "/etc/b0t|" + link},
      {"cut at its x, to a directory", "cmdline", "/etc/x\0"s, "/etc/x|" + link},
      {"relative", "cmdline", "etc/tool\0"s, "etc/tool|" + link},
      {"a line feed is part of it", "cmdline", "/etc/tool\n\0"s, "/etc/tool\n|" + link},
      {"separators only", "cmdline", "x0\0"s, "x0|" + link},
      {"a text at the last byte is lost", "cmdline", "a\0b"s, "a|" + link},
      {"the last text has no NUL", "cmdline", "a\0bc"s, "a bc|" + link},
      {"an empty argument ends the list", "cmdline", "a\0\0b\0"s, "a|" + link},
      {"one byte", "cmdline", "a", "[proc_test]|" + link},
      {"longer than is read", "cmdline", kept + kept, kept + "|" + link},
      {"no arguments", "cmdline", "", "[proc_test]|" + link},
      {"entries", "environ", "A=1\0B=2\0"s, "A=1 B=2"},
      {"longer than is read", "environ", std::string(100000, 'k'), std::string(40960, 'k')},
      {"a tab", "environ", "a\tb\0"s, ""},
      {"not ASCII", "environ", "\xC3\xA4\0"s, ""},
      {"DEL", "environ", "a\x7F\0"s, ""},
      {"nothing", "environ", "", ""},
      {"the kernel's own", "stat", "7 (sh) S 5" + nums + "250 9\n", "5 1000002"},
      {"a blank in the name shifts", "stat", "7 (a b) S 5" + nums + "250", "0 1000000"},
      {"it ends before the start time", "stat", "7 (sh) S 5 1 2", "5 1000000"},
      {"a NUL is part of a word", "stat", "7 (a\0b) S 5"s + nums + "299", "5 1000002"},
      {"5000 bytes", "stat", "7 (" + std::string(5000, 'n') + ") S 5" + nums + "100", "5 1000001"},
      {"nothing", "stat", "", "0 1000000"},
      {"the kernel's own", "status", "Name:\tthe-process\nUid:\t1\t2\nGid:\t3\t4\n",
       "the-process 1 3"},
      {"no key", "status", "Uidd: 1\nxGid: 2\nName 3\n", " 77 77"},
      {"a name is cut at its blank", "status", "Name: the-process b\nUid: 1\nGid: 2",
       "the-process 1 2"},
      {"blanks before a key", "status", " \t Uid:\t9 9\n\nGid:\t\t8\n", " 9 8"},
      {"the first of a key counts", "status", "Uid:\nUid: 5\nGid: x\nGid: 5\n", " 77 77"},
      {"beyond int", "status", "Uid: 4294967294\nGid: 99999999999999999999",
       " 4294967294 4294967295"},
      {"a line ends at its NUL", "status", "Name:\0 a\nUid: 5\nGid: 1"s, " 5 1"},
      {"cut after 4095 bytes", "status", std::string(4095, 'x') + "Uid: 6\nGid: 7", " 6 7"},
      {"blocks", "status", "Uid: 6\n" + std::string(9000, '\n') + "Gid: 7\n", " 6 7"},
      {"across 4096 bytes", "status", "Uid: 3\nGid: " + std::string(4083, ' ') + "98", " 3 98"},
  };
  sandbox::run([&] {
    sandbox::bind_content("/proc/stat", "cpu 1 2 3\nbtime 1000000\nprocesses 5\n");
    for (const char* file : {"/etc/tool", "/etc/b0t", "/etc/x"}) sandbox::write_file(file, "");
    const pid_t child = start_child();
    std::string bound;
    for (const auto& row : rows) {
      SCOPED_TRACE(row.file + ": "s + row.sentence);
      const std::string fixture = "/etc/fixture-"s + row.file;
      sandbox::write_file(fixture, row.text);
      if (bound != row.file) sandbox::bind_path(fixture, proc_path(child, bound = row.file));
      EXPECT_EQ(show(row.file, read_singly(child)), row.expected);
      EXPECT_EQ(show(row.file, read_whole(child)), row.expected);
    }
  });
}

TEST(CUnixProc, ExecutablesOfAllProcesses) {
  sandbox::run([] {
    std::string path;
    fs::create_symlink(" /etc/to \t", "/etc/link");
    EXPECT_EQ(CUnixProc::get_proc_name_ext("/dev/null", "/etc/link", path), 0);
    EXPECT_EQ(path, "/etc/to");
    EXPECT_EQ(CUnixProc::get_path_name(-1, path), 1);
    EXPECT_EQ(CUnixProc::get_path_name(INT_MAX, path), 0);
    EXPECT_EQ(path, "/etc/to");
    std::vector<std::string> paths;
    EXPECT_EQ(CUnixProc::get_all_path_name(paths), 0);
    EXPECT_EQ(CUnixProc::get_all_path_name(paths), 0);
    EXPECT_EQ(paths, std::vector<std::string>{fs::read_symlink("/proc/self/exe")});
    sandbox::write_file("/etc/fake/exe", "");
    sandbox::bind_path("/etc/fake", proc_path(start_child(), ""));
    EXPECT_EQ(CUnixProc::get_all_path_name(paths), 9);
  });
}

TEST(CUnixProc, ReaderFailuresLeaveTheOutputAlone) {
  static std::string s_text;
  static int s_ppid;
  static long s_time;
  static unsigned int s_id;
  const TempDir dir;
  dir.write("file", "x");
  using Read = int (*)(const std::string&);
  const struct {
    const char* name;
    Read read;
    int empty, missing, directory;
  } rows[] = {
      {"info", [](auto& p) { return CUnixProc::get_info(p, s_ppid, s_time); }, 1, 12, 0},
      {"uid", [](auto& p) { return CUnixProc::get_uid(p, s_id); }, 1, 12, 9},
      {"gid", [](auto& p) { return CUnixProc::get_gid(p, s_id); }, 1, 12, 9},
      {"name", [](auto& p) { return CUnixProc::get_proc_name(p, s_text); }, 1, 12, 9},
      {"cmd", [](auto& p) { return CUnixProc::get_cmd(p, s_text); }, 1, 0, 9},
      {"environ", [](auto& p) { return CUnixProc::get_proc_environ(p, s_text); }, 1, 0, 9},
      {"path", [](auto& p) { return CUnixProc::get_proc_name_ext(p, p, s_text); }, 12, 12, 10},
  };
  const auto old = [] { s_text = "old", s_ppid = 77, s_time = 77, s_id = 77; };
  const auto is_old = [] { return s_text == "old" && s_time == 77 && s_id == 77; };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    old();
    EXPECT_EQ(row.read(""), row.empty);
    EXPECT_TRUE(is_old() && s_ppid == 77);
    EXPECT_EQ(row.read(dir / "none"), row.missing);
    EXPECT_TRUE(row.missing == 0 ? s_text.empty() : is_old() && s_ppid == 77);
    old();
    EXPECT_EQ(row.read(dir.path()), row.directory);
    EXPECT_TRUE(row.directory == 0 || is_old());
    old();
    const AllocFault fault(0);
    EXPECT_EQ(row.read(dir / "file"), 7);
    EXPECT_TRUE(fault.delivered() && is_old());
  }
  std::vector<unsigned long> inodes;
  EXPECT_EQ(CUnixProc::get_socket_inodes("", inodes), 1);
  EXPECT_EQ(CUnixProc::get_socket_inodes(dir / "none", inodes), 5);
  EXPECT_TRUE(CUnixProc::is_number("") && CUnixProc::is_number("0129"));
  EXPECT_FALSE(CUnixProc::is_number("12a") || CUnixProc::is_number(nullptr));
}

TEST(CUnixProc, RecordOfARealProcess) {
  sandbox::run([] {
    const std::string program = sandbox::scratch() + "/a-rather-long-program-name";
    fs::copy_file("/bin/sleep", program);
    const int sockets[] = {::socket(AF_INET, SOCK_DGRAM, 0), ::socket(AF_UNIX, SOCK_STREAM, 0)};
    std::vector<unsigned long> inodes;
    for (const int fd : sockets) {
      struct stat status {};
      ::fstat(fd, &status);
      inodes.push_back(status.st_ino);
    }
    const long before = std::time(nullptr);
    const pid_t child = start_child([&] {
      if (::setresgid(1001, 0, 0) != 0 || ::setresuid(1000, 0, 0) != 0) ::_exit(1);
      ::execle(program.c_str(), "sleep", "600", nullptr,
               std::vector<const char*>{"A=1", "B=two words", nullptr}.data());
    });
    Data data;
    ASSERT_EQ(CUnixProc::get_proc_data(child, data), 0);
    EXPECT_EQ(data.name, "a-rather-long-program-name");
    EXPECT_EQ(data.uid, 1000U);
    EXPECT_EQ(data.gid, 1001U);
    EXPECT_EQ(data.pid, child);
    EXPECT_EQ(data.ppid, ::getpid());
    EXPECT_NEAR(static_cast<double>(data.start_time), static_cast<double>(before), 2);
    EXPECT_EQ(data.cmd, "sleep 600");
    EXPECT_EQ(data.path, program);
    EXPECT_EQ(data.environ, "A=1 B=two words");
    EXPECT_EQ(data.inodes, inodes);
    EXPECT_EQ(CUnixProc::get_socket_inodes(proc_path(child, "fd"), inodes), 0);
    EXPECT_EQ(inodes.size(), 4U) << "appended";

    const pid_t zombie = start_named("a) b");
    ::kill(zombie, SIGKILL);
    await_end(zombie);
    Data rest;
    EXPECT_EQ(CUnixProc::get_proc_data(zombie, rest), 0);
    EXPECT_EQ(rest.name + rest.cmd + rest.path + rest.environ, "a)[a)]");
  });
}

// A socket: a file that exists and that nobody can open.
static void make_unopenable() {
  const sockaddr_un address{AF_UNIX, "/etc/unopenable"};
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ::close(fd);
}

TEST(CUnixProc, WalkCodesAndVanishedProcesses) {
  const struct {
    const char *file, *source;
    int code;
    const char* name;
  } rows[] = {
      {"status", "/etc/unopenable", 12, ""},
      {"cmdline", "/etc/unopenable", 12, "who"},
      {"stat", "/etc/unopenable", 12, "who"},
      {"environ", "/etc/unopenable", 0, "proc_test"},
      {"status", "/proc/self/mem", 9, ""},
      {"cmdline", "/proc/self/mem", 9, "who"},
      {"stat", "/proc/self/mem", 0, "proc_test"},
      // Existence is asked first: without a cmdline, an unreadable status is no failure.
      {"", "/etc/fake", 0, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.file + " is "s + row.source);
    sandbox::run(
        [&row] {
          make_unopenable();
          fs::create_directories("/etc/fake/status");
          const pid_t child = start_named("who");
          sandbox::bind_path(row.source, proc_path(child, row.file));
          Data data;
          EXPECT_EQ(CUnixProc::get_proc_data(child, data), row.code);
          EXPECT_EQ(data.pid, child);
          EXPECT_EQ(data.name, row.name);
          EXPECT_EQ(CUnixProc::get_all_proc_data(go_on, nullptr), row.code);
        },
        {120, false});
  }
  sandbox::run([] {
    Data data;
    EXPECT_EQ(CUnixProc::get_proc_data(INT_MAX, data), 0);
    EXPECT_EQ(data.pid, INT_MAX);
    EXPECT_EQ(data.name + data.cmd, "");
    int calls = 0;
    EXPECT_EQ(CUnixProc::get_all_proc_data(stop, &calls), 13);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(CUnixProc::get_all_proc_data(nullptr, nullptr), 1);
    {
      const AllocFault fault(0);
      EXPECT_EQ(CUnixProc::get_all_proc_data(go_on, nullptr), 7);
    }
    // The process ends between its status and its cmdline.
    ::mkfifo("/etc/fifo", 0600);
    const pid_t child = start_child();
    sandbox::bind_path("/etc/fifo", proc_path(child, "status"));
    std::thread ender([child] {
      const int fd = ::open("/etc/fifo", O_WRONLY | O_CLOEXEC);
      ::kill(child, SIGKILL);
      ::waitpid(child, nullptr, 0);
      EXPECT_EQ(::write(fd, "Name: gone\nUid: 5\n", 18), 18);
      ::close(fd);
    });
    EXPECT_EQ(CUnixProc::get_proc_data(child, data), 0);
    ender.join();
    EXPECT_EQ(data.name + data.cmd, "gone");
    EXPECT_EQ(data.uid, 0U);

    const pid_t busy = ::fork();
    for (int i = 0; busy == 0; ++i) {
      if (i == 2000) ::_exit(0);
      if (::fork() == 0) ::_exit(0);
      if (i % 4 == 3)
        while (::waitpid(-1, nullptr, WNOHANG) > 0) {
        }
    }
    while (::waitpid(busy, nullptr, WNOHANG) == 0) {
      ASSERT_EQ(CUnixProc::get_all_proc_data(go_on, nullptr), 0);
    }
    make_unopenable();
    sandbox::bind_path("/etc/unopenable", "/proc/stat");
    long boot_time = 77;
    EXPECT_EQ(CUnixProc::get_boottime(boot_time), 12);
    EXPECT_EQ(boot_time, 77);
    EXPECT_EQ(CUnixProc::get_all_proc_data(go_on, nullptr), 12);
  });
}
