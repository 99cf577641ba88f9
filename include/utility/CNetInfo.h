#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "utility/Export.h"

namespace utility {

/// The host's TCP and UDP sockets, ports as text for display, and its network interfaces.
///
/// Interface values come from the kernel by socket `ioctl` requests (netdevice(7)) and from
/// /proc/net/dev. Interface names are at most 15 bytes; of a longer name the first 15 are looked
/// up.
///
/// | Code | Meaning |
/// |---|---|
/// | 0 | done |
/// | -1 | sockets: a line does not parse, or a table cannot be opened |
/// | 1 | an empty interface name |
/// | 2 | the socket for the request could not be opened |
/// | 3 | memory could not be had |
/// | 4 | the request failed: no such interface, no IPv4 address, ... |
/// | 5 | /proc/net/dev could not be opened |
/// | 6 | reading /proc/net/dev failed |
/// | 7 | the interface is not listed in /proc/net/dev |
/// | 16 | there is no socket |
///
/// Nothing is kept between calls: every operation may run on any number of threads at once.
class UTILITY_API CNetInfo {
 public:
  // ---- Sockets ------------------------------------------------------------------------------

  /// One socket.
  struct NetLinkInfo {
    std::string local_addr;   ///< As inet_ntop writes it: "127.0.0.1", "::1", "::ffff:127.0.0.1".
    std::string remote_addr;  ///< The same; 0.0.0.0 or :: while there is no peer.
    std::string protocol;     ///< "tcp", "tcp6", "udp" or "udp6".
    std::string state;        ///< As `state2str` names it.
    std::string local_port;   ///< As `port2str` writes it.
    std::string remote_port;  ///< The same.
    int inode = 0;            ///< Inode number of the socket; 0 when no process holds it any more.
  };

  /// One socket table and how its lines are read.
  struct NetLinkResolve {
    const char* file;      ///< Path of the table.
    const char* protocol;  ///< Word recorded for its sockets.
    /// Fills the record from one line, its protocol excepted; 0 on success.
    int (*resolve)(const char* line, NetLinkInfo& info);
  };

  /// Names a TCP state as the kernel numbers it: 1 "ESTABLISHED", 2 "SYN_SENT", 3 "SYN_RECV",
  /// 4 "FIN_WAIT1", 5 "FIN_WAIT2", 6 "TIME_WAIT", 7 "CLOSE", 8 "CLOSE_WAIT", 9 "LAST_ACK",
  /// 10 "LISTEN", 11 "CLOSING".
  ///
  /// @return constant text; "UNKNOWN" for every other number.
  static const char* state2str(const unsigned int& state);

  /// Writes a port in decimal, and 0 as "*".
  static std::string port2str(const unsigned int& port);

  /// Writes an address as inet_ntop does.
  ///
  /// @param family   AF_INET or AF_INET6.
  /// @param address  its 4 or 16 bytes in network order.
  /// @return the text; empty for any other family.
  static std::string addr2str(int family, const void* address);

  /// Reads one line of an IPv4 table into `info`. The protocol is left as it is.
  ///
  /// @return 0, or -1 when `line` has not the 14 columns. On failure `info` is untouched.
  static int resolve_v4_data(const char* line, NetLinkInfo& info);

  /// Reads one line of an IPv6 table into `info`. The protocol is left as it is.
  ///
  /// @return 0, or -1 when `line` has not the 20 columns. On failure `info` is untouched.
  static int resolve_v6_data(const char* line, NetLinkInfo& info);

  /// Appends the sockets of one table, in line order, each with the row's protocol.
  ///
  /// The first line is a header and skipped. White space around a line is removed before it is
  /// parsed; a line that does not parse is dropped. A line of more than 1024 bytes is taken in
  /// pieces of that size, each a line of its own.
  ///
  /// @param row    the table.
  /// @param infos  receives the records; appended to, never cleared.
  /// @return 0, or -1 when the file cannot be opened or is no regular file. On failure `infos` is
  ///         untouched. Where reading fails half-way the records so far stay, with 0.
  static int resolve_netlink_file(const NetLinkResolve& row, std::vector<NetLinkInfo>& infos);

  /// Appends all TCP and UDP sockets of the caller's network namespace.
  ///
  /// Tables are visited in the order tcp, tcp4, tcp6, udp, udp4, udp6; missing and unreadable ones
  /// are passed over. Nothing is sorted, no duplicate removed.
  ///
  /// @param infos  receives the records; appended to, never cleared.
  /// @return 0, or 16 when `infos` is empty afterwards.
  /// Source: `/proc/net/{tcp,tcp4,tcp6,udp,udp4,udp6}`, proc(5).
  static int get_all_netlink_info(std::vector<NetLinkInfo>& infos);

  // ---- Interfaces ---------------------------------------------------------------------------

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
  /// @return 0, 2 or 4. On failure `macaddr` is untouched.
  /// Source: SIOCGIFHWADDR.
  static int get_macaddr(const std::string& name, std::string& macaddr);

  /// Fills all fields of `info` but its name, in the order addr, flags, macaddr, broadaddr,
  /// netmask, mtu.
  ///
  /// @return 0, 2 or 4. On failure `info` keeps what was filled before the failing step.
  /// Source: the requests named at the single operations.
  static int get_net_info(const std::string& name, net_interface& info);

  /// Reads the traffic counters of an interface.
  ///
  /// @param name  the whole name; a part of one is not found. Labels of further addresses
  ///              ("eth0:1") have no counters.
  /// @param stat  receives the counters.
  /// @return 0, 1, 5, 6 or 7. On failure `stat` is untouched.
  /// Source: /proc/net/dev, proc(5).
  static int get_net_stat(const std::string& name, NetStat& stat);
};

}  // namespace utility
