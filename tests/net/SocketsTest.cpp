#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <iomanip>
#include <random>
#include <regex>
#include <sstream>

#include "net/socket_table.h"
#include "support/alloc_fault.h"
#include "support/sandbox.h"
#include "support/temp_dir.h"
#include "utility/CNetInfo.h"
#include "utility/CUnixNetlink.h"
#include "utility/CUnixProcNet.h"

using namespace utility;

namespace {

using Texts = std::vector<std::string>;

// A line as the kernel writes it.
std::string kernel_line(bool v4, int port) {
  std::ostringstream line;
  line << "   0: " << (v4 ? "0100007F" : "B80D0120000000000000000001000000") << ':' << std::hex
       << std::uppercase << std::setfill('0') << std::setw(4) << port
       << (v4 ? " 00000000:0000 0A" : " 0000000000000000FFFF00000100007F:01BB 01")
       << " 00000000:00000000 00:00000000 00000000     0        0 " << (v4 ? "12345" : "4294967295")
       << " 1 0000000000000000 100 0 0 10 0\n";
  return line.str();
}

// Any of the records as "protocol local:port remote:port state".
template <class Record>
std::string text(const Record& r) {
  std::ostringstream text;
  text << r.protocol << ' ' << r.local_addr << ':' << r.local_port << ' ' << r.remote_addr << ':'
       << r.remote_port << ' ' << r.state;
  return text.str();
}
template <class Record>
Texts texts(const std::vector<Record>& records) {
  Texts all;
  for (const Record& record : records) all.push_back(text(record));
  return all;
}

template <class Class, class Record>
void check_line(const std::string& line, bool v4, const std::string& expected, unsigned inode,
                int failure) {
  Record record{};
  record.protocol = record.state = "kept";
  record.inode = 5;
  const std::string before = text(record);
  const auto resolve = v4 ? Class::resolve_v4_data : Class::resolve_v6_data;
  EXPECT_EQ(resolve(line.c_str(), record), expected.empty() ? failure : 0);
  EXPECT_EQ(text(record), expected.empty() ? before : "kept " + expected);
  EXPECT_EQ(record.inode, static_cast<decltype(record.inode)>(inode));
}

TEST(SocketLine, IsReadByTheThreeClasses) {
  const struct {
    const char* sentence;
    bool v4;
    std::string line, expected;  // as CUnixNetlink has it; empty where the line is none
    unsigned inode;
  } rows[] = {
      {"a listener", true, kernel_line(true, 22), "127.0.0.1:22 0.0.0.0:0 LISTEN", 12345},
      {"an IPv6 pair, the peer mapped, the inode beyond 31 bits", false, kernel_line(false, 80),
       "2001:db8::1:80 ::ffff:127.0.0.1:443 ESTABLISHED", 4294967295U},
      {"lower case, tabs, prefixes, a high digit too much, a state without a name", true,
       "\t-7:\t10100007f:0xffff ff:1 0C 0:0 0:0 0\t-1 0 -2junk",
       "127.0.0.1:65535 255.0.0.0:1 UNKNOWN", 4294967294U},
      {"IPv6 words that are no eight digits", false, "1: 0000:1 0:0 01 0:0 0:0 0 0 0 1", "", 5},
      {"one column too few", true, "0: 0100007F:0016 0:0 0A 0:0 0:0 0 0 0", "", 5},
      {"one column too few, IPv6", false, kernel_line(false, 80).substr(0, 139), "", 5},
      {"a timer that is not decimal", true, "0: 0:0 0:0 0A 0:0 0A:0 0 0 0 1", "", 5},
      {"an empty line", true, "", "", 5}};
  for (const auto& [sentence, v4, line, expected, inode] : rows) {
    SCOPED_TRACE(sentence);
    const std::string display = std::regex_replace(expected, std::regex(":0 "), ":* ");
    const std::string procnet = std::regex_replace(expected, std::regex("LISTEN"), "LISTENING");
    check_line<CNetInfo, CNetInfo::NetLinkInfo>(line, v4, display, inode, -1);
    check_line<CUnixNetlink, CUnixNetlink::NetLinkInfo>(line, v4, expected, inode, v4 ? 1 : 2);
    check_line<CUnixProcNet, CUnixProcNet::NetInfo>(line, v4, procnet, inode, v4 ? 6 : 7);
  }
}

TEST(SocketLine, StatesHaveTheirNames) {
  std::istringstream names(
      "UNKNOWN ESTABLISHED SYN_SENT SYN_RECV FIN_WAIT1 FIN_WAIT2 TIME_WAIT CLOSE CLOSE_WAIT "
      "LAST_ACK LISTEN CLOSING UNKNOWN");
  std::string name;
  for (unsigned state = 0; names >> name; ++state) {
    EXPECT_EQ(CNetInfo::state2str(state), name);
    EXPECT_EQ(CUnixNetlink::state2str(state), name);
    EXPECT_EQ(CUnixProcNet::state2str(state), state == 10 ? "LISTENING" : name);
  }
}

TEST(SocketLine, StrictScannerAgreesWithTheFormats) {
  std::mt19937 random(20240607);
  const std::string bytes = "0123456789ABCDEFabcdefx:- \t\n+";
  int strict = 0;
  for (int round = 0; round < 40000; ++round) {
    const bool v4 = round % 2 == 0;
    std::string line = kernel_line(v4, round);
    for (unsigned left = random() % 4; left > 0; --left) {
      const std::size_t at = random() % (line.size() + 1);
      line.replace(at, random() % 4, random() % 12, bytes[random() % bytes.size()]);
      if (random() % 16 == 0) line.resize(at);
    }
    detail::SocketLine quick{};
    detail::SocketLine defined{};
    const int family = v4 ? AF_INET : AF_INET6;
    if (!detail::scan_kernel_layout(family, line.c_str(), quick)) continue;
    ++strict;
    ASSERT_TRUE(detail::scan_by_format(family, line.c_str(), defined)) << line;
    ASSERT_EQ(std::memcmp(&quick, &defined, sizeof quick), 0) << line;
  }
  EXPECT_GT(strict, 10000) << "untouched lines, at least, are for the strict scanner";
}

TEST(SocketLine, AddressesReadAsInetNtopHasThem) {
  std::mt19937 random(7);
  for (int round = 0; round < 4000; ++round) {
    std::uint32_t words[4];
    for (std::uint32_t& word : words) word = static_cast<std::uint32_t>(random() >> random() % 40);
    char text[INET6_ADDRSTRLEN];
    const int family = round % 2 == 0 ? AF_INET : AF_INET6;
    const std::string expected = inet_ntop(family, words, text, sizeof text);
    ASSERT_EQ(CNetInfo::addr2str(family, words), expected);
    ASSERT_EQ(CUnixNetlink::addr2str(family, words), expected);
    ASSERT_EQ(CUnixProcNet::addr2str(family, words), expected);
    ASSERT_EQ(CNetInfo::addr2str(AF_UNIX, words), "");
  }
}

Texts g_lines;
template <class Record>
int note_line(const char* line, Record& record) {
  EXPECT_EQ(record.local_addr + record.protocol, "") << "fresh for each line";
  g_lines.push_back(record.local_addr = line);
  return g_lines.back() == "last" ? 0 : 1;
}

TEST(SocketTable, IsCutIntoLines) {
  const std::string x(1024, 'x');
  const TempDir dir;
  const std::string file =
      dir.write("table", std::string(1030, 'h') + "\n  a \r\n" + x + "xx\n" +
                             std::string("nul\0hidden\n", 11) + x.substr(1) + "\n\nlast");
  std::vector<CNetInfo::NetLinkInfo> display;
  std::vector<CUnixNetlink::NetLinkInfo> netlink;
  std::vector<CUnixProcNet::NetInfo> procnet;
  const Texts whole{"hhhhhh", "  a \r", x, "xx", "nul", x.substr(1), "", "last"};
  Texts trimmed = whole;
  trimmed[1] = "a";
  EXPECT_EQ(CNetInfo::resolve_netlink_file({file.c_str(), "word", note_line}, display), 0);
  EXPECT_EQ(std::exchange(g_lines, {}), trimmed);
  EXPECT_EQ(CUnixNetlink::resolve_netlink_file({file.c_str(), "word", note_line}, netlink), 0);
  EXPECT_EQ(std::exchange(g_lines, {}), trimmed);
  EXPECT_EQ(CUnixProcNet::resolve_net_file({file, "word", note_line}, procnet), 0);
  EXPECT_EQ(std::exchange(g_lines, {}), whole);

  EXPECT_EQ(CNetInfo::resolve_netlink_file({"/none", "word", note_line}, display), -1);
  EXPECT_EQ(CUnixNetlink::resolve_netlink_file({"/none", "word", note_line}, netlink), 3);
  EXPECT_EQ(CUnixProcNet::resolve_net_file({"/none", "word", note_line}, procnet), 3);
  const AllocFault no_line_buffer(0);
  EXPECT_EQ(CUnixProcNet::resolve_net_file({file, "word", note_line}, procnet), 3);
  EXPECT_EQ(display.size() + netlink.size(), 2U);
  EXPECT_EQ(texts(procnet), Texts{"word last:0 :0 "});
}

// What a reading of all tables appends to `records`, as "protocol:port " each, and its result.
template <class Record>
std::string read_all(int (*get)(std::vector<Record>&), std::vector<Record> records = {}) {
  const int result = get(records);
  std::ostringstream text;
  for (const Record& r : records) text << r.protocol << ':' << r.local_port << ' ';
  return text.str() + std::to_string(result);
}

TEST(SocketTable, AllAreReadInTheirOrder) {
  sandbox::run([] {
    const std::string root = sandbox::scratch() + "/host";
    const std::string net = root + "/proc/net/";
    const char* names[] = {"tcp", "tcp4", "tcp6", "udp", "udp4", "udp6"};
    for (int i = 5; i >= 0; --i) {
      sandbox::write_file(net + names[i], "header\n" + kernel_line(i % 3 != 2, i + 1));
    }
    std::vector<CUnixProcNet::NetInfo> procnet;
    EXPECT_EQ(CUnixProcNet::get_net_info(root, procnet), 0);
    EXPECT_EQ(CUnixProcNet::get_net_info(net, procnet), 0) << "no table below it";
    EXPECT_EQ(procnet.size(), 6U);

    sandbox::bind_path(net, "/proc/self/net");
    const auto from_root = [](auto& nets) { return CUnixProcNet::get_net_info("/", nets); };
    const std::string tables = "tcp:1 tcp:2 tcp6:3 udp:4 udp:5 udp6:6 ";
    EXPECT_EQ(read_all(CNetInfo::get_all_netlink_info), tables + "0");
    EXPECT_EQ(read_all(CUnixNetlink::get_all_netlink_infos), tables + "0");
    EXPECT_EQ(read_all<CUnixProcNet::NetInfo>(from_root), tables + "0");
    for (const std::string from : {"", "/", "//"}) {
      std::vector<CUnixProcNet::NetResolve> files;
      CUnixProcNet::init_net_file(from, files);
      EXPECT_EQ(files.at(2).file, (from == "//" ? "//" : "") + std::string("/proc/net/tcp6"));
    }

    // A file that exists and cannot be opened, even by root.
    std::filesystem::remove(net + "tcp6");
    ASSERT_EQ(::mknod((net + "tcp6").c_str(), S_IFSOCK | 0600, 0), 0);
    EXPECT_EQ(read_all(CNetInfo::get_all_netlink_info), "tcp:1 tcp:2 udp:4 udp:5 udp6:6 0");
    EXPECT_EQ(read_all(CUnixNetlink::get_all_netlink_infos), "tcp:1 tcp:2 3");
    EXPECT_EQ(read_all<CUnixProcNet::NetInfo>(from_root), "tcp:1 tcp:2 udp:4 udp:5 udp6:6 0");

    for (const char* name : names) std::filesystem::remove(net + name);
    EXPECT_EQ(read_all(CNetInfo::get_all_netlink_info), "16");
    EXPECT_EQ(read_all(CNetInfo::get_all_netlink_info, {{}}), ": 0") << "filled before the call";
    EXPECT_EQ(read_all(CUnixNetlink::get_all_netlink_infos), "0");
  });
}

std::string port(int fd) {
  sockaddr_in6 address{};  // has its port where IPv4 has it
  socklen_t size = sizeof address;
  EXPECT_EQ(::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size), 0);
  return std::to_string(ntohs(address.sin6_port));
}

// A socket with a port of the kernel's choice, listening if it is one that can.
int open_socket(int family, int type) {
  sockaddr_storage any{};
  any.ss_family = static_cast<sa_family_t>(family);
  const int fd = ::socket(family, type | SOCK_CLOEXEC, 0);
  EXPECT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&any), sizeof any), 0);
  EXPECT_TRUE(type != SOCK_STREAM || ::listen(fd, 4) == 0);
  return fd;
}

TEST(ProcNet, ReadsRealSocketsAndTheirHolder) {
  sandbox::run([] {
    std::vector<unsigned long> inodes;
    EXPECT_EQ(CUnixProcNet::get_proc_socket_inodes(nullptr, inodes), 1);
    EXPECT_EQ(CUnixProcNet::get_proc_socket_inodes("/proc/self/none", inodes), 4);
    EXPECT_EQ(CUnixProcNet::get_proc_socket_inodes("/proc/self/fd", inodes), 2);

    const int listener = open_socket(AF_INET, SOCK_STREAM);
    const std::string listening = port(listener);
    const int client = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{AF_INET, htons(static_cast<in_port_t>(std::stoi(listening))), {}, {}};
    ASSERT_EQ(::connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_GE(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC), 0);
    const std::string here = "127.0.0.1:" + listening;
    const std::string there = "127.0.0.1:" + port(client);
    const Texts expected{
        "tcp 0.0.0.0:" + listening + " 0.0.0.0:0 LISTENING",
        "tcp " + there + " " + here + " ESTABLISHED",
        "tcp " + here + " " + there + " ESTABLISHED",
        "tcp6 :::" + port(open_socket(AF_INET6, SOCK_STREAM)) + " :::0 LISTENING",
        "udp6 :::" + port(open_socket(AF_INET6, SOCK_DGRAM)) + " :::0 CLOSE",
        "udp 0.0.0.0:" + port(open_socket(AF_INET, SOCK_DGRAM)) + " 0.0.0.0:0 CLOSE"};

    std::vector<CUnixProcNet::ProcNetInfo> held;
    EXPECT_EQ(CUnixProcNet::get_proc_net_info(held), 0);
    EXPECT_EQ(texts(held), expected) << "in descriptor order, which is that of opening";
    EXPECT_EQ(held.back().pid, ::getpid());
    std::vector<CUnixNetlink::NetLinkInfo> all;
    EXPECT_EQ(CUnixNetlink::get_all_netlink_infos(all), 0);
    Texts plain;
    for (const auto& line : expected) plain.push_back(line.substr(0, line.find("ING")));
    const Texts seen = texts(all);
    EXPECT_TRUE(std::is_permutation(plain.begin(), plain.end(), seen.begin(), seen.end()));

    struct stat status {};
    ASSERT_EQ(::fstat(listener, &status), 0);
    ASSERT_EQ(CUnixProcNet::get_proc_socket_inodes("/proc/self/fd", inodes), 0);
    EXPECT_TRUE(inodes.front() == status.st_ino && inodes.size() == expected.size());
    EXPECT_EQ(CUnixProcNet::get_proc_socket_inodes("/proc/self/net", inodes), 0) << "from before";
  });
}

// Starts a process that holds a listening socket below `root` until the sandbox ends.
std::string start_listener(const std::string& root, int& pid) {
  const int socket = open_socket(AF_INET, SOCK_STREAM);
  pid = ::fork();
  if (pid == 0) ::_exit(::chroot(root.c_str()) == 0 ? ::raise(SIGSTOP) : 1);
  int status = 0;
  EXPECT_TRUE(::waitpid(pid, &status, WUNTRACED) == pid && WIFSTOPPED(status)) << root;
  const std::string listener = "tcp 0.0.0.0:" + port(socket) + " 0.0.0.0:0 LISTENING";
  ::close(socket);
  return listener;
}

void check_roots() {
  const std::string jail = sandbox::scratch() + "/jail";
  std::filesystem::create_directories(jail + "/proc");
  ASSERT_EQ(::mount("proc", (jail + "/proc").c_str(), "proc", 0, nullptr), 0);
  int pid = 0;
  start_listener(sandbox::scratch(), pid);  // no /proc there: never reported
  const std::string free = start_listener("/", pid);
  const std::string jailed = start_listener(jail, pid);
  std::vector<CUnixProcNet::ProcNetInfo> held;
  ASSERT_EQ(CUnixProcNet::get_proc_net_info(held), 0);
  EXPECT_EQ(texts(held), (Texts{free, jailed}));
  EXPECT_EQ(held.back().pid, pid);

  // With nothing in our own table the jailed process is still seen through its own; a socket in two
  // tables is reported from both.
  const std::string fixtures = sandbox::scratch() + "/tables";
  sandbox::write_file(fixtures + "/ours/tcp", "header\n");
  sandbox::write_file(fixtures + "/theirs/tcp", sandbox::read_file("/proc/net/tcp"));
  sandbox::write_file(fixtures + "/theirs/udp", sandbox::read_file("/proc/net/tcp"));
  sandbox::bind_path(fixtures + "/ours", "/proc/self/net");
  sandbox::bind_path(fixtures + "/theirs", jail + "/proc/self/net");
  held.resize(1);
  ASSERT_EQ(CUnixProcNet::get_proc_net_info(held), 0);
  EXPECT_EQ(texts(held), (Texts{free, jailed, "udp" + jailed.substr(3)})) << "appended";

  std::string target = "before";
  EXPECT_EQ(CUnixProcNet::get_link_src("/proc/1/status", target), 5);
  EXPECT_EQ(target, "before");
  const std::string link = "/proc/" + std::to_string(pid) + "/root";
  EXPECT_EQ(CUnixProcNet::get_link_src(link.c_str(), target), 0);
  EXPECT_EQ(target, jail);
  ASSERT_EQ(::seteuid(65534), 0);
  EXPECT_EQ(CUnixProcNet::get_link_src(link.c_str(), target), 0);
  EXPECT_EQ(target, "/") << "permission denied counts as the host's root";
  EXPECT_EQ(CUnixProcNet::get_proc_net_info(held), 0);
  EXPECT_EQ(held.size(), 3U) << "root's processes are passed over";
  ASSERT_EQ(::seteuid(0) + ::chroot("/etc"), 0);
  EXPECT_EQ(CUnixProcNet::get_proc_net_info(held), 4) << "no /proc at all";
}

TEST(ProcNet, MatchesEachProcessAgainstTheTablesOfItsRoot) {
  sandbox::run(check_roots, {120, false});
}

TEST(ProcNet, FormsPaths) {
  for (const char* entry : {"0123456789", ""}) EXPECT_TRUE(CUnixProcNet::is_proc_info_dir(entry));
  for (const char* entry : {"self", "12a", "-1", "1 "}) {
    EXPECT_FALSE(CUnixProcNet::is_proc_info_dir(entry)) << entry;
  }
  EXPECT_EQ(CUnixProcNet::make_proc_path(nullptr, "42", "fd"), "/proc/42/fd");
  for (std::size_t size = 1018; size < 1028; ++size) {
    const std::string base(size, 'b');
    EXPECT_EQ(CUnixProcNet::make_proc_path(base.c_str(), "3", nullptr),
              (base + "/3").substr(0, 1024));
    EXPECT_EQ(CUnixProcNet::make_proc_path(base.c_str(), "n", "s"),
              (base + "/n/s").substr(0, 1024));
  }
}

TEST(ProcNet, MatchesInDescriptorThenTableOrder) {
  std::mt19937 random(3);
  std::vector<CUnixProcNet::NetInfo> nets(500);
  for (auto& net : nets) net = {random() % 300, unsigned(random()), 2, "l", "r", "p", "s"};
  std::vector<unsigned long> inodes(400);
  Texts expected;
  for (auto& inode : inodes) {
    inode = random() % 1500;
    for (const auto& net : nets) {
      if (net.inode == inode) expected.push_back(text(net));
    }
  }
  std::vector<CUnixProcNet::ProcNetInfo> out;
  CUnixProcNet::relation_proc_net("17x", inodes, nets, out);
  EXPECT_EQ(texts(out), expected);
  EXPECT_EQ(out.at(100).pid, 17);
}

}  // namespace
