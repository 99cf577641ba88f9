#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/resource.h>

#include <cstdlib>

#include "support/alloc_fault.h"
#include "support/sandbox.h"
#include "utility/CNetInfo.h"

using utility::CNetInfo;

namespace {

void shell(const std::string& command) {
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

// A line per IPv4 address, in the kernel's order: label, address, mask, broadcast, MAC, MTU, flags.
std::string lines_by_ip() {
  sandbox::write_file(sandbox::scratch() + "/lines.py", R"(
import ipaddress, json, subprocess
bits = dict(UP=1, BROADCAST=2, LOOPBACK=8, NOARP=0x80, MULTICAST=0x1000, DYNAMIC=-0x8000)
for link in json.loads(subprocess.check_output(["ip", "-json", "addr"])):
    for a in link["addr_info"]:
        if a["family"] == "inet":
            net = ipaddress.ip_interface("%(local)s/%(prefixlen)d" % a)
            print(a["label"], net.ip, net.netmask, a.get("broadcast", "0.0.0.0"), link["address"],
                  link["mtu"], sum(bits.get(f, 0) for f in link["flags"]))
)");
  shell("cd " + sandbox::scratch() + " && python3 lines.py > lines");
  return sandbox::read_file(sandbox::scratch() + "/lines");
}

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

TEST(Interfaces, AreWhatIpShows) {
  sandbox::run([] {
    shell(R"(set -e
      ip link add veth0 type veth peer name fifteen-bytes-x
      ip addr add 10.1.0.1/24 brd + dev veth0
      ip addr add 10.1.0.2/24 brd + dev veth0 label veth0:1 && ip link set veth0 up
      ip addr add 10.2.0.1/30 dev fifteen-bytes-x
      ip link set fifteen-bytes-x mtu 1400 dynamic on up
      ip link add only6 type bridge && ip addr add fd00::1/64 dev only6 && ip link set only6 up
      ip link add down0 type bridge && ip addr add 10.3.0.1/16 brd + dev down0)");
    std::vector<std::string> names;
    ASSERT_EQ(CNetInfo::get_all_ni(names), 0);
    ASSERT_EQ(names.size(), 5U);
    std::string lines;
    for (const std::string& name : names) {
      CNetInfo::net_interface whole;
      CNetInfo::net_interface single;
      EXPECT_EQ(CNetInfo::get_net_info(name, whole), 0);
      EXPECT_EQ(single_values(name, single), std::vector<int>(6, 0));
      lines += line(name, whole);
      EXPECT_EQ(line(name, single), line(name, whole));
    }
    EXPECT_EQ(lines, lines_by_ip());

    CNetInfo::net_interface info{"a", "b", "c", "d", "e", 6, 7};
    EXPECT_EQ(single_values("no-such", info), std::vector<int>(6, 4));
    EXPECT_EQ(CNetInfo::get_net_info("only6", info), 4);
    EXPECT_EQ(line(info.name, info), "a b d e c 6 7\n");
    EXPECT_EQ(single_values("only6", info), (std::vector<int>{0, 0, 4, 4, 4, 0}));

    // Names are looked for every 8 bytes: this one shows an address family 16 bytes behind the
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

TEST(Interfaces, FailingCallsHaveTheirCodes) {
  sandbox::run([] {
    CNetInfo::net_interface info;
    const auto codes = [&info] {
      CNetInfo::NetStat stat;
      std::vector<std::string> names;
      std::string mac;
      return std::vector{CNetInfo::get_all_ni(names), CNetInfo::get_macaddr("lo", mac),
                         CNetInfo::get_net_info("lo", info), CNetInfo::get_net_stat("lo", stat)};
    };
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_EQ(codes(), (std::vector{2, 2, 2, 5}));
    ::setrlimit(RLIMIT_NOFILE, &limit);
    std::size_t allowed = 0;
    for (const std::size_t owner : {0U, 1U, 2U, 2U, 3U}) {
      std::vector expected(4, 0);
      expected[owner] = 3;
      const AllocFault fault(allowed++);
      EXPECT_EQ(codes(), expected);
    }
    info = {};
    const AllocFault fault(1);
    EXPECT_EQ(CNetInfo::get_net_info("lo", info), 3);
    EXPECT_EQ(info.addr + info.netmask, "127.0.0.1") << "filled before the failing step";
  });
}
