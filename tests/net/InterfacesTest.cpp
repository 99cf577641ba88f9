#include <gtest/gtest.h>
#include <net/if.h>

#include <cstdlib>

#include "support/sandbox.h"
#include "utility/CNetInfo.h"

using utility::CNetInfo;

namespace {

void shell(const std::string& command) { ASSERT_EQ(std::system(command.c_str()), 0) << command; }

// Name, address, mask, broadcast, MAC, MTU, and the flags without the one that tells of a carrier.
std::string line(const std::string& name, const CNetInfo::net_interface& info) {
  return name + " " + info.addr + " " + info.netmask + " " + info.broadaddr + " " + info.macaddr +
         " " + std::to_string(info.mtu) + " " + std::to_string(info.flags & ~IFF_RUNNING) + "\n";
}

// The codes of the operations on single values, in their order in the header.
std::vector<int> single_values(const std::string& name, CNetInfo::net_interface& info) {
  return {CNetInfo::get_flags(name, info.flags),         CNetInfo::get_mtu(name, info.mtu),
          CNetInfo::get_addr(name, info.addr),           CNetInfo::get_netmask(name, info.netmask),
          CNetInfo::get_broadaddr(name, info.broadaddr), CNetInfo::get_macaddr(name, info.macaddr)};
}

// Code, bytes, packets and errors received, and the same sent.
std::vector<long> counters(const std::string& name) {
  CNetInfo::NetStat stat{2, 1, 3, 5, 4, 6};
  const long code = CNetInfo::get_net_stat(name, stat);
  return {code,           static_cast<long>(stat.rx_bytes), stat.rx_packets,
          stat.rx_errors, static_cast<long>(stat.tx_bytes), stat.tx_packets,
          stat.tx_errors};
}

}  // namespace

TEST(Interfaces, AreWhatTheyWereMade) {
  sandbox::run([] {
    shell(R"(set -e
      ip link add veth0 address 02:00:00:00:00:0a type veth peer name fifteen-bytes-x
      ip addr add 10.1.0.1/24 brd + dev veth0
      ip addr add 10.1.0.2/24 brd + dev veth0 label veth0:1 && ip link set veth0 up
      ip addr add 10.2.0.1/30 dev fifteen-bytes-x
      ip link set fifteen-bytes-x address 02:00:00:00:00:0b mtu 1400 dynamic on up
      ip link add only6 type bridge && ip addr add fd00::1/64 dev only6 && ip link set only6 up
      ip link add down0 address fe:ff:ff:ff:ff:ff type bridge
      ip addr add 10.3.0.1/16 brd + dev down0)");
    std::vector<std::string> names;
    ASSERT_EQ(CNetInfo::get_all_ni(names), 0);
    std::string lines;
    for (const std::string& name : names) {
      CNetInfo::net_interface whole;
      CNetInfo::net_interface single;
      EXPECT_EQ(CNetInfo::get_net_info(name, whole), 0);
      EXPECT_EQ(single_values(name, single), std::vector<int>(6, 0));
      lines += line(name, whole);
      EXPECT_EQ(line(name, single), line(name, whole));
    }
    // 4098 is BROADCAST and MULTICAST, 1 UP, 8 LOOPBACK; DYNAMIC is the sign.
    EXPECT_EQ(lines,
              "lo 127.0.0.1 255.0.0.0 0.0.0.0 00:00:00:00:00:00 65536 9\n"
              "fifteen-bytes-x 10.2.0.1 255.255.255.252 0.0.0.0 02:00:00:00:00:0b 1400 -28669\n"
              "veth0 10.1.0.1 255.255.255.0 10.1.0.255 02:00:00:00:00:0a 1500 4099\n"
              "veth0:1 10.1.0.2 255.255.255.0 10.1.0.255 02:00:00:00:00:0a 1500 4099\n"
              "down0 10.3.0.1 255.255.0.0 10.3.255.255 fe:ff:ff:ff:ff:ff 1500 4098\n");

    CNetInfo::net_interface info{"a", "b", "c", "d", "e", 6, 7};
    EXPECT_EQ(single_values("no-such", info), std::vector<int>(6, 4));
    EXPECT_EQ(CNetInfo::get_net_info("only6", info), 4);
    EXPECT_EQ(line(info.name, info), "a b d e c 6 7\n");
    EXPECT_EQ(single_values("only6", info), (std::vector<int>{0, 0, 4, 4, 4, 0}));

    // Names are looked for every 8 bytes: this one shows an address family 16 bytes after the
    // padding of the request before it.
    shell("x=$(printf '12345678\\002'); ip link add $x type bridge && ip addr add 10.4.0.1 dev $x");
    names = {"kept"};
    EXPECT_EQ(CNetInfo::get_all_ni(names), 0);
    EXPECT_EQ(names, (std::vector<std::string>{"kept", "lo", "fifteen-bytes-x", "veth0", "veth0:1",
                                               "down0", "", "12345678\002"}));
    shell("for i in $(seq 200); do echo addr add 10.9.0.$i/32 dev only6; done | ip -batch -");
    names.clear();
    EXPECT_EQ(CNetInfo::get_all_ni(names), 0);
    EXPECT_EQ(names.size(), 128U) << "a full buffer";
  });
}

TEST(Interfaces, CountTheirTraffic) {
  sandbox::run([] {
    using Counters = std::vector<long>;
    EXPECT_EQ(counters("lo"), (Counters{0, 0, 0, 0, 0, 0, 0}));
    shell(R"(python3 -c 'import socket; s = socket.socket(type=2); s.bind(("127.0.0.1", 0))
for _ in range(10): s.sendto(b"x" * 100, s.getsockname())')");
    const long bytes = 10L * (20 + 8 + 100);  // with IP and UDP headers
    EXPECT_EQ(counters("lo"), (Counters{0, bytes, 10, 0, bytes, 10, 0}));

    // The kernel drops what is bound over a file of /proc/net, but not what covers the directory.
    const std::string dir = sandbox::scratch() + "/net";
    const std::string columns = " 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 ";
    sandbox::write_file(
        dir + "/dev", "Inter-|   Receive  |  Transmit\n face |bytes packets\n  eth0:" + columns +
                          "16\nglued:18446744073709551615 9223372036854775808 0 0 0 0 0 0 x -1 y " +
                          "0 0 0 0 0\nshort:" + columns + "\nlong:" + columns + "16 17\nthree:" +
                          columns + "16:9\n" + std::string(1023, 'x') + "cut:" + columns + "16");
    sandbox::bind_path(dir, "/proc/self/net");
    EXPECT_EQ(counters("eth0"), (Counters{0, 1, 2, 3, 9, 10, 11}));
    EXPECT_EQ(counters("cut"), counters("eth0"));
    EXPECT_EQ(counters("glued"), (Counters{0, -1, 0, 0, 0, -1, 0}));
    for (const char* name : {"eth", "short", "long", "three"}) {
      EXPECT_EQ(counters(name), (Counters{7, 1, 2, 3, 4, 5, 6})) << name;
    }
    EXPECT_EQ(counters("")[0], 1);
    sandbox::bind_path("/proc/self/mem", "/proc/net/dev");
    EXPECT_EQ(counters("lo")[0], 6);
  });
}
