#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "base/dir_walk.h"
#include "base/io.h"
#include "base/paths.h"
#include "proc/CUnixProc_code.h"
#include "proc/CUnixProc_text.h"
#include "utility/CUnixProc.h"

namespace utility {

int CUnixProc::one_proc_infos(const char* pid_text, std::vector<std::string>& paths) {
  constexpr std::size_t kMaxPath = 511;
  std::string maps = "/proc/" + std::string(detail::or_empty(pid_text)) + "/maps";
  if (maps.size() > kMaxPath) maps.resize(kMaxPath);
  const detail::Fd file = detail::open_to_read(maps.c_str());
  if (!file) return detail::kNotOpened;
  detail::Lines<1024> lines(file.get());
  std::vector<std::string> fields;
  while (lines.next()) {
    std::string path = detail::mapped_path(std::string(lines.line()), fields);
    if (!path.empty()) paths.push_back(std::move(path));
  }
  return detail::kDone;
}

int CUnixProc::get_all_proc_map_info(std::vector<UnixProcMapInfo>& infos) {
  detail::ProcWalk processes(detail::is_decimal);
  if (!processes) return detail::kNoDirectory;
  while (processes.next()) {
    UnixProcMapInfo info;
    info.pid = processes.pid();
    if (one_proc_infos(processes.name(), info.maps) != detail::kDone || info.maps.empty()) continue;
    std::sort(info.maps.begin(), info.maps.end());
    info.maps.erase(std::unique(info.maps.begin(), info.maps.end()), info.maps.end());
    infos.push_back(std::move(info));
  }
  return detail::kDone;
}

}  // namespace utility
