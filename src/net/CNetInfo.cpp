#include "utility/CNetInfo.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "base/paths.h"
#include "net/socket_table.h"

namespace utility {

using namespace detail;

namespace {

enum Code : int {
  kNotParsed = -1,
  kNoTable = -1,
  kDone = 0,
  kEmptyName = 1,
  kNoSocket = 2,
  kNoMemory = 3,
  kRequestFailed = 4,
  kNoFile = 5,
  kReadError = 6,
  kNotListed = 7,
  kNothingInTables = 16,
};

constexpr char kListening[] = "LISTEN";
constexpr std::size_t kListSize = 5120;  // 128 requests
constexpr std::size_t kColumns = 16;

Fd open_socket() noexcept { return Fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)); }

/// Questions about one interface, over a socket of its own. An answer is set where it came.
class Query {
 public:
  explicit Query(const std::string& name) noexcept : socket_(open_socket()) {
    // A name of the full sixteen bytes gets no NUL; the kernel ends it at fifteen.
    name.copy(request_.ifr_name, IFNAMSIZ);
  }

  int flags(int& flags) noexcept {
    const Code code = ask(SIOCGIFFLAGS);
    if (code == kDone) flags = request_.ifr_flags;
    return code;
  }

  int mtu(int& mtu) noexcept {
    const Code code = ask(SIOCGIFMTU);
    if (code == kDone) mtu = request_.ifr_mtu;
    return code;
  }

  /// The address that `request` asks for, dotted.
  int address(unsigned long request, std::string& dotted) {
    const Code code = ask(request);
    if (code != kDone) return code;
    sockaddr_in address{};
    std::memcpy(&address, &request_.ifr_addr, sizeof address);
    char text[INET_ADDRSTRLEN];
    dotted = ::inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
    return kDone;
  }

  int hardware_address(std::string& mac) {
    const Code code = ask(SIOCGIFHWADDR);
    if (code != kDone) return code;
    const auto* bytes = reinterpret_cast<const unsigned char*>(request_.ifr_hwaddr.sa_data);
    char text[sizeof "00:00:00:00:00:00"];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", bytes[0], bytes[1], bytes[2],
                  bytes[3], bytes[4], bytes[5]);
    mac = text;
    return kDone;
  }

 private:
  Code ask(unsigned long request) noexcept {
    if (!socket_) return kNoSocket;
    return ::ioctl(socket_.get(), request, &request_) < 0 ? kRequestFailed : kDone;
  }

  Fd socket_;
  ifreq request_{};
};

// Appends the names in a list of requests. Each place that a request could begin at is looked at,
// in steps of 8 bytes: what follows a name by 16 bytes is the address family. The first place is
// looked at even in an empty list. `list` is readable, zeroed, for 24 bytes after `size`.
void append_names(const char* list, std::size_t size, std::vector<std::string>& names) {
  std::size_t at = 0;
  do {
    std::uint16_t family = 0;
    std::memcpy(&family, list + at + IFNAMSIZ, sizeof family);
    if (family == AF_INET) names.emplace_back(list + at, ::strnlen(list + at, IFNAMSIZ));
    at += 8;
  } while (at < size);
}

// Takes the counters of `name` from a line of /proc/net/dev; false when it is not about `name`.
bool parse_counters(const std::string& line, const std::string& name, CNetInfo::NetStat& stat) {
  std::vector<std::string> parts = split(":", line);
  if (parts.size() != 2) return false;
  CStr::trim(parts[0]);
  if (parts[0] != name) return false;
  const std::vector<std::string> columns = words_of(parts[1]);
  if (columns.size() != kColumns) return false;
  stat.rx_bytes = CStr::atoull(columns[0]);
  stat.rx_packets = CStr::atol(columns[1]);
  stat.rx_errors = CStr::atol(columns[2]);
  stat.tx_bytes = CStr::atoull(columns[8]);
  stat.tx_packets = CStr::atol(columns[9]);
  stat.tx_errors = CStr::atol(columns[10]);
  return true;
}

}  // namespace

const char* CNetInfo::state2str(const unsigned int& state) { return state_text(state, kListening); }

std::string CNetInfo::port2str(const unsigned int& port) { return port_text(port); }

std::string CNetInfo::addr2str(int family, const void* address) {
  return address_text(family, address);
}

int CNetInfo::resolve_v4_data(const char* line, NetLinkInfo& info) {
  return resolve_line(AF_INET, line, kListening, info) ? kDone : kNotParsed;
}

int CNetInfo::resolve_v6_data(const char* line, NetLinkInfo& info) {
  return resolve_line(AF_INET6, line, kListening, info) ? kDone : kNotParsed;
}

int CNetInfo::resolve_netlink_file(const NetLinkResolve& row, std::vector<NetLinkInfo>& infos) {
  return read_socket_file<trimmed>(open_table(row.file), row, kNoTable, infos);
}

int CNetInfo::get_all_netlink_info(std::vector<NetLinkInfo>& infos) {
  for (const auto& [path, protocol, family] : kSocketFiles) {
    if (!exists(path)) continue;
    resolve_netlink_file({path, protocol, family == AF_INET ? resolve_v4_data : resolve_v6_data},
                         infos);
  }
  return infos.empty() ? kNothingInTables : kDone;
}

int CNetInfo::get_all_ni(std::vector<std::string>& names) {
  const Fd socket = open_socket();
  if (!socket) return kNoSocket;
  const Buffer list = make_buffer(kListSize + sizeof(ifreq));
  if (list == nullptr) return kNoMemory;
  ifconf request{};
  request.ifc_len = static_cast<int>(kListSize);
  request.ifc_buf = list.get();
  if (::ioctl(socket.get(), SIOCGIFCONF, &request) < 0) return kRequestFailed;
  append_names(list.get(), static_cast<std::size_t>(request.ifc_len), names);
  return kDone;
}

int CNetInfo::get_flags(const std::string& name, int& flags) { return Query(name).flags(flags); }

int CNetInfo::get_mtu(const std::string& name, int& mtu) { return Query(name).mtu(mtu); }

int CNetInfo::get_addr(const std::string& name, std::string& addr) {
  return Query(name).address(SIOCGIFADDR, addr);
}

int CNetInfo::get_netmask(const std::string& name, std::string& netmask) {
  return Query(name).address(SIOCGIFNETMASK, netmask);
}

int CNetInfo::get_broadaddr(const std::string& name, std::string& broadaddr) {
  return Query(name).address(SIOCGIFBRDADDR, broadaddr);
}

int CNetInfo::get_macaddr(const std::string& name, std::string& macaddr) {
  return Query(name).hardware_address(macaddr);
}

int CNetInfo::get_net_info(const std::string& name, net_interface& info) {
  Query query(name);
  int code = query.address(SIOCGIFADDR, info.addr);
  if (code == kDone) code = query.flags(info.flags);
  if (code == kDone) code = get_macaddr(name, info.macaddr);
  if (code == kDone) code = get_broadaddr(name, info.broadaddr);
  if (code == kDone) code = query.address(SIOCGIFNETMASK, info.netmask);
  if (code == kDone) code = query.mtu(info.mtu);
  return code;
}

int CNetInfo::get_net_stat(const std::string& name, NetStat& stat) {
  if (name.empty()) return kEmptyName;
  Lines<1024> lines(open_to_read("/proc/net/dev"));
  if (!lines) return kNoFile;
  while (lines.next()) {
    if (parse_counters(lines.text(), name, stat)) return kDone;
  }
  return lines.failed() ? kReadError : kNotListed;
}

}  // namespace utility
