#include "utility/CNetInfo.h"

#include "base/paths.h"
#include "net/socket_table.h"

namespace utility {

using namespace detail;

namespace {

constexpr char kListening[] = "LISTEN";
enum Code : int {
  kDone = 0,
  kNoLine = -1,
  kCannotOpen = -1,
  kNoSocket = 16,
};

constexpr auto kNetlinkFiles =
    socket_rows<CNetInfo::NetLinkResolve>(CNetInfo::resolve_v4_data, CNetInfo::resolve_v6_data);

}  // namespace

const char* CNetInfo::state2str(const unsigned int& state) { return state_text(state, kListening); }

std::string CNetInfo::port2str(const unsigned int& port) { return port_text(port); }

std::string CNetInfo::addr2str(int family, const void* address) {
  return address_text(family, address);
}

int CNetInfo::resolve_v4_data(const char* line, NetLinkInfo& info) {
  return resolve_line(AF_INET, line, kListening, info) ? kDone : kNoLine;
}

int CNetInfo::resolve_v6_data(const char* line, NetLinkInfo& info) {
  return resolve_line(AF_INET6, line, kListening, info) ? kDone : kNoLine;
}

int CNetInfo::resolve_netlink_file(const NetLinkResolve& row, std::vector<NetLinkInfo>& infos) {
  return read_socket_file<TrimmedLine>(open_table(row.file), row, kCannotOpen, infos);
}

int CNetInfo::get_all_netlink_info(std::vector<NetLinkInfo>& infos) {
  for (const NetLinkResolve& row : kNetlinkFiles) {
    if (exists(row.file)) resolve_netlink_file(row, infos);
  }
  return infos.empty() ? kNoSocket : kDone;
}

}  // namespace utility
