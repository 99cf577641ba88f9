#include "utility/CUnixProc.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <thread>

#include "support/sandbox.h"

namespace fs = std::filesystem;
using Unix = utility::CUnixProc;
using Data = Unix::UnixProcData;
using Lines = std::vector<std::string>;
using namespace std::string_literals;

namespace {

// A child that runs `prepare` and waits; returns when it does so or has called exec.
pid_t start_child(
    const char* name, const std::function<void()>& prepare = [] {}) {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) std::abort();
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_NAME, name);
    prepare();
    if (::write(fds[1], "", 1) != 1) ::_exit(1);
    for (;;) ::pause();
  }
  ::close(fds[1]);
  while (::read(fds[0], fds, 1) < 0) continue;
  ::close(fds[0]);
  return child;
}

bool was_killed(pid_t child) {
  int status = 0;
  return ::waitpid(child, &status, 0) == child && WIFSIGNALED(status);
}

std::string proc_path(pid_t pid, const std::string& file) {
  return "/proc/" + std::to_string(pid) + "/" + file;
}

const Data kUsed{"", 77, 77, 77, 77, "old", "old", "old", {}, 77};

// What a record has from `file`.
std::string show(const std::string& file, const Data& data) {
  if (file == "stat") return std::to_string(data.ppid) + " " + std::to_string(data.start_time);
  if (file == "cmdline") return data.cmd + "|" + data.path;
  if (file == "environ") return data.environ;
  return data.name + " " + std::to_string(data.uid) + " " + std::to_string(data.gid);
}

// The readers of one file, with their codes for an empty path, a missing file and a directory.
const struct {
  const char* file;
  int empty, missing, directory;
  int (*read)(const std::string& path, Data& data);
} kReaders[] = {
    {"stat", 1, 12, 0, [](auto& p, auto& d) { return Unix::get_info(p, d.ppid, d.start_time); }},
    {"status", 1, 12, 9, [](auto& p, auto& d) { return Unix::get_uid(p, d.uid); }},
    {"status", 1, 12, 9, [](auto& p, auto& d) { return Unix::get_gid(p, d.gid); }},
    {"status", 1, 12, 9, [](auto& p, auto& d) { return Unix::get_proc_name(p, d.name); }},
    {"cmdline", 1, 0, 9, [](auto& p, auto& d) { return Unix::get_cmd(p, d.cmd); }},
    {"cmdline", 12, 12, 0,
     [](auto& p, auto& d) { return Unix::get_proc_name_ext(p, "/proc/self/exe", d.path); }},
    {"environ", 1, 0, 9, [](auto& p, auto& d) { return Unix::get_proc_environ(p, d.environ); }},
    {"fd", 1, 5, 0, [](auto& p, auto& d) { return Unix::get_socket_inodes(p, d.inodes); }},
};

int walk_all() {
  return Unix::get_all_proc_data([](const Data&, void*) { return 0; }, nullptr);
}

// From now on the kernel knows no close_range.
void refuse_close_range() {
  sock_filter code[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, 0),
                        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_close_range, 0, 1),
                        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
                        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  sock_fprog program{4, code};
  ASSERT_EQ(::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), 0);
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
      {"leading separators", "cmdline", "0x \t/etc/tool a\0"s, "0x \t/etc/tool a|/etc/tool"},
      {"cut at its 0", "cmdline", "/etc/b0t\0"s, "/etc/b0t|" + link},
      {"cut at its x, to a directory", "cmdline", "/etc/x\0"s, "/etc/x|" + link},
      {"an empty argument ends the list", "cmdline", "a\0\0b\0"s, "a|" + link},
      {"a text at the last byte is lost", "cmdline", "a\0b"s, "a|" + link},
      {"the last text has no NUL", "cmdline", "a\0bc"s, "a bc|" + link},
      {"longer than is read", "cmdline", kept + kept, kept + "|" + link},
      {"no arguments", "cmdline", "", "[proc_test]|" + link},
      {"longer than is read", "environ", std::string(100000, 'k'), std::string(40960, 'k')},
      {"not printable", "environ", "a\tb\0"s, ""},
      {"the kernel's own", "stat", "7 (sh) S 5" + nums + "250 9\n", "5 1000002"},
      {"a blank in the name shifts", "stat", "7 (a b) S 5" + nums + "250", "77 1000000"},
      {"it ends before the start time", "stat", "7 (sh) S 5 1 2", "5 1000000"},
      {"a NUL is part of a word", "stat", "7 (a\0b) S 5"s + nums + "299", "5 1000002"},
      {"the kernel's own", "status", "Name:\ttest-proc b\nUid:\t1\t2\nGid:\t3\t4\n",
       "test-proc 1 3"},
      {"blanks before a key", "status", " \t Uid:\t9 9\n\nGid:\t\t8\n", " 9 8"},
      {"the first of a key counts", "status", "Uid:\nUid: 5\nGid: x\nGid: 5\n", " 77 77"},
      {"beyond int", "status", "Uid: 4294967294\nGid: 8589934593\n", " 4294967294 1"},
      {"cut after 4095 bytes", "status", std::string(4095, 'k') + "Uid: 6\nGid: 7", " 6 7"},
      {"across 4096 bytes", "status", "Uid: 3\nGid:" + std::string(4084, ' ') + "98", " 3 98"},
  };
  sandbox::run([&] {
    sandbox::bind_content("/proc/stat", "cpu 1 2 3\nbtime 1000000\nprocesses 5\n");
    for (const char* file : {"/etc/tool", "/etc/b0t", "/etc/x"}) sandbox::write_file(file, "");
    const pid_t child = start_child("proc_test");
    std::string bound;
    for (const auto& row : rows) {
      SCOPED_TRACE(row.file + ": "s + row.sentence);
      const std::string fixture = "/etc/fixture-"s + row.file;
      sandbox::write_file(fixture, row.text);
      if (bound != row.file) sandbox::bind_path(fixture, proc_path(child, bound = row.file));
      Data singly = kUsed;
      for (const auto& reader : kReaders) reader.read(proc_path(child, reader.file), singly);
      if (singly.cmd.empty()) singly.cmd = "[" + singly.name + "]";
      EXPECT_EQ(show(row.file, singly), row.expected);
      Data whole = kUsed;
      EXPECT_EQ(Unix::get_proc_data(child, whole), 0);
      EXPECT_EQ(show(row.file, whole), row.expected);
    }
  });
}

TEST(CUnixProc, ReaderFailuresLeaveTheOutputAlone) {
  for (const auto& row : kReaders) {
    const std::pair<const char*, int> cases[] = {
        {"", row.empty}, {"/none", row.missing}, {"/etc", row.directory}};
    for (const auto& [path, code] : cases) {
      Data data = kUsed;
      EXPECT_EQ(row.read(path, data), code) << row.file << path;
      std::string all;
      for (const char* file : {"stat", "status", "cmdline", "environ"}) all += show(file, data);
      EXPECT_TRUE(code == 0 || all == "77 77 77 77old|oldold") << row.file << path << all;
    }
  }
  std::string text = "old";
  EXPECT_EQ(Unix::parse_args(nullptr, 4, text), 1);
  EXPECT_EQ(Unix::get_proc_name_ext("/dev/null", "/none", text), 10);
  EXPECT_EQ(text, "old");
  EXPECT_TRUE(Unix::is_number("") && !Unix::is_number("12a"));
}

TEST(CUnixProc, RealProcesses) {
  sandbox::run([] {
    const std::string program = "/etc/a-rather-long-program-name";
    fs::copy_file("/bin/sleep", program);
    std::vector<unsigned long> inodes;
    for (const int family : {AF_INET, AF_UNIX}) {
      struct stat status {};
      ::fstat(::socket(family, SOCK_DGRAM, 0), &status);
      inodes.push_back(status.st_ino);
    }
    const pid_t child = start_child("", [&] {
      if (::setresgid(1001, 0, 0) != 0 || ::setresuid(1000, 0, 0) != 0) ::_exit(1);
      const char* const envp[] = {"A=1", "B=two words", nullptr};
      ::execle(program.c_str(), "sleep", "600", nullptr, envp);
    });
    Data data;
    ASSERT_EQ(Unix::get_proc_data(child, data), 0);
    EXPECT_EQ(show("status", data), "a-rather-long-program-name 1000 1001");
    EXPECT_EQ(show("cmdline", data) + data.environ, "sleep 600|" + program + "A=1 B=two words");
    EXPECT_EQ(std::pair(data.pid, data.ppid), std::pair(child, ::getpid()));
    EXPECT_NEAR(static_cast<double>(data.start_time), static_cast<double>(std::time(nullptr)), 3);
    EXPECT_EQ(data.inodes, inodes);
    EXPECT_EQ(Unix::get_socket_inodes(proc_path(child, "fd"), inodes), 0);
    EXPECT_EQ(inodes.size(), 4U) << "appended";

    const pid_t zombie = start_child("a) b");
    EXPECT_EQ(Unix::kill_proc(zombie), 0);
    ::waitid(P_PID, static_cast<id_t>(zombie), nullptr, WEXITED | WNOWAIT);
    Data rest;
    EXPECT_EQ(Unix::get_proc_data(zombie, rest), 0);
    EXPECT_EQ(rest.name + rest.cmd + rest.path + rest.environ, "a)[a)]");

    std::string path = "old";
    EXPECT_EQ(Unix::get_path_name(-1, path), 1);
    EXPECT_EQ(Unix::get_path_name(zombie, path), 0);
    EXPECT_EQ(path, "old");
    fs::create_symlink(" /etc/to \t", "/etc/link");
    EXPECT_EQ(Unix::get_proc_name_ext("/dev/null", "/etc/link", path), 0);
    EXPECT_EQ(path, "/etc/to");
    Lines paths = {program};
    EXPECT_EQ(Unix::get_all_path_name(paths), 0);
    EXPECT_EQ(paths, (Lines{program, fs::read_symlink("/proc/1/exe"),
                            fs::read_symlink("/proc/self/exe")}));
    sandbox::write_file("/etc/fake/exe", "");
    sandbox::bind_path("/etc/fake", proc_path(child, ""));
    EXPECT_EQ(Unix::get_all_path_name(paths), 9);
  });
}

TEST(CUnixProc, WalkCodesAndVanishedProcesses) {
  const struct {
    const char *file, *source;
    int code;
    const char* name;
  } rows[] = {
      {"status", "/etc/fake/status", 12, ""},
      {"cmdline", "/etc/fake/status", 12, "who"},
      {"stat", "/etc/fake/status", 12, "who"},
      {"environ", "/etc/fake/status", 0, "proc_test"},
      {"status", "/proc/self/mem", 9, ""},
      {"cmdline", "/proc/self/mem", 9, "who"},
      // Existence is asked first: without a cmdline, an unreadable status is no failure.
      {"", "/etc/fake", 0, ""},
  };
  sandbox::run([&rows] {
    // A socket: a file that exists and that nobody can open.
    fs::create_directory("/etc/fake");
    const sockaddr_un socket{AF_UNIX, "/etc/fake/status"};
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(fd, reinterpret_cast<const sockaddr*>(&socket), sizeof socket), 0);
    for (const auto& row : rows) {
      const pid_t child = start_child("who");
      sandbox::bind_path(row.source, proc_path(child, row.file));
      Data data;
      EXPECT_EQ(Unix::get_proc_data(child, data), row.code) << row.file << row.source;
      EXPECT_EQ(std::pair(data.pid, data.name), std::pair(child, std::string(row.name)));
      EXPECT_EQ(walk_all(), row.code) << row.file << row.source;
      EXPECT_TRUE(::kill(child, SIGKILL) == 0 && was_killed(child));
    }
    int calls = 0;
    const auto stop = [](const Data&, void* ctx) { return ++*static_cast<int*>(ctx); };
    EXPECT_EQ(Unix::get_all_proc_data(stop, &calls), 13);
    EXPECT_EQ(calls, 1);

    // The process ends between its status and its cmdline.
    ::mkfifo("/etc/fifo", 0600);
    const pid_t child = start_child("");
    sandbox::bind_path("/etc/fifo", proc_path(child, "status"));
    std::thread ender([child] {
      const int fifo = ::open("/etc/fifo", O_WRONLY | O_CLOEXEC);
      ::kill(child, SIGKILL);
      EXPECT_TRUE(was_killed(child));
      EXPECT_EQ(::write(fifo, "Name: gone\nUid: 5\n", 18), 18);
      ::close(fifo);
    });
    Data data;
    EXPECT_EQ(Unix::get_proc_data(child, data), 0);
    ender.join();
    EXPECT_EQ(show("status", data) + show("cmdline", data), "gone 0 0|");

    const pid_t busy = start_child("", [] {
      ::execl("/bin/sh", "sh", "-c", "for i in $(seq 500); do : & : & : & : & wait; done", nullptr);
    });
    while (::waitpid(busy, nullptr, WNOHANG) == 0) ASSERT_EQ(walk_all(), 0);
    sandbox::bind_path("/etc/fake/status", "/proc/stat");
    EXPECT_EQ(walk_all(), 12);
  });
}

TEST(CUnixProc, CreateProc) {
  sandbox::run([] {
    // Run for the blank in its directory. The session may be led by the shell.
    const char report[] =
        "#!/bin/sh\nexec > /etc/report\nsession=$(cut -d' ' -f6 /proc/$$/stat)\n"
        "printf '<%s>' \"$@\" \"$PWD\" $(id -u) $(id -g) \"$A${HOME-}\" $(cut -d' ' -f4,7 "
        "/proc/$session/stat) $(readlink /proc/$$/fd/0 /proc/$$/fd/2 /proc/$$/fd/99)\n";
    const std::string tail = "<a><1><0></dev/null></dev/null>";
    sandbox::write_file("/etc/my", report, 0755);
    for (const char* file : {"/etc/my app/b;-_1.sh", "/etc/my c"}) sandbox::write_file(file, "");
    fs::create_directory_symlink("/etc/my app", "/etc/link");
    fs::create_directory_symlink("/etc/link", "/etc/link2");
    ASSERT_EQ(::mkfifo("/etc/report", 0) + ::chmod("/etc/report", 0666) + ::chdir("/etc"), 0);
    sandbox::record_shell(true);
    sigset_t blocked;
    ::sigfillset(&blocked);
    ::sigprocmask(SIG_SETMASK, &blocked, nullptr);
    ::dup2(::open("/dev/null", O_RDONLY | O_CLOEXEC), 99);
    std::string variables[] = {"A=a", "PATH=/etc:/usr/bin"};
    char* envp[] = {variables[0].data(), variables[1].data(), nullptr};
    const struct {
      const char *sentence, *executable, *args, *dir, *user, *report;
    } rows[] = {
        {"an unknown user", "/etc/my app/b;-_1.sh", "'x y' z", "/etc/my app", "no-such-user",
         "<app/b;-_1.sh><x y><z></etc/my app><0><0>"},
        {"no directory in the path", "my c", "", "/etc/link", "", "<c></etc/my app><0><0>"},
        {"a user, and an old kernel", "/etc/my", "", "/", "nobody", "</><65534><65534>"},
    };
    for (const auto& row : rows) {
      if (row.user == "nobody"s) refuse_close_range();
      ASSERT_EQ(Unix::create_proc(row.executable, row.args, row.dir, row.user, envp), 0);
      EXPECT_EQ(sandbox::read_file("/etc/report"), row.report + tail) << row.sentence;
    }
    EXPECT_EQ(sandbox::shell_commands(), (Lines{R"(/etc/my app/b\;\-\_1\.sh 'x y' z)", "my c "}));
    // Shells clear the signal mask; see what this one got.
    sandbox::write_file("/etc/sh", "#!/bin/bash\ngrep SigBlk /proc/self/status >/etc/report", 0755);
    sandbox::bind_path("/etc/sh", fs::canonical("/bin/sh"));
    ASSERT_EQ(Unix::create_proc("/etc/my", "", "/", "", envp), 0);
    EXPECT_EQ(sandbox::read_file("/etc/report"), "SigBlk:\t0000000000000000\n");
    const Lines refused[] = {{"", "/"},
                             {"/etc", "/"},
                             {"/etc/my", ""},
                             {"/etc/my", "/etc/my"},
                             {"/etc/my", "/etc/link2"}};
    for (const auto& row : refused) {
      EXPECT_EQ(Unix::create_proc(row[0], "", row[1], "", envp), 1) << row[0] << " " << row[1];
    }
  });
}

TEST(CUnixProc, KillProcesses) {
  sandbox::run([] {
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
    const std::string restarted = "restarted";
    std::vector<int> dead;
    Unix::ProcFilterCtx kept{&restarted, &dead};
    EXPECT_EQ(Unix::get_all_proc_data(Unix::filter_procs_by_procname, &kept), 0);
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
    const std::string name = "the-grandchild";
    std::vector<int> pids;
    Unix::ProcFilterCtx ctx{&name, &pids};
    EXPECT_EQ(Unix::get_all_proc_data(Unix::filter_procs_by_procname, &ctx), 0);
    EXPECT_EQ(pids.size(), 1U);
  });
}

TEST(CUnixProc, MappedFiles) {
  sandbox::run([] {
    const std::string head = "7f0000000000-7f0000001000 r-xp 00000000 08:01 42 ";
    const std::string cut = "/" + std::string(1023 - head.size() - 1, 'l');
    std::string text;
    for (const auto& end : {"      /lib/b.so"s, "/lib/a.so"s, ""s, "/lib/b.so"s, "/c (deleted)"s,
                            "[heap]"s, "/with a blank"s, "/odd["s, cut + std::string(999, 'l')}) {
      text += head + end + "\n";
    }
    const pid_t child = start_child("");
    sandbox::bind_content(proc_path(child, "maps"), text);
    Lines paths = {"kept"};
    EXPECT_EQ(Unix::one_proc_infos(std::to_string(child).c_str(), paths), 0);
    EXPECT_EQ(paths, (Lines{"kept", "/lib/b.so", "/lib/a.so", "/lib/b.so", "/with", "/odd[", cut}));
    EXPECT_EQ(Unix::one_proc_infos("nobody", paths), 12);
    sandbox::bind_content(proc_path(start_child(""), "maps"), head);
    std::vector<Unix::UnixProcMapInfo> infos;
    EXPECT_EQ(Unix::get_all_proc_map_info(infos), 0);
    ASSERT_EQ(infos.size(), 3U) << "init, this process and the child that maps files";
    EXPECT_EQ(infos[2].maps, (Lines{"/lib/a.so", "/lib/b.so", cut, "/odd[", "/with"}));
    const Lines& own = infos[1].maps;
    EXPECT_EQ(std::count(own.begin(), own.end(), fs::read_symlink("/proc/self/exe")), 1);
  });
}
