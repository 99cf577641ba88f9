#include <utility/CMemInfo.h>
#include <utility/CTime.h>
#include <utility/CUnixFile.h>
#include <utility/CUnixProc.h>
#include <utility/CUnixUser.h>

#include <algorithm>
#include <string>
#include <vector>

#include "sections.h"

namespace report {
namespace {

using utility::CUnixProc;
using Process = CUnixProc::UnixProcData;

int collect(const Process& process, void* processes) {
  static_cast<std::vector<Process>*>(processes)->push_back(process);
  return 0;
}

int count(const utility::CUnixFile::UnixFileData& /*task*/, void* number) {
  ++*static_cast<int*>(number);
  return 0;
}

std::string threads(int pid) {
  int number = 0;
  const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
  if (utility::CUnixFile::get_sub_item(tasks, 'd', count, &number) != 0) return "";
  return std::to_string(number);
}

std::string memory_share(int pid) {
  double share = 0;
  return utility::CMemInfo::get_process_mem_usage(pid, share) == 0 ? percent(share) : "";
}

std::string local_time(long seconds) {
  char text[32] = "";
  utility::CTime::get_local_time_4_mysql(seconds, text, sizeof text);
  return text;
}

bool fill_processes(const Filters& filters, Table& table) {
  std::vector<Process> processes;
  const bool complete = CUnixProc::get_all_proc_data(collect, &processes) == 0;
  long boot_time = 0;
  CUnixProc::get_boottime(boot_time);
  UserNames users;
  for (const Process& process : processes) {
    const int pid = process.pid;
    if (filters.has(kPid) && pid != filters.pid) continue;
    if (filters.has(kName) && process.name != filters.name) continue;
    if (filters.has(kUser) && !users.is(process.uid, filters.user)) continue;
    // A blank in the name hides both from the library. The first two processes have no parent.
    const bool hidden = pid > 2 && process.ppid == 0 && process.start_time == boot_time;
    table.add(
        {std::to_string(pid), hidden ? "" : std::to_string(process.ppid), users.of(process.uid),
         std::to_string(process.uid), std::to_string(process.gid),
         table.shows("MEM_PCT") ? memory_share(pid) : "",
         table.shows("THREADS") ? threads(pid) : "", hidden ? "" : local_time(process.start_time),
         process.name, process.path, process.environ, process.cmd},
        pid, process.ppid);
  }
  table.sort("PID");
  return complete;
}

bool fill_maps(const Filters& filters, Table& table) {
  std::vector<CUnixProc::UnixProcMapInfo> infos;
  bool complete = true;
  if (filters.has(kPid)) {
    CUnixProc::UnixProcMapInfo info;
    info.pid = filters.pid;
    complete = CUnixProc::one_proc_infos(std::to_string(info.pid).c_str(), info.maps) == 0;
    std::sort(info.maps.begin(), info.maps.end());
    info.maps.erase(std::unique(info.maps.begin(), info.maps.end()), info.maps.end());
    infos.push_back(std::move(info));
  } else {
    complete = CUnixProc::get_all_proc_map_info(infos) == 0;
  }
  for (const auto& info : infos) {
    for (const std::string& path : info.maps) table.add({std::to_string(info.pid), path});
  }
  table.sort("PID");
  return complete;
}

}  // namespace

const std::string& UserNames::of(unsigned uid) {
  const auto found = std::find_if(known_.begin(), known_.end(),
                                  [uid](const auto& entry) { return entry.first == uid; });
  if (found != known_.end()) return found->second;
  return known_.emplace_back(uid, utility::CUnixUser::getusernamebyid(uid)).second;
}

bool UserNames::is(unsigned uid, const std::string& user) {
  return of(uid) == user || std::to_string(uid) == user;
}

const Section kProcesses = {
    "processes",
    "every process, by number",
    {{"PID", Kind::kNumber, "process id"},
     {"PPID", Kind::kNumber, "the parent's process id"},
     {"USER", Kind::kText, "real user's name, or number where it has none"},
     {"UID", Kind::kNumber, "real user id", kAsked},
     {"GID", Kind::kNumber, "real group id", kAsked},
     {"MEM_PCT", Kind::kNumber, "resident share of the host's memory, in percent"},
     {"THREADS", Kind::kNumber, "number of threads"},
     {"STARTED", Kind::kText, "local time of its start", kWide},
     {"NAME", Kind::kText, "name of the program", kAsked},
     {"EXECUTABLE", Kind::kLong, "path of the program", kAsked, true},
     {"ENVIRON", Kind::kLong, "environment", kAsked, true},
     {"COMMAND", Kind::kLong, "command line; [name] for the kernel's own"}},
    fill_processes,
    kPid | kName | kUser | kTree,
    nullptr,
    "COMMAND"};

const Section kMaps = {"maps",
                       "files that processes have mapped, only when named",
                       {{"PID", Kind::kNumber, "process id"}, {"PATH", Kind::kLong, "file"}},
                       fill_maps,
                       kPid,
                       nullptr,
                       nullptr,
                       true};

}  // namespace report
