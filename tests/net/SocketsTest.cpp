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

using S = std::string;

// A record as "protocol local:port remote:port state".
template <class Record>
S shown(const Record& r) {
  std::ostringstream text;
  text << r.protocol << ' ' << r.local_addr << ':' << r.local_port << ' ' << r.remote_addr << ':'
       << r.remote_port << ' ' << r.state;
  return text.str();
}

// The operations of a class; Row tells how its files are read.
template <class Class, class Record, class Row>
void add_calls(const S& name, int (*read_file)(const Row&, std::vector<Record>&),
               int (*read_all)(std::vector<Record>&), Calls& calls) {
  const auto line = [](int (*resolve)(const char*, Record&)) {
    return call([resolve](const char* text) {
      Record record{};
      record.protocol = record.state = "kept";
      record.inode = 5;
      const int result = resolve(text, record);
      return std::to_string(result) + " " + shown(record) + " " + std::to_string(record.inode);
    });
  };
  const auto file = [read_file](const char* path) {
    const auto resolve = [](const char* text, Record& record) {
      EXPECT_EQ(record.local_addr + record.protocol, "") << "fresh for each line";
      record.local_addr = text;
      return record.local_addr == "xx" ? 1 : 0;
    };
    std::vector<Record> records(1);
    Words lines = texts(read_file({path, "word", resolve}, records));
    for (const Record& r : records) lines.push_back(r.protocol + ":" + r.local_addr);
    return lines;
  };
  const auto all = [read_all](std::size_t before) {
    std::vector<Record> records(before);
    Words sockets = texts(read_all(records));
    for (const Record& r : records) {
      std::ostringstream text;
      text << r.protocol << ':' << r.local_port;
      sockets.push_back(text.str());
    }
    return sockets;
  };
  calls[name + ".v4"] = line(Class::resolve_v4_data);
  calls[name + ".v6"] = line(Class::resolve_v6_data);
  calls[name + ".state2str"] = call(Class::state2str);
  calls[name + ".file"] = call(file);
  calls[name + ".all"] = call(all);
}

int below_here(std::vector<CUnixProcNet::NetInfo>& nets) {
  return CUnixProcNet::get_net_info(sandbox::scratch(), nets);
}

Words net_files(const S& root) {
  std::vector<CUnixProcNet::NetResolve> files;
  CUnixProcNet::init_net_file(root, files);
  Words paths;
  for (const auto& file : files) paths.push_back(file.file);
  return paths;
}

int get_socket_inodes(const char* dir) {
  std::vector<unsigned long> inodes;
  return CUnixProcNet::get_proc_socket_inodes(dir, inodes);
}

TEST(SocketTable, LinesFilesAndTables) {
  Calls calls{{"init_net_file", call(net_files)},
              {"make_proc_path", call(CUnixProcNet::make_proc_path)},
              {"get_socket_inodes", call(get_socket_inodes)},
              {"get_link_src", call(CUnixProcNet::get_link_src)}};
  add_calls<CNetInfo>("CNetInfo", CNetInfo::resolve_netlink_file, CNetInfo::get_all_netlink_info,
                      calls);
  add_calls<CUnixNetlink>("CUnixNetlink", CUnixNetlink::resolve_netlink_file,
                          CUnixNetlink::get_all_netlink_infos, calls);
  add_calls<CUnixProcNet>("CUnixProcNet", CUnixProcNet::resolve_net_file, below_here, calls);
  run_cases(FIXTURES "/sockets.txt", calls);
}

// As the kernel writes them.
const S kLine4 =
    "   0: 0100007F:0050 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 "
    "12345 "
    "1 0\n";
const S kLine6 =
    "   0: B80D0120000000000000000001000000:0050 0000000000000000FFFF00000100007F:01BB 01 "
    "00000000:00000000 00:00000000 00000000     0        0 4294967295 1 0\n";

// What is done by hand for speed, against the C library's own.
TEST(SocketLine, FastPathsAgreeWithTheirDefinitions) {
  for (const int family : {AF_INET, AF_INET6}) {
    const S line = family == AF_INET ? kLine4 : kLine6;
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

Words held_sockets(int result = 0) {
  std::vector<CUnixProcNet::ProcNetInfo> held;
  EXPECT_EQ(CUnixProcNet::get_proc_net_info(held), result);
  Words all;
  for (const auto& record : held) all.push_back(std::to_string(record.pid) + " " + shown(record));
  return all;
}

TEST(ProcNet, ReadsRealSocketsAndTheirHolder) {
  const std::string us = std::to_string(::getpid());
  const Words expected{
      us + " tcp 0.0.0.0:" + port_of(open_socket(AF_INET, SOCK_STREAM)) + " 0.0.0.0:0 LISTENING",
      us + " udp6 :::" + port_of(open_socket(AF_INET6, SOCK_DGRAM)) + " :::0 CLOSE",
      us + " tcp6 :::" + port_of(open_socket(AF_INET6, SOCK_STREAM)) + " :::0 LISTENING"};
  EXPECT_EQ(held_sockets(), expected) << "in descriptor order, which is that of opening";

  std::vector<unsigned long> inodes;
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
  EXPECT_EQ(held_sockets(), (Words{free, jailed}));

  // With nothing in our own tables the jailed process is still seen through its own, and nobody is
  // seen through, or held up by, what is no table of the kernel's.
  const std::string trap = sandbox::scratch() + "/trap/proc/net/";
  sandbox::write_file(trap + "udp", sandbox::read_file("/proc/net/tcp"));
  ASSERT_EQ(::mkfifo((trap + "tcp").c_str(), 0600), 0);
  std::filesystem::create_symlink("/dev/zero", trap + "tcp4");
  std::filesystem::create_symlink("/proc/kmsg", trap + "tcp6");
  start_listener(sandbox::scratch() + "/trap");
  sandbox::bind_path(jail + "/none", "/proc/self/net");
  EXPECT_EQ(held_sockets(), Words{jailed});

  std::string target = "before";
  ASSERT_EQ(::seteuid(65534), 0);
  EXPECT_EQ(CUnixProcNet::get_link_src("/proc/1/root", target), 0);
  EXPECT_EQ(target, "/") << "permission denied counts as the host's root";
  EXPECT_EQ(held_sockets(), Words{}) << "root's processes are passed over";
  ASSERT_EQ(::seteuid(0) + ::chroot("/etc"), 0);
  EXPECT_EQ(held_sockets(4), Words{}) << "no /proc at all";
}

}  // namespace
