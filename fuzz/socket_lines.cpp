// Socket tables: the scanner for the kernel's own layout against the conversions that define what a
// line means, and whole tables as the three classes list them against records made in that way.
#include <arpa/inet.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "check.h"
#include "lines.h"
#include "net/socket_table.h"
#include "scratch.h"
#include "utility/CNetInfo.h"
#include "utility/CUnixNetlink.h"
#include "utility/CUnixProcNet.h"

using namespace utility;
using detail::SocketLine;

namespace {

constexpr const char* kStates[] = {"UNKNOWN",    "ESTABLISHED", "SYN_SENT",  "SYN_RECV",
                                   "FIN_WAIT1",  "FIN_WAIT2",   "TIME_WAIT", "CLOSE",
                                   "CLOSE_WAIT", "LAST_ACK",    "LISTEN",    "CLOSING"};

void check_line(int family, const char* line) {
  SocketLine defined{};
  SocketLine quick{};
  SocketLine chosen{};
  const bool is_line = detail::scan_by_format(family, line, defined);
  if (detail::scan_kernel_layout(family, line, quick)) {
    FUZZ_CHECK(is_line && std::memcmp(&quick, &defined, sizeof quick) == 0);
  }
  FUZZ_CHECK(detail::scan_socket_line(family, line, chosen) == is_line);
  FUZZ_CHECK(!is_line || std::memcmp(&chosen, &defined, sizeof chosen) == 0);
}

std::string address(int family, const std::array<std::uint32_t, 4>& words) {
  char text[INET6_ADDRSTRLEN];
  return ::inet_ntop(family, words.data(), text, sizeof text);
}

template <class Field>
Field port(std::uint32_t number) {
  if constexpr (std::is_same_v<Field, std::string>) {
    return number == 0 ? "*" : std::to_string(number);
  } else {
    return number;
  }
}

// The records of the table `text`; `listening` names state 10, `trimmed` says what lines lose.
template <class Record>
std::vector<Record> defined_records(const std::string& text, int family, const char* listening,
                                    bool trimmed) {
  std::vector<Record> records;
  std::vector<std::string> lines = lines_of(text, 1024);
  for (std::size_t i = 1; i < lines.size(); ++i) {
    std::string& line = lines[i];
    if (trimmed) {
      line.erase(0, line.find_first_not_of(" \t\r\n"));
      line.erase(line.find_last_not_of(" \t\r\n") + 1);
    } else if (!line.empty() && line.back() == '\n') {
      line.pop_back();
    }
    SocketLine socket{};
    if (!detail::scan_by_format(family, line.c_str(), socket)) continue;
    Record record;
    record.protocol = "word";
    record.inode = static_cast<decltype(record.inode)>(socket.inode);
    record.local_addr = address(family, socket.local_addr);
    record.remote_addr = address(family, socket.remote_addr);
    record.local_port = port<decltype(record.local_port)>(socket.local_port);
    record.remote_port = port<decltype(record.remote_port)>(socket.remote_port);
    record.state = socket.state == 10 ? listening : kStates[socket.state < 12 ? socket.state : 0];
    records.push_back(record);
  }
  return records;
}

template <class Record>
bool same(const Record& a, const Record& b) {
  return a.protocol == b.protocol && a.inode == b.inode && a.local_addr == b.local_addr &&
         a.remote_addr == b.remote_addr && a.local_port == b.local_port &&
         a.remote_port == b.remote_port && a.state == b.state;
}

template <class Row, class Record>
std::vector<Record> check_table(int (*read)(const Row&, std::vector<Record>&), const Row& row,
                                const std::vector<Record>& expected) {
  std::vector<Record> records;
  FUZZ_CHECK(read(row, records) == 0);
  FUZZ_CHECK(
      std::equal(records.begin(), records.end(), expected.begin(), expected.end(), same<Record>));
  return records;
}

// The index by inode against looking at every pair.
void check_relation(const std::vector<CUnixProcNet::NetInfo>& nets) {
  std::vector<unsigned long> inodes;
  for (const auto& net : nets) {
    inodes.insert(inodes.begin(), {net.inode, net.inode + nets.size() + 1, net.inode >> 1});
  }
  std::vector<CUnixProcNet::ProcNetInfo> found;
  CUnixProcNet::relation_proc_net("7", inodes, nets, found);
  std::size_t at = 0;
  for (const unsigned long inode : inodes) {
    for (const auto& net : nets) {
      if (net.inode != inode) continue;
      FUZZ_CHECK(at < found.size() && found[at].pid == 7);
      FUZZ_CHECK(found[at].local_addr == net.local_addr && found[at].state == net.state);
      FUZZ_CHECK(found[at].local_port == net.local_port && found[at].protocol == "word");
      ++at;
    }
  }
  FUZZ_CHECK(at == found.size());
}

}  // namespace

// The first byte, which the header line has to spare, says of which family the table is.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static scratch::File table("table");
  const std::string text(reinterpret_cast<const char*>(data), size);
  const bool v4 = size == 0 || text[0] != '6';
  const int family = v4 ? AF_INET : AF_INET6;
  for (const std::string& line : lines_of(text, size + 1)) check_line(family, line.c_str());

  table.write(text);
  const std::string& file = table.path();
  check_table<CNetInfo::NetLinkResolve, CNetInfo::NetLinkInfo>(
      CNetInfo::resolve_netlink_file,
      {file.c_str(), "word", v4 ? CNetInfo::resolve_v4_data : CNetInfo::resolve_v6_data},
      defined_records<CNetInfo::NetLinkInfo>(text, family, "LISTEN", true));
  check_table<CUnixNetlink::NetLinkResolve, CUnixNetlink::NetLinkInfo>(
      CUnixNetlink::resolve_netlink_file,
      {file.c_str(), "word", v4 ? CUnixNetlink::resolve_v4_data : CUnixNetlink::resolve_v6_data},
      defined_records<CUnixNetlink::NetLinkInfo>(text, family, "LISTEN", true));
  check_relation(check_table<CUnixProcNet::NetResolve, CUnixProcNet::NetInfo>(
      CUnixProcNet::resolve_net_file,
      {file, "word", v4 ? CUnixProcNet::resolve_v4_data : CUnixProcNet::resolve_v6_data},
      defined_records<CUnixProcNet::NetInfo>(text, family, "LISTENING", false)));
  return 0;
}
