#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "base/io.h"
#include "base/paths.h"
#include "base/text.h"
#include "proc/CUnixProc_text.h"
#include "utility/CUnixProc.h"

namespace utility {

using namespace detail;

namespace {

using std::chrono::steady_clock;

// How long to rest between two walks, and how long zombies are watched for what follows them.
constexpr std::chrono::milliseconds kRest(10);
constexpr std::chrono::seconds kPatience(2);

// True for a process that has ended and only waits for its parent to notice. One whose first thread
// has ended while others still run shows the same state, but has more than one thread.
bool is_zombie(int pid) {
  const std::string path = "/proc/" + std::to_string(pid) + "/status";
  Lines<kLineCapacity> lines(open_to_read(path.c_str()));
  const char* state = find_field(lines, "State:");
  if (state == nullptr || first_word(state) != "Z") return false;
  const char* threads = find_field(lines, "Threads:");
  return threads != nullptr && std::strtol(threads, nullptr, 10) <= 1;
}

// Kills what `filter` collects for `key` until a walk collects nothing: what is restarted meanwhile
// goes too. Zombies cannot be killed, and may be there for ever.
int kill_matching(CUnixProc::EnumCallback filter, const void* key) {
  std::vector<int> pids;
  const std::unique_ptr<CUnixProc::ProcFilterCtx> ctx(new (std::nothrow)
                                                          CUnixProc::ProcFilterCtx{key, &pids});
  if (!ctx) return kUnusable;
  for (auto last_alive = steady_clock::now();; std::this_thread::sleep_for(kRest)) {
    pids.clear();
    CUnixProc::get_all_proc_data(filter, ctx.get());
    if (pids.empty()) return kDone;
    if (!std::all_of(pids.begin(), pids.end(), is_zombie)) {
      last_alive = steady_clock::now();
    } else if (steady_clock::now() - last_alive > kPatience) {
      return kDone;
    }
    for (const int pid : pids) CUnixProc::kill_proc(pid);
  }
}

}  // namespace

int CUnixProc::kill_proc(int pid) {
  if (pid <= 0) return kUnusable;
  return ::kill(pid, SIGKILL) == 0 ? kDone : kNotKilled;
}

int CUnixProc::kill_proc_tree(const std::string& key) {
  const bool is_path = exists(key.c_str());
  return kill_matching(is_path ? filter_procs_by_pathname : filter_procs_by_procname, &key);
}

int CUnixProc::kill_proc_tree(const int& pid) {
  // 0 is what process 1, which cannot be killed, and unreadable parents show: nobody's child.
  if (pid <= 0) return kDone;
  const int code = kill_matching(filter_procs_by_ppid, &pid);
  if (code == kDone) kill_proc(pid);
  return code;
}

}  // namespace utility
