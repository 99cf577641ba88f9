#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <sstream>

#include "net/socket_table.h"
#include "support/cases.h"
#include "support/sandbox.h"
#include "utility/CNetInfo.h"
#include "utility/CUnixNetlink.h"
#include "utility/CUnixProcNet.h"

using namespace utility;

namespace {

using Texts = std::vector<std::string>;

// A line as the kernel writes it.
std::string kernel_line(bool v4, int port) {
  char text[256];
  std::snprintf(text, sizeof text,
                "   0: %s:%04X %s 00000000:00000000 00:00000000 00000000     0        0 %s 1 0\n",
                v4 ? "0100007F" : "B80D0120000000000000000001000000", static_cast<unsigned>(port),
                v4 ? "00000000:0000 0A" : "0000000000000000FFFF00000100007F:01BB 01",
                v4 ? "12345" : "4294967295");
  return text;
}

// Any of the records as "protocol local:port remote:port state".
template <class Record>
std::string text(const Record& r) {
  std::ostringstream text;
  text << r.protocol << ' ' << r.local_addr << ':' << r.local_port << ' ' << r.remote_addr << ':'
       << r.remote_port << ' ' << r.state;
  return text.str();
}

template <class Class, class Record>
void check_line(const Case& row, int failure, const char* listening, const char* no_port) {
  const auto resolve = row["family"] == "4" ? Class::resolve_v4_data : Class::resolve_v6_data;
  Record record{};
  record.protocol = record.state = "kept";
  record.inode = 5;
  const bool is_line = row.has("state");
  EXPECT_EQ(resolve(row["text"].c_str(), record), is_line ? 0 : failure);
  EXPECT_EQ(record.protocol, "kept");
  if (!is_line) {
    EXPECT_TRUE(record.local_addr.empty() && record.state == "kept" && record.inode == 5);
    return;
  }
  std::ostringstream local, remote;
  local << record.local_port;
  remote << record.remote_port;
  row.expect("local_addr", record.local_addr);
  row.expect("remote_addr", record.remote_addr);
  row.expect("local_port", local.str());
  EXPECT_EQ(remote.str(), row["remote_port"] == "0" ? no_port : row["remote_port"]);
  EXPECT_EQ(record.state, row["state"] == "LISTEN" ? listening : row["state"]);
  EXPECT_EQ(record.inode, static_cast<decltype(record.inode)>(row.number("inode")));
}

TEST(SocketLine, IsReadByTheThreeClasses) {
  const auto line = [](const Case& row) {
    const bool v4 = row["family"] == "4";
    check_line<CNetInfo, CNetInfo::NetLinkInfo>(row, -1, "LISTEN", "*");
    check_line<CUnixNetlink, CUnixNetlink::NetLinkInfo>(row, v4 ? 1 : 2, "LISTEN", "0");
    check_line<CUnixProcNet, CUnixProcNet::NetInfo>(row, v4 ? 6 : 7, "LISTENING", "0");
  };
  const auto state = [](const Case& row) {
    const auto number = static_cast<unsigned>(row.number("number"));
    row.expect("name", CNetInfo::state2str(number));
    row.expect("name", CUnixNetlink::state2str(number));
    EXPECT_EQ(CUnixProcNet::state2str(number), number == 10 ? "LISTENING" : row["name"]);
  };
  for_each_case(FIXTURES "/socket_lines.txt", {{"line", line}, {"state", state}});
}

// What is done by hand for speed, against the C library's own.
TEST(SocketLine, FastPathsAgreeWithTheirDefinitions) {
  for (const int family : {AF_INET, AF_INET6}) {
    const std::string line = kernel_line(family == AF_INET, 80);
    for (std::size_t at = 0; at < line.size(); ++at) {
      for (const char* put : {"", "0", "9", "A", "Fa", "x", ":", "-", "  ", "\t", "98765432101"}) {
        const std::string text = std::string(line).replace(at, 1, put);
        detail::SocketLine quick{};
        detail::SocketLine defined{};
        if (!detail::scan_kernel_layout(family, text.c_str(), quick)) {
          EXPECT_NE(text, line) << "as the kernel writes it";
          continue;
        }
        EXPECT_TRUE(detail::scan_by_format(family, text.c_str(), defined)) << text;
        EXPECT_EQ(std::memcmp(&quick, &defined, sizeof quick), 0) << text;
        const in_addr address{quick.local_addr[0]};
        EXPECT_EQ(CNetInfo::addr2str(AF_INET, &address), ::inet_ntoa(address));
      }
    }
  }
  for (const auto addr2str : {CNetInfo::addr2str, CUnixNetlink::addr2str, CUnixProcNet::addr2str}) {
    EXPECT_EQ(addr2str(AF_INET6, &in6addr_loopback) + addr2str(AF_UNIX, "none"), "::1");
  }
}

template <class Row, class Record>
void check_file(int (*read)(const Row&, std::vector<Record>&), const std::string& file,
                const std::string& blanks_and_a, int failure) {
  const auto resolve = [](const char* line, Record& record) {
    EXPECT_EQ(record.local_addr + record.protocol, "") << "fresh for each line";
    record.local_addr = line;
    return record.local_addr == "xx" ? 1 : 0;
  };
  std::vector<Record> records(1);
  // NOLINTNEXTLINE(readability-redundant-string-cstr): two of the classes have plain pointers
  EXPECT_EQ(read({file.c_str(), "word", resolve}, records), 0);
  EXPECT_EQ(read({"/none", "word", resolve}, records), failure);
  Texts lines;
  for (const Record& record : records) lines.push_back(record.protocol + ":" + record.local_addr);
  const std::string x(1024, 'x');
  EXPECT_EQ(lines, (Texts{":", "word:hhhhhh", "word:" + blanks_and_a, "word:" + x, "word:nul",
                          "word:" + x.substr(1), "word:", "word:last"}));
}

TEST(SocketTable, IsCutIntoLines) {
  const std::string x(1024, 'x');
  const std::string file = sandbox::scratch() + "/table";
  sandbox::write_file(file, std::string(1030, 'h') + "\n  a \r\n" + x + "xx\n" +
                                std::string("nul\0hidden\n", 11) + x.substr(1) + "\n\nlast");
  check_file(CNetInfo::resolve_netlink_file, file, "a", -1);
  check_file(CUnixNetlink::resolve_netlink_file, file, "a", 3);
  check_file(CUnixProcNet::resolve_net_file, file, "  a \r", 3);
}

// What a reading of all tables gives: "protocol:port " for each socket, and the result.
template <class Record>
std::string read_all(int (*get)(std::vector<Record>&), std::vector<Record> records = {}) {
  const int result = get(records);
  std::ostringstream text;
  for (const Record& r : records) text << r.protocol << ':' << r.local_port << ' ';
  return text.str() + std::to_string(result);
}

// The same of each class, the tables of CUnixProcNet being those below the scratch directory.
Texts read_by_all() {
  const auto below = [](auto& nets) {
    return CUnixProcNet::get_net_info(sandbox::scratch(), nets);
  };
  return {read_all(CNetInfo::get_all_netlink_info), read_all(CUnixNetlink::get_all_netlink_infos),
          read_all<CUnixProcNet::NetInfo>(below)};
}

TEST(SocketTable, AllAreReadInTheirOrder) {
  const std::string net = sandbox::scratch() + "/proc/net/";
  const char* names[] = {"tcp", "tcp4", "tcp6", "udp", "udp4", "udp6"};
  for (int i = 5; i >= 0; --i) {
    sandbox::write_file(net + names[i], "header\n" + kernel_line(i % 3 != 2, i + 1));
  }
  sandbox::bind_path(net, "/proc/self/net");
  EXPECT_EQ(read_by_all(), Texts(3, "tcp:1 tcp:2 tcp6:3 udp:4 udp:5 udp6:6 0"));
  std::vector<CUnixProcNet::NetResolve> files;
  for (const char* from : {"", "/", "//"}) CUnixProcNet::init_net_file(from, files);
  EXPECT_EQ(files.at(2).file + files.at(8).file, "/proc/net/tcp6/proc/net/tcp6");
  EXPECT_EQ(files.at(14).file, "///proc/net/tcp6");

  // A file that exists and cannot be opened, even by root.
  std::filesystem::remove(net + "tcp6");
  ASSERT_EQ(::mknod((net + "tcp6").c_str(), S_IFSOCK | 0600, 0), 0);
  const std::string rest = "tcp:1 tcp:2 udp:4 udp:5 udp6:6 0";
  EXPECT_EQ(read_by_all(), (Texts{rest, "tcp:1 tcp:2 3", rest}));

  for (const char* name : names) std::filesystem::remove(net + name);
  EXPECT_EQ(read_by_all(), (Texts{"16", "0", "0"}));
  EXPECT_EQ(read_all(CNetInfo::get_all_netlink_info, {{}}), ": 0") << "filled before the call";
}

std::string port_of(int fd) {
  sockaddr_in6 address{};  // has its port where IPv4 has it
  socklen_t size = sizeof address;
  EXPECT_EQ(::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size), 0);
  return std::to_string(ntohs(address.sin6_port));
}

// Opens a socket, listening if it is one that can, on a port that the kernel chooses.
int open_socket(int family, int type) {
  const int fd = ::socket(family, type | SOCK_CLOEXEC, 0);
  sockaddr_in6 any{};
  any.sin6_family = static_cast<sa_family_t>(family);
  EXPECT_EQ(::bind(fd, reinterpret_cast<const sockaddr*>(&any), sizeof any), 0);
  EXPECT_EQ(type == SOCK_STREAM ? ::listen(fd, 4) : 0, 0);
  return fd;
}

Texts held_sockets(int result = 0) {
  std::vector<CUnixProcNet::ProcNetInfo> held;
  EXPECT_EQ(CUnixProcNet::get_proc_net_info(held), result);
  Texts all;
  for (const auto& record : held) all.push_back(std::to_string(record.pid) + " " + text(record));
  return all;
}

TEST(ProcNet, ReadsRealSocketsAndTheirHolder) {
  std::vector<unsigned long> inodes;
  EXPECT_EQ(CUnixProcNet::get_proc_socket_inodes(nullptr, inodes), 1);
  EXPECT_EQ(CUnixProcNet::get_proc_socket_inodes("/proc/self/fd", inodes), 2);
  EXPECT_EQ(CUnixProcNet::get_proc_socket_inodes("/proc/self/none", inodes), 4);
  const std::string base(1021, 'b');
  EXPECT_EQ(CUnixProcNet::make_proc_path(base.c_str(), "n", "s"), base + "/n/");
  EXPECT_EQ(CUnixProcNet::make_proc_path(nullptr, "42", nullptr), "/proc/42");

  const std::string us = std::to_string(::getpid());
  const Texts expected{
      us + " tcp 0.0.0.0:" + port_of(open_socket(AF_INET, SOCK_STREAM)) + " 0.0.0.0:0 LISTENING",
      us + " udp6 :::" + port_of(open_socket(AF_INET6, SOCK_DGRAM)) + " :::0 CLOSE",
      us + " tcp6 :::" + port_of(open_socket(AF_INET6, SOCK_STREAM)) + " :::0 LISTENING"};
  EXPECT_EQ(held_sockets(), expected) << "in descriptor order, which is that of opening";

  EXPECT_EQ(CUnixProcNet::get_proc_socket_inodes("/proc/self/fd", inodes), 0);
  EXPECT_EQ(inodes.size(), expected.size());
  EXPECT_EQ(CUnixProcNet::get_proc_socket_inodes("/proc/self/net", inodes), 0) << "from before";
}

// Starts a process that holds a socket below `root` until the sandbox ends.
std::string start_listener(const std::string& root) {
  const int socket = open_socket(AF_INET, SOCK_STREAM);
  const std::string port = port_of(socket);
  const int pid = ::fork();
  if (pid == 0) ::_exit(::chroot(root.c_str()) == 0 ? ::raise(SIGSTOP) : 1);
  int status = 0;
  EXPECT_TRUE(::waitpid(pid, &status, WUNTRACED) == pid && WIFSTOPPED(status)) << root;
  ::close(socket);
  return std::to_string(pid) + " tcp 0.0.0.0:" + port + " 0.0.0.0:0 LISTENING";
}

TEST(ProcNet, MatchesEachProcessAgainstTheTablesOfItsRoot) {
  const std::string jail = sandbox::scratch() + "/jail";
  for (const char* dir : {"/proc", "/none"}) std::filesystem::create_directories(jail + dir);
  ASSERT_EQ(::mount("proc", (jail + "/proc").c_str(), "proc", 0, nullptr), 0);
  start_listener(sandbox::scratch());  // no /proc there: never reported
  const std::string free = start_listener("/");
  const std::string jailed = start_listener(jail);
  EXPECT_EQ(held_sockets(), (Texts{free, jailed}));

  // With nothing in our own tables the jailed process is still seen through its own, and nobody is
  // seen through, or held up by, what is no table of the kernel's.
  const std::string trap = sandbox::scratch() + "/trap/proc/net/";
  sandbox::write_file(trap + "udp", sandbox::read_file("/proc/net/tcp"));
  ASSERT_EQ(::mkfifo((trap + "tcp").c_str(), 0600), 0);
  std::filesystem::create_symlink("/dev/zero", trap + "tcp4");
  std::filesystem::create_symlink("/proc/kmsg", trap + "tcp6");
  start_listener(sandbox::scratch() + "/trap");
  sandbox::bind_path(jail + "/none", "/proc/self/net");
  EXPECT_EQ(held_sockets(), Texts{jailed});

  std::string target = "before";
  EXPECT_EQ(CUnixProcNet::get_link_src("/proc/1/status", target), 5);
  EXPECT_EQ(target, "before");
  EXPECT_EQ(CUnixProcNet::get_link_src("/proc/self", target), 0);
  EXPECT_EQ(target, std::to_string(::getpid()));
  ASSERT_EQ(::seteuid(65534), 0);
  EXPECT_EQ(CUnixProcNet::get_link_src("/proc/1/root", target), 0);
  EXPECT_EQ(target, "/") << "permission denied counts as the host's root";
  EXPECT_EQ(held_sockets(), Texts{}) << "root's processes are passed over";
  ASSERT_EQ(::seteuid(0) + ::chroot("/etc"), 0);
  EXPECT_EQ(held_sockets(4), Texts{}) << "no /proc at all";
}

}  // namespace
