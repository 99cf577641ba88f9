#include <utility/CUnixProc.h>
#include <utility/CUnixProcNet.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>
#include <vector>

#include "report/sections.h"

namespace report {
namespace {

using utility::CUnixProc;
using utility::CUnixProcNet;

std::string endpoint(const std::string& address, unsigned port) {
  const bool bracket = address.find(':') != std::string::npos;
  return (bracket ? "[" + address + "]" : address) + ":" +
         (port == 0 ? std::string("*") : std::to_string(port));
}

// A socket and the process that holds it; pid 0 where none could be found.
struct Row {
  CUnixProcNet::ProcNetInfo socket;

  std::string key() const {
    return socket.protocol + " " + endpoint(socket.local_addr, socket.local_port) + " " +
           endpoint(socket.remote_addr, socket.remote_port) + " " + socket.state;
  }
};

// Sockets that nobody holds any more (TIME_WAIT), or whose holder we may not look at.
void add_unowned(std::vector<Row>& rows) {
  std::set<std::string> owned;
  for (const Row& row : rows) owned.insert(row.key());
  std::vector<CUnixProcNet::NetInfo> all;
  CUnixProcNet::get_net_info("/", all);
  for (const auto& net : all) {
    Row row{{0, net.local_port, net.remote_port, net.local_addr, net.remote_addr, net.protocol,
             net.state}};
    if (owned.count(row.key()) == 0) rows.push_back(std::move(row));
  }
}

}  // namespace

bool sockets(Format format, const std::string& /*argument*/) {
  std::vector<CUnixProcNet::ProcNetInfo> held;
  if (CUnixProcNet::get_proc_net_info(held) != 0) return false;
  std::vector<Row> rows;
  rows.reserve(held.size());
  for (auto& socket : held) rows.push_back({std::move(socket)});
  add_unowned(rows);
  std::stable_sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) {
    return a.socket.state == "LISTENING" && b.socket.state != "LISTENING";
  });

  std::map<int, CUnixProc::UnixProcData> owners;
  Table table(
      "sockets",
      {{"protocol"}, {"local"}, {"remote"}, {"state"}, {"pid", true}, {"name"}, {"executable"}});
  for (const Row& row : rows) {
    const auto& socket = row.socket;
    const auto [owner, is_new] = owners.try_emplace(socket.pid);
    if (is_new && socket.pid > 0) CUnixProc::get_proc_data(socket.pid, owner->second);
    table.add({socket.protocol, endpoint(socket.local_addr, socket.local_port),
               endpoint(socket.remote_addr, socket.remote_port), socket.state,
               socket.pid > 0 ? std::to_string(socket.pid) : "-", owner->second.name,
               owner->second.path});
  }
  table.print(format);
  return true;
}

}  // namespace report
