#pragma once

#include <string>
#include <vector>

#include "utility/Export.h"

namespace utility {

/// The host's TCP and UDP sockets, ports as numbers.
///
/// | Code | Meaning |
/// |---|---|
/// | 0 | done |
/// | 1 | an IPv4 line does not parse |
/// | 2 | an IPv6 line does not parse |
/// | 3 | a table cannot be opened |
///
/// Nothing is kept between calls: every operation may run on any number of threads at once.
class UTILITY_API CUnixNetlink {
 public:
  /// One socket.
  struct NetLinkInfo {
    std::string local_addr;   ///< As inet_ntop writes it: "127.0.0.1", "::1", "::ffff:127.0.0.1".
    std::string remote_addr;  ///< The same; 0.0.0.0 or :: while there is no peer.
    std::string protocol;     ///< "tcp", "tcp6", "udp" or "udp6".
    std::string state;        ///< As `state2str` names it.
    unsigned int inode = 0;   ///< Inode number of the socket; 0 when no process holds it.
    unsigned int local_port = 0;   ///< 0 to 65535.
    unsigned int remote_port = 0;  ///< The same; 0 while there is no peer.
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

  /// Writes an address as inet_ntop does.
  ///
  /// @param family   AF_INET or AF_INET6.
  /// @param address  its 4 or 16 bytes in network order.
  /// @return the text; empty for any other family.
  static std::string addr2str(int family, const void* address);

  /// Reads one line of an IPv4 table into `info`. The protocol is left as it is.
  ///
  /// @return 0, or 1 when `line` has not the 14 columns. On failure `info` is untouched.
  static int resolve_v4_data(const char* line, NetLinkInfo& info);

  /// Reads one line of an IPv6 table into `info`. The protocol is left as it is.
  ///
  /// @return 0, or 2 when `line` has not the 20 columns. On failure `info` is untouched.
  static int resolve_v6_data(const char* line, NetLinkInfo& info);

  /// Appends the sockets of one table, in line order, each with the row's protocol.
  ///
  /// The first line is a header and skipped. White space around a line is removed before it is
  /// parsed; a line that does not parse is dropped. A line of more than 1024 bytes is taken in
  /// pieces of that size, each a line of its own.
  ///
  /// @param row    the table.
  /// @param infos  receives the records; appended to, never cleared.
  /// @return 0, or 3 when the file cannot be opened or is no regular file. On failure `infos` is
  ///         untouched. Where reading fails half-way the records so far stay, with 0.
  static int resolve_netlink_file(const NetLinkResolve& row, std::vector<NetLinkInfo>& infos);

  /// Appends all TCP and UDP sockets of the caller's network namespace.
  ///
  /// Tables are visited in the order tcp, tcp4, tcp6, udp, udp4, udp6; missing ones are passed
  /// over. Nothing is sorted, no duplicate removed.
  ///
  /// @param infos  receives the records; appended to, never cleared.
  /// @return 0 when every existing table was read (or none exists), or 3 at the first one that
  ///         exists but cannot be opened. On failure `infos` keeps what was filled before the
  ///         failing step.
  /// Source: `/proc/net/{tcp,tcp4,tcp6,udp,udp4,udp6}`, proc(5).
  static int get_all_netlink_infos(std::vector<NetLinkInfo>& infos);
};

}  // namespace utility
