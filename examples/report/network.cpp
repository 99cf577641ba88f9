#include <net/if.h>
#include <utility/CNetInfo.h>

#include <iterator>
#include <string>
#include <vector>

#include "report/sections.h"

namespace report {
namespace {

using utility::CNetInfo;

std::string flags_in_words(int flags) {
  constexpr struct {
    int bit;
    const char* word;
  } kWords[] = {{IFF_UP, "up"},
                {IFF_RUNNING, "running"},
                {IFF_LOOPBACK, "loopback"},
                {IFF_BROADCAST, "broadcast"},
                {IFF_POINTOPOINT, "point-to-point"},
                {IFF_MULTICAST, "multicast"},
                {IFF_PROMISC, "promiscuous"},
                {IFF_NOARP, "no-arp"}};
  std::string text;
  for (const auto& entry : kWords) {
    if ((flags & entry.bit) == 0) continue;
    if (!text.empty()) text += ",";
    text += entry.word;
  }
  return text;
}

}  // namespace

bool interfaces(Format format, const std::string& /*argument*/) {
  std::vector<std::string> names;
  if (CNetInfo::get_all_ni(names) != 0) return false;
  Table table("interfaces", {{"name"},
                             {"address"},
                             {"mask"},
                             {"mac"},
                             {"mtu", true},
                             {"flags"},
                             {"rx_bytes", true},
                             {"rx_packets", true},
                             {"rx_errors", true},
                             {"tx_bytes", true},
                             {"tx_packets", true},
                             {"tx_errors", true}});
  for (const std::string& name : names) {
    CNetInfo::net_interface interface;
    CNetInfo::get_net_info(name, interface);
    std::vector<std::string> row = {name,
                                    interface.addr,
                                    interface.netmask,
                                    interface.macaddr,
                                    std::to_string(interface.mtu),
                                    flags_in_words(interface.flags)};
    CNetInfo::NetStat stat;
    // A further address of an interface ("eth0:1") has no counters of its own.
    const bool counted = CNetInfo::get_net_stat(name, stat) == 0;
    for (const std::string& count :
         {std::to_string(stat.rx_bytes), std::to_string(stat.rx_packets),
          std::to_string(stat.rx_errors), std::to_string(stat.tx_bytes),
          std::to_string(stat.tx_packets), std::to_string(stat.tx_errors)}) {
      row.push_back(counted ? count : "-");
    }
    table.add(std::move(row));
  }
  table.print(format);
  return true;
}

}  // namespace report
