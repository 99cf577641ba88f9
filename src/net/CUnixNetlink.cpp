#include "utility/CUnixNetlink.h"

#include "base/paths.h"
#include "net/socket_table.h"

namespace utility {

using namespace detail;

namespace {

constexpr char kListening[] = "LISTEN";
enum Code : int { kDone = 0, kNoV4Line = 1, kNoV6Line = 2, kCannotOpen = 3 };

}  // namespace

const char* CUnixNetlink::state2str(const unsigned int& state) {
  return state_text(state, kListening);
}

std::string CUnixNetlink::addr2str(int family, const void* address) {
  return address_text(family, address);
}

int CUnixNetlink::resolve_v4_data(const char* line, NetLinkInfo& info) {
  return resolve_line(AF_INET, line, kListening, info) ? kDone : kNoV4Line;
}

int CUnixNetlink::resolve_v6_data(const char* line, NetLinkInfo& info) {
  return resolve_line(AF_INET6, line, kListening, info) ? kDone : kNoV6Line;
}

int CUnixNetlink::resolve_netlink_file(const NetLinkResolve& row, std::vector<NetLinkInfo>& infos) {
  return read_socket_file<trimmed>(open_table(row.file), row, kCannotOpen, infos);
}

int CUnixNetlink::get_all_netlink_infos(std::vector<NetLinkInfo>& infos) {
  for (const auto& [path, protocol, family] : kSocketFiles) {
    if (!exists(path)) continue;
    const auto resolve = family == AF_INET ? resolve_v4_data : resolve_v6_data;
    if (const int code = resolve_netlink_file({path, protocol, resolve}, infos)) return code;
  }
  return kDone;
}

}  // namespace utility
