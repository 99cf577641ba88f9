// Walks over the processes until it meets this one.

#include <unistd.h>
#include <utility/CUnixProc.h>

#include <cstdio>

namespace {

using utility::CUnixProc;

struct Search {
  int pid;
  CUnixProc::UnixProcData found;
};

int look_at(const CUnixProc::UnixProcData& process, void* context) {
  auto* search = static_cast<Search*>(context);
  if (process.pid != search->pid) return 0;
  search->found = process;  // the record lives for the call only
  return 1;                 // stops the walk
}

}  // namespace

int main() {
  Search search{::getpid(), {}};
  const int code = CUnixProc::get_all_proc_data(look_at, &search);
  std::printf("code %d: %s\n", code, search.found.name.c_str());
  std::printf("parent found: %s\n", search.found.ppid == ::getppid() ? "yes" : "no");

  std::vector<std::string> maps;
  if (CUnixProc::one_proc_infos("self", maps) != 0) return 1;
  for (const std::string& path : maps) {
    if (path.find("libutility") == std::string::npos) continue;
    std::puts("uses libutility");
    break;
  }
  return 0;
}
