#include <gtest/gtest.h>
#include <net/if.h>

#include <cstdlib>
#include <filesystem>

#include "support/cases.h"
#include "support/sandbox.h"
#include "utility/CNetInfo.h"

using utility::CNetInfo;

namespace {

void shell(const std::string& command) { ASSERT_EQ(std::system(command.c_str()), 0) << command; }

void expect(const Case& row, const CNetInfo::net_interface& info) {
  row.expect("addr", info.addr);
  row.expect("netmask", info.netmask);
  row.expect("broadaddr", info.broadaddr);
  row.expect("macaddr", info.macaddr);
  row.expect("mtu", info.mtu);
  row.expect("flags", info.flags & ~IFF_RUNNING);
}

// The codes of the operations on single values, in their order in the header.
std::vector<int> single_values(const std::string& name, CNetInfo::net_interface& info) {
  return {CNetInfo::get_flags(name, info.flags),         CNetInfo::get_mtu(name, info.mtu),
          CNetInfo::get_addr(name, info.addr),           CNetInfo::get_netmask(name, info.netmask),
          CNetInfo::get_broadaddr(name, info.broadaddr), CNetInfo::get_macaddr(name, info.macaddr)};
}

void check_counters(const Case& row) {
  const bool is_kept = row.number("result") != 0;
  CNetInfo::NetStat stat{7, 7, 7, 7, 7, 7};
  row.expect("result", CNetInfo::get_net_stat(row["name"], stat));
  const std::pair<const char*, long> counters[] = {{"rx_bytes", static_cast<long>(stat.rx_bytes)},
                                                   {"rx_packets", stat.rx_packets},
                                                   {"rx_errors", stat.rx_errors},
                                                   {"tx_bytes", static_cast<long>(stat.tx_bytes)},
                                                   {"tx_packets", stat.tx_packets},
                                                   {"tx_errors", stat.tx_errors}};
  for (const auto& [name, counter] : counters) {
    EXPECT_EQ(counter, is_kept ? 7 : row.number(name)) << name;
  }
}

}  // namespace

TEST(Interfaces, AreWhatTheyWereMade) {
  shell(R"(set -e
    ip link add veth0 address 02:00:00:00:00:0a type veth peer name fifteen-bytes-x
    ip addr add 10.1.0.1/24 brd + dev veth0
    ip addr add 10.1.0.2/24 brd + dev veth0 label veth0:1 && ip link set veth0 up
    ip addr add 10.2.0.1/30 dev fifteen-bytes-x
    ip link set fifteen-bytes-x address 02:00:00:00:00:0b mtu 1400 dynamic on up
    ip link add only6 type bridge && ip addr add fd00::1/64 dev only6 && ip link set only6 up
    ip link add down0 address fe:ff:ff:ff:ff:ff type bridge
    ip addr add 10.3.0.1/16 brd + dev down0)");
  std::vector<std::string> names{"kept"}, expected{"kept"};
  for_each_case(FIXTURES "/interfaces.txt",
                {{"interface", [&expected](const Case& row) {
                    CNetInfo::net_interface whole, single;
                    expected.push_back(row["name"]);
                    EXPECT_EQ(CNetInfo::get_net_info(row["name"], whole), 0);
                    expect(row, whole);
                    EXPECT_EQ(single_values(row["name"], single), std::vector<int>(6, 0));
                    expect(row, single);
                  }}});
  EXPECT_EQ(CNetInfo::get_all_ni(names), 0);
  EXPECT_EQ(names, expected);

  CNetInfo::net_interface info{"a", "b", "c", "d", "e", 6, 7};
  EXPECT_EQ(single_values("no-such", info), std::vector<int>(6, 4));
  EXPECT_EQ(CNetInfo::get_net_info("only6", info), 4);
  EXPECT_EQ(info.name + info.addr + info.macaddr + info.netmask + info.broadaddr, "abcde");
  EXPECT_EQ(single_values("only6", info), (std::vector<int>{0, 0, 4, 4, 4, 0}));

  // Names are looked for every 8 bytes: this one shows an address family 16 bytes after the padding
  // of the request before it.
  shell("x=$(printf '12345678\\002'); ip link add $x type bridge && ip addr add 10.4.0.1 dev $x");
  names.clear();
  EXPECT_EQ(CNetInfo::get_all_ni(names), 0);
  expected.erase(expected.begin());
  expected.insert(expected.end(), {"", "12345678\002"});
  EXPECT_EQ(names, expected);
  shell("for i in $(seq 200); do echo addr add 10.9.0.$i/32 dev only6; done | ip -batch -");
  names.clear();
  EXPECT_EQ(CNetInfo::get_all_ni(names), 0);
  EXPECT_EQ(names.size(), 128U) << "a full buffer";
}

TEST(Interfaces, CountTheirTraffic) {
  shell(R"(python3 -c 'import socket; s = socket.socket(type=2); s.bind(("127.0.0.1", 0))
for _ in range(10): s.sendto(b"x" * 100, s.getsockname())')");
  CNetInfo::NetStat stat;
  EXPECT_EQ(CNetInfo::get_net_stat("lo", stat), 0);
  EXPECT_EQ(stat.rx_bytes, 10U * (20 + 8 + 100)) << "with IP and UDP headers";
  EXPECT_TRUE(stat.tx_bytes == stat.rx_bytes && stat.rx_packets == 10 && stat.tx_packets == 10);

  // The kernel drops what is bound over a file of /proc/net, but not what covers the directory.
  std::filesystem::create_directory(sandbox::scratch() + "/net");
  std::filesystem::copy(FIXTURES "/dev", sandbox::scratch() + "/net");
  sandbox::bind_path(sandbox::scratch() + "/net", "/proc/self/net");
  for_each_case(FIXTURES "/counters.txt", {{"counters", check_counters}});
  sandbox::bind_path("/proc/self/mem", "/proc/net/dev");
  EXPECT_EQ(CNetInfo::get_net_stat("lo", stat), 6);
}
