#include <net/if.h>
#include <utility/CNetInfo.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "sections.h"

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

// The library lists interfaces that have an address, once for each of its labels ("eth0:1"); the C
// library those that are down or have none as well.
bool interface_names(std::vector<std::string>& names) {
  const std::unique_ptr<struct if_nameindex, void (*)(struct if_nameindex*)> all(if_nameindex(),
                                                                                 if_freenameindex);
  if (all == nullptr) return false;
  for (const struct if_nameindex* at = all.get(); at->if_index != 0; ++at) {
    names.emplace_back(at->if_name);
  }
  std::vector<std::string> labels;
  if (CNetInfo::get_all_ni(labels) != 0) return false;
  for (const std::string& label : labels) {
    if (std::find(names.begin(), names.end(), label) == names.end()) names.push_back(label);
  }
  return true;
}

bool fill_interfaces(const Filters& /*filters*/, Table& table) {
  std::vector<std::string> names;
  const bool complete = interface_names(names);
  for (const std::string& name : names) {
    CNetInfo::net_interface info;
    CNetInfo::get_flags(name, info.flags);
    CNetInfo::get_addr(name, info.addr);
    CNetInfo::get_netmask(name, info.netmask);
    CNetInfo::get_broadaddr(name, info.broadaddr);
    CNetInfo::get_macaddr(name, info.macaddr);
    CNetInfo::get_mtu(name, info.mtu);
    CNetInfo::NetStat stat;
    // A further address has no counters of its own.
    const bool counted = CNetInfo::get_net_stat(name, stat) == 0;
    const auto number = [counted](auto value) { return counted ? std::to_string(value) : ""; };
    table.add({name, (info.flags & IFF_UP) != 0 ? "up" : "down", info.addr, info.netmask,
               info.broadaddr, info.macaddr, std::to_string(info.mtu), flags_in_words(info.flags),
               number(stat.rx_bytes), number(stat.rx_packets), number(stat.rx_errors),
               number(stat.tx_bytes), number(stat.tx_packets), number(stat.tx_errors)});
  }
  return complete;
}

}  // namespace

const Section kInterfaces = {"interfaces",
                             "network interfaces with their IPv4 addresses and counters",
                             {{"NAME", Kind::kText, "name, or the label of a further address"},
                              {"STATE", Kind::kText, "up or down"},
                              {"ADDRESS", Kind::kText, "IPv4 address"},
                              {"MASK", Kind::kText, "its netmask"},
                              {"BROADCAST", Kind::kText, "its broadcast address", kAsked},
                              {"MAC", Kind::kText, "hardware address"},
                              {"MTU", Kind::kNumber, "greatest packet, in bytes", kWide},
                              {"FLAGS", Kind::kList, "flags, in words", kWide},
                              {"RX_BYTES", Kind::kBytes, "bytes received"},
                              {"RX_PACKETS", Kind::kNumber, "packets received", kWider},
                              {"RX_ERRORS", Kind::kNumber, "receive errors", kWider},
                              {"TX_BYTES", Kind::kBytes, "bytes sent"},
                              {"TX_PACKETS", Kind::kNumber, "packets sent", kWider},
                              {"TX_ERRORS", Kind::kNumber, "send errors", kWider}},
                             fill_interfaces};

}  // namespace report
