#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/resource.h>

#include <cstdlib>
#include <functional>
#include <sstream>

#include "support/alloc_fault.h"
#include "support/sandbox.h"
#include "utility/CNetInfo.h"

using utility::CNetInfo;

namespace {

void shell(const std::string& command) {
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

// A line per IPv4 address, in the kernel's order: label, address, mask, broadcast, MAC, MTU, flags.
std::vector<std::string> rows_by_ip() {
  sandbox::write_file(sandbox::scratch() + "/rows.py", R"(
import ipaddress, json, subprocess
bits = dict(UP=1, BROADCAST=2, LOOPBACK=8, NOARP=0x80, MULTICAST=0x1000, DYNAMIC=-0x8000)
for link in json.loads(subprocess.check_output(["ip", "-json", "addr"])):
    for a in link["addr_info"]:
        if a["family"] == "inet":
            mask = ipaddress.ip_network("0.0.0.0/%d" % a["prefixlen"]).netmask
            print(a["label"], a["local"], mask, a.get("broadcast", "0.0.0.0"), link["address"],
                  link["mtu"], sum(bits.get(f, 0) for f in link["flags"]))
)");
  shell("cd " + sandbox::scratch() + " && python3 rows.py > rows");
  std::istringstream stream(sandbox::read_file(sandbox::scratch() + "/rows"));
  std::vector<std::string> rows;
  for (std::string row; std::getline(stream, row);) rows.push_back(row);
  return rows;
}

std::string row_by_library(const std::string& name) {
  CNetInfo::net_interface whole;
  CNetInfo::net_interface single;
  EXPECT_EQ(CNetInfo::get_net_info(name, whole), 0);
  EXPECT_EQ(whole.name, "");
  EXPECT_EQ(CNetInfo::get_addr(name, single.addr), 0);
  EXPECT_EQ(CNetInfo::get_netmask(name, single.netmask), 0);
  EXPECT_EQ(CNetInfo::get_broadaddr(name, single.broadaddr), 0);
  EXPECT_EQ(CNetInfo::get_macaddr(name, single.macaddr), 0);
  EXPECT_EQ(CNetInfo::get_mtu(name, single.mtu), 0);
  EXPECT_EQ(CNetInfo::get_flags(name, single.flags), 0);
  std::string rows[2];
  for (int i = 0; i < 2; ++i) {
    const auto& info = i == 0 ? whole : single;
    rows[i] = name + " " + info.addr + " " + info.netmask + " " + info.broadaddr + " " +
              info.macaddr + " " + std::to_string(info.mtu) + " " +
              std::to_string(info.flags & ~IFF_RUNNING);
  }
  EXPECT_EQ(rows[0], rows[1]);
  return rows[0];
}

std::string counters(const CNetInfo::NetStat& stat) {
  std::ostringstream text;
  text << stat.rx_bytes << ' ' << stat.rx_packets << ' ' << stat.rx_errors << ' ' << stat.tx_bytes
       << ' ' << stat.tx_packets << ' ' << stat.tx_errors;
  return text.str();
}

}  // namespace

TEST(Interfaces, AreWhatIpShows) {
  sandbox::run([] {
    shell(R"(set -e
      ip link add veth0 type veth peer name fifteen-bytes-x
      ip addr add 10.1.0.1/24 brd + dev veth0
      ip addr add 10.1.0.2/24 brd + dev veth0 label veth0:1
      ip link set veth0 up
      ip addr add 10.2.0.1/30 dev fifteen-bytes-x
      ip link set fifteen-bytes-x mtu 1400 dynamic on up
      ip link add only6 type bridge && ip addr add fd00::1/64 dev only6 && ip link set only6 up
      ip link add down0 type bridge && ip addr add 10.3.0.1/16 brd + dev down0)");
    const std::vector<std::string> expected = rows_by_ip();
    ASSERT_EQ(expected.size(), 5U);
    std::vector<std::string> names;
    ASSERT_EQ(CNetInfo::get_all_ni(names), 0);
    std::vector<std::string> rows;
    for (const std::string& name : names) rows.push_back(row_by_library(name));
    EXPECT_EQ(rows, expected);

    CNetInfo::net_interface info;
    for (const char* name : {"only6", "no-such", ""}) {
      info.addr = "kept";
      EXPECT_EQ(CNetInfo::get_addr(name, info.addr), 4);
      EXPECT_EQ(CNetInfo::get_netmask(name, info.addr), 4);
      EXPECT_EQ(CNetInfo::get_broadaddr(name, info.addr), 4);
      EXPECT_EQ(CNetInfo::get_net_info(name, info), 4);
      EXPECT_EQ(info.addr + info.macaddr, "kept");
    }
    EXPECT_EQ(CNetInfo::get_macaddr("only6", info.macaddr), 0);
    EXPECT_EQ(CNetInfo::get_macaddr("no-such", info.macaddr), 4);
    EXPECT_EQ(CNetInfo::get_mtu("no-such", info.mtu), 4);
    EXPECT_EQ(CNetInfo::get_flags("no-such", info.flags), 4);

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

TEST(Interfaces, CountRealTraffic) {
  sandbox::run([] {
    CNetInfo::NetStat before;
    ASSERT_EQ(CNetInfo::get_net_stat("lo", before), 0);
    shell(R"(python3 -c 'import socket
s = socket.socket(type=socket.SOCK_DGRAM)
s.bind(("127.0.0.1", 0))
for _ in range(10): s.sendto(b"x" * 100, s.getsockname())')");
    CNetInfo::NetStat after;
    ASSERT_EQ(CNetInfo::get_net_stat("lo", after), 0);
    EXPECT_EQ(after.rx_packets - before.rx_packets, 10);
    EXPECT_EQ(after.tx_packets - before.tx_packets, 10);
    shell(
        "awk '$1 == \"lo:\" {printf \"%s %s %s %s %s %s\", $2, $3, $4, $10, $11, $12}' "
        "/proc/net/dev > " +
        sandbox::scratch() + "/row");
    EXPECT_EQ(counters(after), sandbox::read_file(sandbox::scratch() + "/row"));
  });
}

TEST(Interfaces, ReadEveryShapeOfTheCounterFile) {
  sandbox::run([] {
    // The kernel drops what is bound over a file of /proc/net, but not what covers the directory.
    const std::string dir = sandbox::scratch() + "/net";
    sandbox::write_file(
        dir + "/dev",
        "Inter-|   Receive  |  Transmit\n face |bytes packets errs\n"
        "  eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n"
        "glued:18446744073709551615 9223372036854775808 0 0 0 0 0 0 x -1 y 0 0 0 0 0\n"
        "short: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n"
        "long: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17\n"
        "eth0:1: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n" +
            std::string(1023, 'x') +
            "cut: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n"
            "late: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16");
    sandbox::bind_path(dir, "/proc/self/net");
    struct Row {
      const char* name;
      int code;
      const char* counters;
    };
    for (const Row& row : {Row{"eth0", 0, "1 2 3 9 10 11"},
                           {"glued", 0, "18446744073709551615 0 0 0 -1 0"},
                           {"cut", 0, "1 2 3 9 10 11"},
                           {"late", 0, "1 2 3 9 10 11"},
                           {"eth", 7, "0 0 0 0 0 0"},
                           {"short", 7, "0 0 0 0 0 0"},
                           {"long", 7, "0 0 0 0 0 0"},
                           {"eth0:1", 7, "0 0 0 0 0 0"},
                           {"", 1, "0 0 0 0 0 0"}}) {
      CNetInfo::NetStat stat;
      EXPECT_EQ(CNetInfo::get_net_stat(row.name, stat), row.code) << row.name;
      EXPECT_EQ(counters(stat), row.counters) << row.name;
    }
    CNetInfo::NetStat stat;
    sandbox::bind_path("/proc/self/mem", "/proc/net/dev");
    EXPECT_EQ(CNetInfo::get_net_stat("lo", stat), 6);
  });
}

TEST(Interfaces, FailingCallsHaveTheirCodes) {
  sandbox::run([] {
    CNetInfo::net_interface info;
    CNetInfo::NetStat stat;
    std::vector<std::string> names;
    const std::function<int()> calls[] = {
        [&] { return CNetInfo::get_all_ni(names); },
        [&] { return CNetInfo::get_macaddr("lo", info.macaddr); },
        [&] { return CNetInfo::get_net_info("lo", info); },
        [&] { return CNetInfo::get_net_stat("lo", stat); },
    };
    for (const auto& call : calls) {
      const AllocFault fault(0);
      EXPECT_EQ(call(), 3);
    }
    EXPECT_EQ(info.addr, "");
    {
      const AllocFault fault(1);
      EXPECT_EQ(CNetInfo::get_net_info("lo", info), 3);
      EXPECT_EQ(info.addr + info.macaddr, "127.0.0.1");
    }
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
    const int codes[] = {2, 2, 2, 5};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(calls[i](), codes[i]);
    EXPECT_EQ(CNetInfo::get_mtu("lo", info.mtu), 2);
    ::setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_TRUE(names.empty());
    EXPECT_EQ(info.mtu, 0);
  });
}
