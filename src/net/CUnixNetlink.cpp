#include "utility/CUnixNetlink.h"

#include "base/paths.h"
#include "net/socket_table.h"

namespace utility {
namespace {

constexpr char kListening[] = "LISTEN";
constexpr int kNoV4Line = 1;
constexpr int kNoV6Line = 2;
constexpr int kCannotOpen = 3;

}  // namespace

const char* CUnixNetlink::state2str(const unsigned int& state) {
  return detail::state_text(state, kListening);
}

std::string CUnixNetlink::addr2str(int family, const void* address) {
  return detail::address_text(family, address);
}

int CUnixNetlink::resolve_v4_data(const char* line, NetLinkInfo& info) {
  return detail::resolve_line(AF_INET, line, kListening, info) ? 0 : kNoV4Line;
}

int CUnixNetlink::resolve_v6_data(const char* line, NetLinkInfo& info) {
  return detail::resolve_line(AF_INET6, line, kListening, info) ? 0 : kNoV6Line;
}

int CUnixNetlink::resolve_netlink_file(const NetLinkResolve& row, std::vector<NetLinkInfo>& infos) {
  return detail::read_socket_file<detail::TrimmedLine>(row.file, row, kCannotOpen, infos);
}

int CUnixNetlink::get_all_netlink_infos(std::vector<NetLinkInfo>& infos) {
  static constexpr auto netlink_files =
      detail::socket_rows<NetLinkResolve>(resolve_v4_data, resolve_v6_data);
  for (const NetLinkResolve& row : netlink_files) {
    if (!detail::exists(row.file)) continue;
    const int code = resolve_netlink_file(row, infos);
    if (code != 0) return code;
  }
  return 0;
}

}  // namespace utility
