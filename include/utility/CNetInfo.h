#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "utility/Export.h"

namespace utility {

/// The host's network interfaces.
///
/// Values come from the kernel by socket `ioctl` requests (netdevice(7)) and from /proc/net/dev.
/// Interface names are at most 15 bytes; of a longer name the first 15 are looked up.
///
/// No state is kept: all operations may run on any number of threads at once.
class UTILITY_API CNetInfo {
 public:
  /// One IPv4 interface.
  struct net_interface {
    std::string name;       ///< the caller's: no operation here sets it.
    std::string addr;       ///< IPv4 address, dotted.
    std::string macaddr;    ///< hardware address, as "00:1a:2b:3c:4d:5e".
    std::string netmask;    ///< netmask, dotted.
    std::string broadaddr;  ///< broadcast address, dotted.
    int mtu = 0;            ///< greatest packet, in bytes.
    int flags = 0;          ///< IFF_UP and so on (<net/if.h>); 16 bits, sign-extended.
  };

  /// Traffic counters of one interface since it came up.
  struct NetStat {
    std::int64_t rx_packets = 0;  ///< packets received.
    std::uint64_t rx_bytes = 0;   ///< bytes received.
    std::int64_t rx_errors = 0;   ///< receive errors.
    std::int64_t tx_packets = 0;  ///< packets sent.
    std::uint64_t tx_bytes = 0;   ///< bytes sent.
    std::int64_t tx_errors = 0;   ///< send errors.
  };

  // Result codes of the interface operations:
  //   0  success
  //   1  empty interface name (get_net_stat)
  //   2  the socket could not be opened
  //   3  memory could not be had
  //   4  the request failed: no such interface, no IPv4 address, ...
  //   5  /proc/net/dev could not be opened
  //   6  read error on /proc/net/dev
  //   7  the interface is not listed in /proc/net/dev

  /// Appends the names of the interfaces that have an IPv4 address, in kernel order.
  ///
  /// The kernel names an interface once per address, by the address's label ("eth0", "eth0:1"), and
  /// shows at most 128 of them here.
  ///
  /// @return 0, 2, 3 or 4. On failure `names` is untouched.
  /// Source: SIOCGIFCONF.
  static int get_all_ni(std::vector<std::string>& names);

  /// Reads the flags of an interface (IFF_UP, IFF_LOOPBACK, ...), the 16-bit word sign-extended.
  ///
  /// @return 0, 2 or 4. On failure `flags` is untouched.
  /// Source: SIOCGIFFLAGS.
  static int get_flags(const std::string& name, int& flags);

  /// Reads the MTU of an interface, in bytes.
  ///
  /// @return 0, 2 or 4. On failure `mtu` is untouched.
  /// Source: SIOCGIFMTU.
  static int get_mtu(const std::string& name, int& mtu);

  /// Reads the IPv4 address of an interface, dotted.
  ///
  /// @return 0, 2 or 4. On failure `addr` is untouched.
  /// Source: SIOCGIFADDR.
  static int get_addr(const std::string& name, std::string& addr);

  /// Reads the IPv4 netmask of an interface, dotted.
  ///
  /// @return 0, 2 or 4. On failure `netmask` is untouched.
  /// Source: SIOCGIFNETMASK.
  static int get_netmask(const std::string& name, std::string& netmask);

  /// Reads the IPv4 broadcast address of an interface, dotted ("0.0.0.0" where it has none).
  ///
  /// @return 0, 2 or 4. On failure `broadaddr` is untouched.
  /// Source: SIOCGIFBRDADDR.
  static int get_broadaddr(const std::string& name, std::string& broadaddr);

  /// Reads the first six bytes of an interface's hardware address, as "00:1a:2b:3c:4d:5e".
  ///
  /// @return 0, 2, 3 or 4. On failure `macaddr` is untouched.
  /// Source: SIOCGIFHWADDR.
  static int get_macaddr(const std::string& name, std::string& macaddr);

  /// Fills all fields of `info` but its name, in the order addr, flags, macaddr, broadaddr,
  /// netmask, mtu.
  ///
  /// @return 0, 2, 3 or 4. On failure `info` keeps what was filled before the failing step.
  /// Source: the requests named at the single operations.
  static int get_net_info(const std::string& name, net_interface& info);

  /// Reads the traffic counters of an interface.
  ///
  /// @param name  the whole name; a part of one is not found. Labels of further addresses
  ///              ("eth0:1") have no counters.
  /// @return 0, 1, 3, 5, 6 or 7. On failure `stat` is untouched.
  /// Source: /proc/net/dev, proc(5).
  static int get_net_stat(const std::string& name, NetStat& stat);
};

}  // namespace utility
