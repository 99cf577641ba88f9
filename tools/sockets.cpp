#include <utility/CUnixProc.h>
#include <utility/CUnixProcNet.h>

#include <algorithm>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "sections.h"

namespace report {
namespace {

using utility::CUnixProc;
using utility::CUnixProcNet;
using Process = CUnixProc::UnixProcData;
using Socket = CUnixProcNet::NetInfo;

// A socket and one process that holds it; null where there is none (TIME_WAIT), or none that we may
// look at.
struct Row {
  const Socket* socket;
  const Process* holder;
};

int collect_holder(const Process& process, void* holders) {
  if (!process.inodes.empty()) {
    static_cast<std::vector<Process>*>(holders)->push_back(process);
  }
  return 0;
}

// A socket is matched by its inode, whatever root directory and mounts its holder has.
std::multimap<unsigned long, const Process*> by_inode(const std::vector<Process>& holders) {
  std::multimap<unsigned long, const Process*> result;
  for (const Process& holder : holders) {
    auto inodes = holder.inodes;
    std::sort(inodes.begin(), inodes.end());
    inodes.erase(std::unique(inodes.begin(), inodes.end()), inodes.end());
    for (const unsigned long inode : inodes) result.emplace(inode, &holder);
  }
  return result;
}

bool is_udp(const Socket& socket) { return socket.protocol.compare(0, 3, "udp") == 0; }

// UDP has no listening state: it takes what comes unless it is connected.
bool listens(const Socket& socket) {
  return socket.state == "LISTENING" || (is_udp(socket) && socket.state == "CLOSE");
}

// "tcp" and "udp" mean both families, "tcp4" and "tcp6" one.
bool has_protocol(const Socket& socket, const std::string& wanted) {
  return wanted == socket.protocol || wanted == socket.protocol.substr(0, 3) ||
         wanted == socket.protocol + "4";
}

bool wanted(const Row& row, const Filters& filters, UserNames& users) {
  const Socket& socket = *row.socket;
  if (filters.has(kListening) && !listens(socket)) return false;
  if (filters.has(kPort) && socket.local_port != filters.port &&
      socket.remote_port != filters.port) {
    return false;
  }
  if (filters.has(kProtocol) && !has_protocol(socket, filters.protocol)) return false;
  if ((filters.given & (kPid | kName | kUser)) == 0) return true;
  return row.holder != nullptr && (!filters.has(kPid) || row.holder->pid == filters.pid) &&
         (!filters.has(kName) || row.holder->name == filters.name) &&
         (!filters.has(kUser) || users.is(row.holder->uid, filters.user));
}

// Those that wait for peers first, then by state and port.
bool before(const Row& a, const Row& b) {
  const auto key = [](const Row& row) {
    const Socket& socket = *row.socket;
    return std::make_tuple(!listens(socket), std::string_view(socket.state), socket.local_port,
                           std::string_view(socket.protocol), std::string_view(socket.local_addr),
                           socket.remote_port, std::string_view(socket.remote_addr),
                           row.holder != nullptr ? row.holder->pid : 0);
  };
  return key(a) < key(b);
}

void add(const Row& row, UserNames& users, Table& table) {
  const Socket& socket = *row.socket;
  static const Process kNobody;
  const bool held = row.holder != nullptr;
  const Process& holder = held ? *row.holder : kNobody;
  const bool has_peer = socket.remote_port != 0;
  table.add({socket.protocol, socket.state, socket.local_addr, std::to_string(socket.local_port),
             has_peer ? socket.remote_addr : "", has_peer ? std::to_string(socket.remote_port) : "",
             held ? std::to_string(holder.pid) : "", held ? users.of(holder.uid) : "",
             held ? std::to_string(holder.uid) : "", holder.name, holder.path, holder.cmd,
             socket.inode != 0 ? std::to_string(socket.inode) : ""});
}

bool fill_sockets(const Filters& filters, Table& table) {
  std::vector<Socket> sockets;
  CUnixProcNet::get_net_info("/", sockets);
  std::vector<Process> processes;
  const bool complete = CUnixProc::get_all_proc_data(collect_holder, &processes) == 0;
  const auto holders = by_inode(processes);

  UserNames users;
  std::vector<Row> rows;
  const auto consider = [&](const Row& row) {
    if (wanted(row, filters, users)) rows.push_back(row);
  };
  for (const Socket& socket : sockets) {
    const auto [begin, end] = holders.equal_range(socket.inode);
    if (begin == end) consider({&socket, nullptr});
    for (auto holder = begin; holder != end; ++holder) consider({&socket, holder->second});
  }
  std::sort(rows.begin(), rows.end(), before);
  for (const Row& row : rows) add(row, users, table);
  return complete;
}

}  // namespace

const Section kSockets = {
    "sockets",
    "TCP and UDP sockets with their holders, by state and port",
    {{"PROTO", Kind::kText, "tcp, tcp6, udp or udp6"},
     {"STATE", Kind::kText, "state; CLOSE for UDP without a peer"},
     {"ADDRESS", Kind::kLong, "local address"},
     {"PORT", Kind::kNumber, "local port"},
     {"PEER_ADDRESS", Kind::kLong, "the other side's address, if there is one"},
     {"PEER_PORT", Kind::kNumber, "the other side's port"},
     {"PID", Kind::kNumber, "a process that holds it; one row for each", 0, true},
     {"USER", Kind::kText, "that process's user"},
     {"UID", Kind::kNumber, "that user's id", kAsked},
     {"NAME", Kind::kText, "that process's name"},
     {"EXECUTABLE", Kind::kLong, "path of its program", kWide, true},
     {"COMMAND", Kind::kLong, "its command line", kAsked},
     {"INODE", Kind::kNumber, "the socket's inode number", kAsked}},
    fill_sockets,
    kListening | kPort | kProtocol | kPid | kName | kUser};

}  // namespace report
