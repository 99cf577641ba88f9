#include "utility/CUnixProc.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <map>
#include <set>
#include <thread>

#include "proc/child.h"
#include "support/cases.h"
#include "support/sandbox.h"

namespace fs = std::filesystem;
using Unix = utility::CUnixProc;
using Data = Unix::UnixProcData;
using Lines = std::vector<std::string>;
using namespace std::string_literals;

namespace {

const Data kUsed{"", 77, 77, 77, 77, "old", "old", "old", {}, 77};

using Reader = std::function<int(const std::string& path, Data& data)>;

// The readers of single files: the field and the file.
const std::map<std::string, std::pair<std::string, Reader>> kReaders = {
    {"stat", {"stat", [](auto& p, auto& d) { return Unix::get_info(p, d.ppid, d.start_time); }}},
    {"uid", {"status", [](auto& p, auto& d) { return Unix::get_uid(p, d.uid); }}},
    {"gid", {"status", [](auto& p, auto& d) { return Unix::get_gid(p, d.gid); }}},
    {"name", {"status", [](auto& p, auto& d) { return Unix::get_proc_name(p, d.name); }}},
    {"cmd", {"cmdline", [](auto& p, auto& d) { return Unix::get_cmd(p, d.cmd); }}},
    {"path",
     {"cmdline",
      [](auto& p, auto& d) { return Unix::get_proc_name_ext(p, "/proc/self/exe", d.path); }}},
    {"environ", {"environ", [](auto& p, auto& d) { return Unix::get_proc_environ(p, d.environ); }}},
    {"inodes", {"fd", [](auto& p, auto& d) { return Unix::get_socket_inodes(p, d.inodes); }}}};

// The fields that `row` has.
void expect(const Case& row, const Data& data) {
  const bool is_own = data.path == fs::read_symlink("/proc/self/exe");
  const std::map<std::string, std::string> seen = {{"name", data.name},
                                                   {"cmd", data.cmd},
                                                   {"path", is_own ? "exe" : data.path},
                                                   {"environ", data.environ},
                                                   {"ppid", std::to_string(data.ppid)},
                                                   {"uid", std::to_string(data.uid)},
                                                   {"gid", std::to_string(data.gid)},
                                                   {"start_time", std::to_string(data.start_time)}};
  for (const auto& [name, value] : seen) {
    if (row.has(name)) row.expect(name, value);
  }
}

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

// The failures of readers leave the output alone.
void check_reader(const Case& row) {
  const Reader& read = kReaders.at(row["of"]).second;
  for (const auto& [name, path] :
       {std::pair("empty", ""), {"missing", "/none"}, {"directory", "/etc"}}) {
    Data data = kUsed;
    row.expect(name, read(path, data));
    const bool is_kept = data.ppid == 77 && data.uid == 77 && data.gid == 77 &&
                         data.start_time == 77 &&
                         data.name + data.cmd + data.path + data.environ == "oldoldold";
    EXPECT_TRUE(is_kept || row.number(name) == 0) << name;
  }
}

void check_walk(const Case& row) {
  const pid_t child = start_child("who");
  sandbox::bind_path(row["source"], proc_path(child, row["file"]));
  Data data;
  row.expect("result", Unix::get_proc_data(child, data));
  row.expect("name", data.name);
  row.expect("result", walk_all());
  EXPECT_TRUE(::kill(child, SIGKILL) == 0 && was_killed(child));
}

void check_refused(const Case& row) {
  EXPECT_EQ(Unix::create_proc(row["executable"], "", row["dir"], "", nullptr), 1);
}

// Run for the blank in its directory. The session may be led by the shell.
const char kReport[] =
    "#!/bin/sh\nexec > /etc/report\nsession=$(cut -d' ' -f6 /proc/$$/stat)\n"
    "printf '<%s>' \"$@\" \"$PWD\" $(id -u) $(id -g) \"$A${HOME-}\" $(cut -d' ' -f4,7 "
    "/proc/$session/stat) $(readlink /proc/$$/fd/0 /proc/$$/fd/2 /proc/$$/fd/99)\n";
const std::string kReportEnd = "<a><1><0></dev/null></dev/null>";
std::string variables[] = {"A=a", "PATH=/etc:/usr/bin"};
char* envp[] = {variables[0].data(), variables[1].data(), nullptr};

void check_daemon(const Case& row) {
  ASSERT_EQ(Unix::create_proc(row["executable"], row["args"], row["dir"], row["user"], envp), 0);
  EXPECT_EQ(sandbox::read_file("/etc/report"), row["report"] + kReportEnd);
  EXPECT_EQ(sandbox::shell_commands(), row.all("command"));
}

}  // namespace

TEST(CUnixProc, FilesOfAProcess) {
  sandbox::bind_content("/proc/stat", "cpu 1 2 3\nbtime 1000000\nprocesses 5\n");
  for (const char* file : {"/etc/tool", "/etc/b0t", "/etc/x"}) sandbox::write_file(file, "");
  const pid_t child = start_child("proc_test");
  std::set<std::string> bound;
  const auto file = [&](const char* name) {
    return std::pair(name == "environ"s ? "environ_file" : name,
                     [&bound, child, name = std::string(name)](const Case& row) {
                       const std::string fixture =
                           sandbox::write_file("/etc/fixture-" + name, row["text"]);
                       if (bound.insert(name).second)
                         sandbox::bind_path(fixture, proc_path(child, name));
                       Data singly = kUsed, whole = kUsed;
                       for (const auto& [field, reader] : kReaders) {
                         if (reader.first == name) reader.second(proc_path(child, name), singly);
                       }
                       if (singly.cmd.empty()) singly.cmd = "[proc_test]";
                       expect(row, singly);
                       EXPECT_EQ(Unix::get_proc_data(child, whole), 0);
                       expect(row, whole);
                     });
  };
  // A socket: a file that exists and that nobody can open.
  fs::create_directory("/etc/fake");
  ASSERT_EQ(::mknod("/etc/fake/status", S_IFSOCK | 0600, 0), 0);
  // A daemon's report goes through a pipe, so that it is waited for.
  sandbox::write_file("/etc/my", kReport, 0755);
  for (const char* name : {"/etc/my app/b;-_1.sh", "/etc/my c"}) sandbox::write_file(name, "");
  fs::create_directory_symlink("/etc/my app", "/etc/link");
  fs::create_directory_symlink("/etc/link", "/etc/link2");
  ASSERT_EQ(::mkfifo("/etc/report", 0) + ::chmod("/etc/report", 0666) + ::chdir("/etc"), 0);
  sandbox::record_shell(true);
  sigset_t blocked;
  ::sigfillset(&blocked);
  ::sigprocmask(SIG_SETMASK, &blocked, nullptr);
  ::dup2(::open("/dev/null", O_RDONLY | O_CLOEXEC), 99);
  for_each_case(FIXTURES "/files.txt", {file("cmdline"),
                                        file("environ"),
                                        file("stat"),
                                        file("status"),
                                        {"reader", check_reader},
                                        {"walk", check_walk},
                                        {"daemon", check_daemon},
                                        {"refused", check_refused}});
  std::string text = "old";
  EXPECT_EQ(Unix::parse_args(nullptr, 4, text), 1);
  EXPECT_EQ(Unix::get_proc_name_ext("/dev/null", "/none", text), 10);
  EXPECT_EQ(text, "old");
  EXPECT_TRUE(Unix::is_number("") && !Unix::is_number("12a"));

  refuse_close_range();
  ASSERT_EQ(Unix::create_proc("/etc/my", "", "/", "nobody", envp), 0);
  EXPECT_EQ(sandbox::read_file("/etc/report"), "</><65534><65534>" + kReportEnd) << "an old kernel";
  // Shells clear the signal mask; see what this one got.
  sandbox::write_file("/etc/sh", "#!/bin/bash\ngrep SigBlk /proc/self/status >/etc/report", 0755);
  sandbox::bind_path("/etc/sh", fs::canonical("/bin/sh"));
  ASSERT_EQ(Unix::create_proc("/etc/my", "", "/", "", envp), 0);
  EXPECT_EQ(sandbox::read_file("/etc/report"), "SigBlk:\t0000000000000000\n");
}

TEST(CUnixProc, RealProcesses) {
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
  EXPECT_EQ(data.name + " " + data.cmd, "a-rather-long-program-name sleep 600");
  EXPECT_EQ(data.path + " " + data.environ, program + " A=1 B=two words");
  EXPECT_EQ(std::pair(data.uid, data.gid), std::pair(1000U, 1001U));
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
  EXPECT_EQ(paths,
            (Lines{program, fs::read_symlink("/proc/1/exe"), fs::read_symlink("/proc/self/exe")}));
  sandbox::write_file("/etc/fake/exe", "");
  sandbox::bind_path("/etc/fake", proc_path(child, ""));
  EXPECT_EQ(Unix::get_all_path_name(paths), 9);
}

TEST(CUnixProc, WalksMeetVanishedProcesses) {
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
  EXPECT_EQ(data.name + data.cmd + data.path + std::to_string(data.uid), "gone0");

  const pid_t busy = start_child("", [] {
    ::execl("/bin/sh", "sh", "-c", "for i in $(seq 500); do : & : & : & : & wait; done", nullptr);
  });
  while (::waitpid(busy, nullptr, WNOHANG) == 0) ASSERT_EQ(walk_all(), 0);
  ASSERT_EQ(::mknod("/etc/socket", S_IFSOCK | 0600, 0), 0);
  sandbox::bind_path("/etc/socket", "/proc/stat");
  EXPECT_EQ(walk_all(), 12) << "no boot time";
}

TEST(CUnixProc, MappedFiles) {
  const std::string cut = "/" + std::string(973, 'l');  // its line has 1,023 bytes then
  const pid_t child = start_child("");
  sandbox::bind_path(FIXTURES "/maps", proc_path(child, "maps"));
  Lines paths = {"kept"};
  EXPECT_EQ(Unix::one_proc_infos(std::to_string(child).c_str(), paths), 0);
  EXPECT_EQ(paths, (Lines{"kept", "/lib/b.so", "/lib/a.so", "/lib/b.so", "/with", "/odd[", cut}));
  EXPECT_EQ(Unix::one_proc_infos("nobody", paths), 12);
  sandbox::bind_content(proc_path(start_child(""), "maps"), "");
  std::vector<Unix::UnixProcMapInfo> infos;
  EXPECT_EQ(Unix::get_all_proc_map_info(infos), 0);
  ASSERT_EQ(infos.size(), 3U) << "init, this process and the child that maps files";
  EXPECT_EQ(infos[2].maps, (Lines{"/lib/a.so", "/lib/b.so", cut, "/odd[", "/with"}));
  const Lines& own = infos[1].maps;
  EXPECT_EQ(std::count(own.begin(), own.end(), fs::read_symlink("/proc/self/exe")), 1);
}
