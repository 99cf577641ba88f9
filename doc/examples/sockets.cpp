// Opens a port and finds it among the sockets of this process; then lists the interfaces.

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility/CNetInfo.h>
#include <utility/CUnixProcNet.h>

#include <cstdio>
#include <string>
#include <vector>

int main() {
  using utility::CNetInfo;
  using utility::CUnixProcNet;

  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listener < 0 || ::listen(listener, 1) != 0) return 1;  // at a port of the kernel's choice

  std::vector<CUnixProcNet::ProcNetInfo> sockets;
  if (CUnixProcNet::get_proc_net_info(sockets) != 0) return 1;
  for (const auto& socket : sockets) {
    if (socket.pid != ::getpid()) continue;
    std::printf("%s %s:%u %s\n", socket.protocol.c_str(), socket.local_addr.c_str(),
                socket.local_port, socket.state.c_str());
  }
  ::close(listener);

  std::vector<std::string> names;
  if (CNetInfo::get_all_ni(names) != 0) return 1;
  for (const std::string& name : names) {
    CNetInfo::net_interface interface;
    if (CNetInfo::get_net_info(name, interface) != 0) continue;  // it may be gone by now
    std::printf("%s %s netmask %s\n", name.c_str(), interface.addr.c_str(),
                interface.netmask.c_str());
  }
  return 0;
}
