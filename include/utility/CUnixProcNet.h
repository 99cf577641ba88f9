#pragma once

#include <string>
#include <vector>

#include "utility/Export.h"

namespace utility {

/// Which process holds which TCP or UDP socket.
///
/// The socket tables can be read below a root directory, so that a process in a chroot or container
/// is matched against the tables that it sees itself. Nothing is kept between calls: every
/// operation may run on any number of threads at once.
///
/// | Code | Meaning |
/// |---|---|
/// | 0 | done |
/// | 1 | no descriptor directory was given |
/// | 2 | the process holds no socket |
/// | 3 | a table cannot be opened |
/// | 4 | a directory cannot be opened |
/// | 5 | the link cannot be read |
/// | 6 | an IPv4 line does not parse |
/// | 7 | an IPv6 line does not parse |
///
///     std::vector<utility::CUnixProcNet::ProcNetInfo> sockets;
///     if (utility::CUnixProcNet::get_proc_net_info(sockets) == 0) { ... }
class UTILITY_API CUnixProcNet {
 public:
  /// One socket.
  struct NetInfo {
    unsigned long inode = 0;       ///< Inode number, 32 bits; 0 when no process holds the socket.
    unsigned int local_port = 0;   ///< 0 to 65535.
    unsigned int remote_port = 0;  ///< The same; 0 while there is no peer.
    std::string local_addr;   ///< As inet_ntop writes it: "127.0.0.1", "::1", "::ffff:127.0.0.1".
    std::string remote_addr;  ///< The same; 0.0.0.0 or :: while there is no peer.
    std::string protocol;     ///< "tcp", "tcp6", "udp" or "udp6".
    std::string state;        ///< As `state2str` names it.
  };

  /// One socket table and how its lines are read.
  struct NetResolve {
    std::string file;      ///< Path of the table.
    std::string protocol;  ///< Word recorded for its sockets.
    /// Fills the record from one line, its protocol excepted; 0 on success.
    int (*resolve)(const char* line, NetInfo& info);
  };

  /// One socket held by one process. All but `pid` is as in `NetInfo`.
  struct ProcNetInfo {
    int pid = 0;                   ///< The process.
    unsigned int local_port = 0;   ///< 0 to 65535.
    unsigned int remote_port = 0;  ///< The same; 0 while there is no peer.
    std::string local_addr;        ///< Address text.
    std::string remote_addr;       ///< Address text.
    std::string protocol;          ///< "tcp", "tcp6", "udp" or "udp6".
    std::string state;             ///< As `state2str` names it.
  };

  /// Names a TCP state as the kernel numbers it: 1 "ESTABLISHED", 2 "SYN_SENT", 3 "SYN_RECV",
  /// 4 "FIN_WAIT1", 5 "FIN_WAIT2", 6 "TIME_WAIT", 7 "CLOSE", 8 "CLOSE_WAIT", 9 "LAST_ACK",
  /// 10 "LISTENING" (not "LISTEN", as the other socket classes have it), 11 "CLOSING".
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
  /// @return 0, or 6 when `line` has not the 14 columns. On failure `info` is untouched.
  static int resolve_v4_data(const char* line, NetInfo& info);

  /// Reads one line of an IPv6 table into `info`. The protocol is left as it is.
  ///
  /// @return 0, or 7 when `line` has not the 20 columns. On failure `info` is untouched.
  static int resolve_v6_data(const char* line, NetInfo& info);

  /// Appends the tables that exist below `root`, in the order tcp, tcp4, tcp6, udp, udp4, udp6.
  ///
  /// @param root   a directory; its tables are in proc/net below it. Empty means "/".
  /// @param files  receives one row per table; appended to, never cleared.
  static void init_net_file(const std::string& root, std::vector<NetResolve>& files);

  /// Appends the sockets of one table, in line order, each with the row's protocol.
  ///
  /// The first line is a header and skipped. One line feed at its end is removed before a line is
  /// parsed; a line that does not parse is dropped. A line of more than 1024 bytes is taken in
  /// pieces of that size, each a line of its own.
  ///
  /// @param row    the table.
  /// @param infos  receives the records; appended to, never cleared.
  /// @return 0, or 3 when the file cannot be opened or is no regular file. On failure `infos` is
  ///         untouched. Where reading fails half-way the records so far stay, with 0.
  static int resolve_net_file(const NetResolve& row, std::vector<NetInfo>& infos);

  /// Appends the sockets of all tables below `root`. Unreadable tables are passed over.
  ///
  /// @param root   as in `init_net_file`.
  /// @param infos  receives the records; appended to, never cleared.
  /// @return 0 always, also when there is no table.
  /// Source: `<root>/proc/net/{tcp,tcp4,tcp6,udp,udp4,udp6}`, proc(5).
  static int get_net_info(const std::string& root, std::vector<NetInfo>& infos);

  /// True when `name` is made of decimal digits only, as the names of processes and descriptors
  /// are; so too for the empty name.
  static bool is_proc_info_dir(const char* name);

  /// Joins `base`, `name` and `sub` with "/", cut to 1024 bytes.
  ///
  /// @param base  null means "/proc".
  /// @param name  the entry in it.
  /// @param sub   what is wanted of the entry; null for the entry itself.
  static std::string make_proc_path(const char* base, const char* name, const char* sub);

  /// Reads where the link `path` points to, at most 1024 bytes of it.
  ///
  /// @param path    the link.
  /// @param target  receives its text; "/" when permission to read it is missing.
  /// @return 0, or 5 when it cannot be read for another reason. On failure `target` is untouched.
  static int get_link_src(const char* path, std::string& target);

  /// Appends the inode numbers of the sockets among a process's open descriptors.
  ///
  /// Descriptors that vanish or cannot be examined are passed over.
  ///
  /// @param fd_dir  the directory of the descriptors: `/proc/<pid>/fd`.
  /// @param inodes  receives the numbers in listing order; appended to, never cleared.
  /// @return 0 when `inodes` holds anything afterwards, from before the call too; 1 when `fd_dir`
  ///         is null; 2 when `inodes` is still empty; 4 when the directory cannot be opened. On
  ///         failure `inodes` is untouched.
  /// Source: the file status of the entries of `fd_dir`.
  static int get_proc_socket_inodes(const char* fd_dir, std::vector<unsigned long>& inodes);

  /// Appends one record for every pair of a process's socket and a table record of that inode.
  ///
  /// @param pid     the process id in decimal.
  /// @param inodes  the inode numbers of its sockets.
  /// @param nets    the socket records to match them against.
  /// @param out     receives the pairs, in the order of `inodes` and for each in the order of
  ///                `nets`; appended to, never cleared.
  static void relation_proc_net(const char* pid, const std::vector<unsigned long>& inodes,
                                const std::vector<NetInfo>& nets, std::vector<ProcNetInfo>& out);

  /// Appends every TCP and UDP socket that a process holds, once for each holder and descriptor.
  ///
  /// A process is matched against the tables below its own root directory; each distinct root is
  /// read once. Below another root than "/" only tables of the kernel's own are taken: whoever
  /// lives there may have put any file in their place. Processes that vanish, have no socket or may
  /// not be examined (other users', without privilege) are passed over.
  ///
  /// @param out  receives the records in the order of the /proc listing, then of the descriptors,
  ///             then of the tables; appended to, never cleared.
  /// @return 0, or 4 when /proc cannot be opened. On failure `out` is untouched.
  /// Source: `/proc/<pid>/fd`, `/proc/<pid>/root`, `<root>/proc/net`.
  static int get_proc_net_info(std::vector<ProcNetInfo>& out);
};

}  // namespace utility
