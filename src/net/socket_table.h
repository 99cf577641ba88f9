#pragma once

#include <netinet/in.h>

#include <cstdint>

#include "base/io.h"
#include "base/text.h"

// The kernel's socket tables, read once for the three classes that list them. Their records differ
// in types and in one state name; what a line means does not.
namespace utility::detail {

/// One table of the kernel: where it is, the word recorded for its sockets, its address family.
struct SocketFile {
  const char* path;
  const char* protocol;
  int family;
};

/// The tables in the order in which they are visited. Most kernels have no "tcp4" and "udp4".
inline constexpr std::array<SocketFile, 6> kSocketFiles{{{"/proc/net/tcp", "tcp", AF_INET},
                                                         {"/proc/net/tcp4", "tcp", AF_INET},
                                                         {"/proc/net/tcp6", "tcp6", AF_INET6},
                                                         {"/proc/net/udp", "udp", AF_INET},
                                                         {"/proc/net/udp4", "udp", AF_INET},
                                                         {"/proc/net/udp6", "udp6", AF_INET6}}};

/// The columns of a line that are kept, as numbers. The bytes of the address words in memory order
/// are the address in network order; an IPv4 address is the first word alone.
struct SocketLine {
  std::array<std::uint32_t, 4> local_addr;
  std::array<std::uint32_t, 4> remote_addr;
  std::uint32_t local_port;
  std::uint32_t remote_port;
  std::uint32_t state;
  std::uint32_t inode;
};

/// Reads a line of a table of `family` (AF_INET or AF_INET6); false when it is none, and `socket`
/// is then partly filled. Null counts as an empty line.
bool scan_socket_line(int family, const char* line, SocketLine& socket) noexcept;

/// The two ways in which `scan_socket_line` reads. The conversions of the C library define what a
/// line means, odd ones included; `scan_kernel_layout` takes only lines whose every column is
/// exactly as the kernel prints it, and reads those alike.
bool scan_by_format(int family, const char* line, SocketLine& socket) noexcept;
bool scan_kernel_layout(int family, const char* line, SocketLine& socket) noexcept;

/// The text of the address in the bytes at `address`; empty for another family and for null.
std::string address_text(int family, const void* address);

/// The name of a socket state; `listening` names state 10.
const char* state_text(std::uint32_t state, const char* listening) noexcept;

/// A port for display: decimal, "*" for 0.
std::string port_text(std::uint32_t port);

inline void set_port(std::string& field, std::uint32_t port) { field = port_text(port); }
inline void set_port(std::uint32_t& field, std::uint32_t port) { field = port; }

/// Fills `record` but for its protocol; false, with `record` untouched, when `line` does not parse.
template <class Record>
bool resolve_line(int family, const char* line, const char* listening, Record& record) {
  SocketLine socket;
  if (!scan_socket_line(family, line, socket)) return false;
  record.local_addr = address_text(family, socket.local_addr.data());
  record.remote_addr = address_text(family, socket.remote_addr.data());
  record.state = state_text(socket.state, listening);
  record.inode = static_cast<decltype(record.inode)>(socket.inode);
  set_port(record.local_port, socket.local_port);
  set_port(record.remote_port, socket.remote_port);
  return true;
}

/// Prepares a line for parsing, in its place: white space at both ends goes.
inline const char* trimmed(char* text) noexcept {
  text[std::string_view(text).find_last_not_of(kTrimSet) + 1] = '\0';
  return text + std::strspn(text, kTrimSet);
}

/// Prepares a line for parsing, in its place: its line feed goes, nothing else.
inline const char* without_feed(char* text) noexcept {
  text[std::strcspn(text, "\n")] = '\0';
  return text;
}

/// Opens a table: a regular file, as the kernel's are, so that nothing else can hold its reader up.
Fd open_table(const char* path) noexcept;

/// True when the open `table` is one of the kernel's own, whatever path led there.
bool is_kernel_table(const Fd& table, const char* path);

/// No table is read beyond this: about a million sockets.
inline constexpr std::size_t kMostTableBytes = std::size_t{256} << 20;

/// Appends a record for every line of `table` that `row.resolve` takes.
///
/// @param cannot_open  returned when there is no table.
/// @return 0 at the end of the file, or where reading it failed.
template <auto kPrepare, class Row, class Record>
int read_socket_file(Fd table, const Row& row, int cannot_open, std::vector<Record>& out) {
  Lines<1025> lines(std::move(table));  // with its NUL: longer lines come in pieces of 1024
  if (!lines) return cannot_open;
  lines.next();  // the column header
  while (lines.consumed() < kMostTableBytes && lines.next()) {
    Record record{};
    if (row.resolve(kPrepare(lines.text()), record) != 0) continue;
    record.protocol = row.protocol;
    out.push_back(std::move(record));
  }
  return 0;
}

}  // namespace utility::detail
