#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "base/handles.h"
#include "base/line_reader.h"
#include "base/paths.h"
#include "proc/codes.h"
#include "proc/proc_text.h"
#include "utility/CUnixProc.h"

namespace utility {
namespace {

// True for a process that has ended and only waits for its parent to notice. One whose first thread
// has ended while others still run shows the same state, but has more than one thread.
bool is_zombie(int pid) {
  const std::string path = "/proc/" + std::to_string(pid) + "/status";
  const detail::File file = detail::open_file(path.c_str(), "re");
  if (!file) return false;
  detail::LineReader lines(file.get(), detail::kLineCapacity);
  if (!lines.ready()) return false;
  bool ended = false;
  while (lines.next()) {
    if (const char* state = detail::behind_key(lines.text(), "State:")) {
      ended = detail::first_word(state) == "Z";
    } else if (const char* threads = detail::behind_key(lines.text(), "Threads:")) {
      return ended && std::strtol(threads, nullptr, 10) <= 1;
    }
  }
  return false;
}

// Kills what `filter` collects for `key` until a walk collects nothing that can still be killed.
// Walks again after each round: what was restarted meanwhile goes too.
int kill_matching(CUnixProc::EnumCallback filter, const void* key) {
  std::vector<int> pids;
  const std::unique_ptr<CUnixProc::ProcFilterCtx> ctx(new (std::nothrow)
                                                          CUnixProc::ProcFilterCtx{key, &pids});
  if (!ctx) return detail::kUnusable;
  for (;;) {
    pids.clear();
    CUnixProc::get_all_proc_data(filter, ctx.get());
    if (std::all_of(pids.begin(), pids.end(), is_zombie)) return detail::kDone;
    for (const int pid : pids) CUnixProc::kill_proc(pid);
  }
}

}  // namespace

int CUnixProc::kill_proc(int pid) {
  if (pid <= 0) return detail::kUnusable;
  return ::kill(pid, SIGKILL) == 0 ? detail::kDone : detail::kNotKilled;
}

int CUnixProc::kill_proc_tree(const std::string& key) {
  const EnumCallback filter =
      detail::exists(key.c_str()) ? filter_procs_by_pathname : filter_procs_by_procname;
  return kill_matching(filter, &key);
}

int CUnixProc::kill_proc_tree(const int& pid) {
  // 0 is what process 1 and unreadable parents show: nobody's child, and the first cannot be
  // killed.
  if (pid <= 0) return detail::kDone;
  const int code = kill_matching(filter_procs_by_ppid, &pid);
  if (code == detail::kDone) kill_proc(pid);
  return code;
}

}  // namespace utility
