#include <utility/CTime.h>
#include <utility/CUnixProc.h>

#include <algorithm>
#include <string>
#include <vector>

#include "report/sections.h"

namespace report {
namespace {

using utility::CUnixProc;

int add_process(const CUnixProc::UnixProcData& process, void* context) {
  char started[32] = "";
  utility::CTime::get_local_time_4_mysql(process.start_time, started, sizeof started);
  static_cast<Table*>(context)->add({std::to_string(process.pid), std::to_string(process.ppid),
                                     std::to_string(process.uid), started, process.name,
                                     process.cmd});
  return 0;
}

}  // namespace

bool processes(Format format, const std::string& /*argument*/) {
  Table table("processes",
              {{"pid", true}, {"ppid", true}, {"uid", true}, {"started"}, {"name"}, {"command"}});
  const bool complete = CUnixProc::get_all_proc_data(add_process, &table) == 0;
  table.print(format);
  return complete;
}

bool maps(Format format, const std::string& pid) {
  std::vector<std::string> paths;
  const bool complete = CUnixProc::one_proc_infos(pid.c_str(), paths) == 0;
  std::sort(paths.begin(), paths.end());
  paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
  Table table("maps", {{"path"}});
  for (std::string& path : paths) table.add({std::move(path)});
  table.print(format);
  return complete;
}

}  // namespace report
