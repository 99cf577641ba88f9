#include "utility/CUnixProcNet.h"

#include <map>

#include "base/dir_walk.h"
#include "base/paths.h"
#include "net/socket_table.h"

namespace utility {

using namespace detail;

namespace {

using NetInfo = CUnixProcNet::NetInfo;
using ProcNetInfo = CUnixProcNet::ProcNetInfo;

constexpr char kListening[] = "LISTENING";
constexpr std::size_t kPathLimit = 1024;

enum Code : int {
  kDone = 0,
  kNoDirectory = 1,
  kNoSocket = 2,
  kCannotOpenTable = 3,
  kCannotOpenDirectory = 4,
  kCannotReadLink = 5,
  kNoV4Line = 6,
  kNoV6Line = 7,
};

// A socket record and the process that holds it.
struct Match {
  int pid;
  const NetInfo* net;
};

// Finds socket records by inode, those of one inode in their own order. On a busy host there are
// tens of thousands of records, and as many descriptors that ask for one.
class InodeIndex {
 public:
  explicit InodeIndex(const std::vector<NetInfo>& nets)
      : nets_(nets), heads_(nets.size() + 1, kEnd), next_(nets.size()) {
    // Backwards, since each record goes to the front of its chain.
    for (std::size_t i = nets.size(); i-- > 0;) {
      std::size_t& head = heads_[chain(nets[i].inode)];
      next_[i] = head;
      head = i;
    }
  }

  // Appends the records of `inodes`, which `pid` holds.
  void find(int pid, const std::vector<unsigned long>& inodes, std::vector<Match>& matches) const {
    for (const unsigned long inode : inodes) {
      for (std::size_t i = heads_[chain(inode)]; i != kEnd; i = next_[i]) {
        if (nets_[i].inode == inode) matches.push_back({pid, &nets_[i]});
      }
    }
  }

 private:
  static constexpr std::size_t kEnd = static_cast<std::size_t>(-1);

  std::size_t chain(unsigned long inode) const noexcept { return inode % heads_.size(); }

  const std::vector<NetInfo>& nets_;
  std::vector<std::size_t> heads_;
  std::vector<std::size_t> next_;
};

// The records of the tables below one root directory. Below another than the host's, whoever lives
// there may have put anything in the place of a table: only the kernel's own are taken.
std::vector<NetInfo> read_root(const std::string& root) {
  std::vector<NetInfo> nets;
  std::vector<CUnixProcNet::NetResolve> files;
  CUnixProcNet::init_net_file(root, files);
  for (const auto& file : files) {
    Fd table = open_table(file.file.c_str());
    if (root == "/" || (table && is_kernel_table(table, file.file.c_str()))) {
      read_socket_file<without_feed>(std::move(table), file, kCannotOpenTable, nets);
    }
  }
  return nets;
}

struct RootSockets {
  explicit RootSockets(const std::string& root) : nets(read_root(root)), index(nets) {}

  std::vector<NetInfo> nets;
  InodeIndex index;
};

// Apart from the finding, so that the records, which are large, are laid down once in their place.
void append_records(const std::vector<Match>& matches, std::vector<ProcNetInfo>& out) {
  const std::size_t size = out.size() + matches.size();
  if (size > out.capacity()) out.reserve(std::max(size, 2 * out.capacity()));
  for (const auto& [pid, net] : matches) {
    out.push_back({pid, net->local_port, net->remote_port, net->local_addr, net->remote_addr,
                   net->protocol, net->state});
  }
}

int read_link(int dir, const char* path, std::string& target) {
  if (read_link_at(dir, path, kPathLimit, target)) return kDone;
  if (errno != EACCES) return kCannotReadLink;
  target = "/";
  return kDone;
}

}  // namespace

const char* CUnixProcNet::state2str(const unsigned int& state) {
  return state_text(state, kListening);
}

std::string CUnixProcNet::addr2str(int family, const void* address) {
  return address_text(family, address);
}

int CUnixProcNet::resolve_v4_data(const char* line, NetInfo& info) {
  return resolve_line(AF_INET, line, kListening, info) ? kDone : kNoV4Line;
}

int CUnixProcNet::resolve_v6_data(const char* line, NetInfo& info) {
  return resolve_line(AF_INET6, line, kListening, info) ? kDone : kNoV6Line;
}

void CUnixProcNet::init_net_file(const std::string& root, std::vector<NetResolve>& files) {
  for (const auto& [table, protocol, family] : kSocketFiles) {
    std::string path = root == "/" ? table : root + table;
    if (!exists(path.c_str())) continue;
    const auto resolve = family == AF_INET ? resolve_v4_data : resolve_v6_data;
    files.push_back({std::move(path), protocol, resolve});
  }
}

int CUnixProcNet::resolve_net_file(const NetResolve& row, std::vector<NetInfo>& infos) {
  return read_socket_file<without_feed>(open_table(row.file.c_str()), row, kCannotOpenTable, infos);
}

int CUnixProcNet::get_net_info(const std::string& root, std::vector<NetInfo>& infos) {
  std::vector<NetResolve> files;
  init_net_file(root, files);
  for (const NetResolve& file : files) resolve_net_file(file, infos);
  return kDone;
}

bool CUnixProcNet::is_proc_info_dir(const char* name) {
  return name != nullptr && is_decimal(name);
}

std::string CUnixProcNet::make_proc_path(const char* base, const char* name, const char* sub) {
  std::string path = join_path(base == nullptr ? "/proc" : base, or_empty(name), kPathLimit);
  return sub == nullptr ? path : join_path(path.c_str(), sub, kPathLimit);
}

int CUnixProcNet::get_link_src(const char* path, std::string& target) {
  return path == nullptr ? kCannotReadLink : read_link(AT_FDCWD, path, target);
}

int CUnixProcNet::get_proc_socket_inodes(const char* fd_dir, std::vector<unsigned long>& inodes) {
  if (fd_dir == nullptr) return kNoDirectory;
  DirWalk fds(fd_dir);
  if (!fds) return kCannotOpenDirectory;
  while (const char* name = fds.next()) {
    if (!is_proc_info_dir(name)) continue;
    append_if_socket(AT_FDCWD, make_proc_path(fd_dir, name, nullptr).c_str(), inodes);
  }
  return inodes.empty() ? kNoSocket : kDone;
}

void CUnixProcNet::relation_proc_net(const char* pid, const std::vector<unsigned long>& inodes,
                                     const std::vector<NetInfo>& nets,
                                     std::vector<ProcNetInfo>& out) {
  const int number = pid == nullptr ? 0 : static_cast<int>(std::strtol(pid, nullptr, 10));
  std::vector<Match> matches;
  InodeIndex(nets).find(number, inodes, matches);
  append_records(matches, out);
}

int CUnixProcNet::get_proc_net_info(std::vector<ProcNetInfo>& out) {
  ProcWalk procs(is_decimal);
  if (!procs) return kCannotOpenDirectory;

  std::map<std::string, RootSockets> roots;
  std::vector<Match> matches;
  std::vector<unsigned long> inodes;
  std::string root;
  while (procs.next()) {
    const std::string name = procs.name();
    DirWalk fds(procs.fd(), (name + "/fd").c_str());
    inodes.clear();
    while (const char* fd = fds.next()) {
      if (is_decimal(fd)) append_if_socket(fds.fd(), fd, inodes);
    }
    if (inodes.empty()) continue;
    if (read_link(procs.fd(), (name + "/root").c_str(), root) != kDone) continue;
    roots.try_emplace(root, root).first->second.index.find(procs.pid(), inodes, matches);
  }
  append_records(matches, out);
  return kDone;
}

}  // namespace utility
