#include <gtest/gtest.h>
#include <net/if.h>

#include "support/cases.h"
#include "utility/CNetInfo.h"

using utility::CNetInfo;
using S = std::string;

namespace {

Words record_of(const S& name) {
  CNetInfo::net_interface info{"name", "addr", "mac", "mask", "broad", 6, 0};
  const int result = CNetInfo::get_net_info(name, info);
  return texts(result, info.addr, info.netmask, info.broadaddr, info.macaddr, info.mtu,
               info.flags & ~IFF_RUNNING);
}

Words counters_of(const S& name) {
  CNetInfo::NetStat stat{7, 7, 7, 7, 7, 7};
  const int result = CNetInfo::get_net_stat(name, stat);
  return texts(result, stat.rx_bytes, stat.rx_packets, stat.rx_errors, stat.tx_bytes,
               stat.tx_packets, stat.tx_errors);
}

std::size_t count_all() {
  Words names;
  EXPECT_EQ(CNetInfo::get_all_ni(names), 0);
  return names.size();
}

}  // namespace

TEST(Interfaces, AreWhatTheyWereMade) {
  run_cases(FIXTURES "/interfaces.txt", {{"get_net_info", call(record_of)},
                                         {"get_net_stat", call(counters_of)},
                                         {"get_all_ni", call(CNetInfo::get_all_ni)},
                                         {"count_all", call(count_all)},
                                         {"get_flags", call(CNetInfo::get_flags)},
                                         {"get_mtu", call(CNetInfo::get_mtu)},
                                         {"get_addr", call(CNetInfo::get_addr)},
                                         {"get_netmask", call(CNetInfo::get_netmask)},
                                         {"get_broadaddr", call(CNetInfo::get_broadaddr)},
                                         {"get_macaddr", call(CNetInfo::get_macaddr)}});
}
