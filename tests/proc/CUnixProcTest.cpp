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
#include <thread>

#include "support/cases.h"
#include "support/child.h"
#include "support/sandbox.h"

namespace fs = std::filesystem;
using Unix = utility::CUnixProc;
using Data = Unix::UnixProcData;

namespace {

// A field of the record of the process CHILD.
std::string child_field(const std::string& field) {
  Data data{"", 77, 77, 77, 77, "old", "old", "old", {}, 77};
  EXPECT_EQ(Unix::get_proc_data(std::stoi(std::getenv("CHILD")), data), 0);
  if (data.path == fs::read_symlink("/proc/self/exe")) data.path = "exe";
  const std::map<std::string, std::string> fields = {
      {"name", data.name},
      {"cmd", data.cmd},
      {"path", data.path},
      {"environ", data.environ},
      {"ppid", std::to_string(data.ppid)},
      {"uid", std::to_string(data.uid)},
      {"gid", std::to_string(data.gid)},
      {"start_time", std::to_string(data.start_time)}};
  return fields.at(field);
}

int count_inodes(const std::string& dir) {
  std::vector<unsigned long> inodes;
  return Unix::get_socket_inodes(dir, inodes);
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

// What a record and a walk say where `source` stands over a file of a process.
Words walk(const std::string& source, const std::string& file) {
  const pid_t who = start_child("who");
  sandbox::bind_path(source, proc_path(who, file));
  Data data;
  const int result = Unix::get_proc_data(who, data);
  const int walked = walk_all();
  EXPECT_TRUE(::kill(who, SIGKILL) == 0 && was_killed(who));
  return texts(result, data.name, walked);
}

std::string variables[] = {"A=a", "PATH=/etc:/usr/bin"};
char* envp[] = {variables[0].data(), variables[1].data(), nullptr};

int parse_nothing(std::string& text) { return Unix::parse_args(nullptr, 4, text); }

int create(const std::string& program, const std::string& args, const std::string& dir,
           const std::string& user) {
  sigset_t all, before;
  ::sigfillset(&all);
  ::sigprocmask(SIG_SETMASK, &all, &before);
  const int result = Unix::create_proc(program, args, dir, user, envp);
  ::sigprocmask(SIG_SETMASK, &before, nullptr);
  return result;
}

}  // namespace

TEST(CUnixProc, FilesOfAProcess) {
  ::setenv("CHILD", std::to_string(start_child("proc_test")).c_str(), 1);
  ::dup2(::open("/dev/null", O_RDONLY | O_CLOEXEC), 99);
  run_cases(FIXTURES "/files.txt", {{"child", call(child_field)},
                                    {"get_info", call(Unix::get_info)},
                                    {"get_uid", call(Unix::get_uid)},
                                    {"get_gid", call(Unix::get_gid)},
                                    {"get_proc_name", call(Unix::get_proc_name)},
                                    {"get_cmd", call(Unix::get_cmd)},
                                    {"get_proc_name_ext", call(Unix::get_proc_name_ext)},
                                    {"get_proc_environ", call(Unix::get_proc_environ)},
                                    {"get_socket_inodes", call(count_inodes)},
                                    {"walk", call(walk)},
                                    {"create_proc", call(create)},
                                    {"parse_args", call(parse_nothing)},
                                    {"is_number", call(Unix::is_number)},
                                    {"refuse_close_range", call(refuse_close_range)}});
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
    const char* const given[] = {"A=1", "B=two words", nullptr};
    ::execle(program.c_str(), "sleep", "600", nullptr, given);
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
  for (const int pid : {zombie, 0}) EXPECT_EQ(Unix::get_path_name(pid, path), 0);
  EXPECT_EQ(path, "old");
  fs::create_symlink(" /etc/to \t", "/etc/link");
  EXPECT_EQ(Unix::get_proc_name_ext("/dev/null", "/etc/link", path), 0);
  EXPECT_EQ(path, "/etc/to");
  Words paths = {program};
  EXPECT_EQ(Unix::get_all_path_name(paths), 0);
  EXPECT_EQ(paths,
            (Words{program, fs::read_symlink("/proc/1/exe"), fs::read_symlink("/proc/self/exe")}));
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
    ::execl("/bin/sh", "sh", "-c", "for i in $(seq 200); do : & : & : & : & wait; done", nullptr);
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
  Words paths = {"kept"};
  EXPECT_EQ(Unix::one_proc_infos(std::to_string(child).c_str(), paths), 0);
  EXPECT_EQ(paths, (Words{"kept", "/lib/b.so", "/lib/a.so", "/lib/b.so", "/with", "/odd[", cut}));
  EXPECT_EQ(Unix::one_proc_infos("nobody", paths), 12);
  sandbox::bind_path(sandbox::write_file("empty", ""), proc_path(start_child(""), "maps"));
  std::vector<Unix::UnixProcMapInfo> infos;
  EXPECT_EQ(Unix::get_all_proc_map_info(infos), 0);
  ASSERT_EQ(infos.size(), 3U) << "init, this process and the child that maps files";
  EXPECT_EQ(infos[2].pid, child);
  EXPECT_EQ(infos[2].maps, (Words{"/lib/a.so", "/lib/b.so", cut, "/odd[", "/with"}));
  const Words& own = infos[1].maps;
  EXPECT_EQ(std::count(own.begin(), own.end(), fs::read_symlink("/proc/self/exe")), 1);
}
