// Lists the services with their state and restarts those that have stopped. Needs root to restart.

#include <utility/CUnixServ.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

using utility::CUnixServ;

int note(const CUnixServ::UnixServData& service, void* context) {
  std::printf("%s: %s\n", service.name.c_str(), service.status.c_str());
  if (service.status == "stopped") {
    static_cast<std::vector<std::string>*>(context)->push_back(service.name);
  }
  return 0;
}

}  // namespace

int main() {
  std::vector<std::string> stopped;
  if (CUnixServ::get_all_serv_data(note, &stopped) != 0) return 1;
  std::fflush(stdout);  // what the scripts print comes next
  for (const std::string& name : stopped) {
    if (CUnixServ::start_serv(name) != 0) return 1;
  }
  return 0;
}
