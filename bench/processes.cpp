#include <fcntl.h>
#include <libproc2/pids.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <iterator>
#include <map>
#include <string>

#include "support/floor.h"
#include "support/harness.h"
#include "support/load.h"
#include "utility/CUnixProc.h"

namespace {

using utility::CUnixProc;

// What both walks found, to be compared: name, user, group, parent, executable by process.
using Found = std::map<int, std::string>;

std::string line(const char* name, unsigned uid, unsigned gid, int ppid, const char* path) {
  return std::string(name) + " " + std::to_string(uid) + ":" + std::to_string(gid) + " under " +
         std::to_string(ppid) + " from " + path;
}

int collect(const CUnixProc::UnixProcData& data, void* found) {
  static_cast<Found*>(found)->emplace(
      data.pid, line(data.name.c_str(), data.uid, data.gid, data.ppid, data.path.c_str()));
  return 0;
}

int ignore(const CUnixProc::UnixProcData& data, void*) {
  benchmark::DoNotOptimize(data.inodes.data());
  return 0;
}

void floor_walk() {
  bench::floor::each_process([](int proc, const char* name) {
    std::string path = name;
    const std::size_t size = path.size();
    const auto in_process = [&](const char* file) {
      path.resize(size);
      return path.append(file).c_str();
    };
    bench::floor::touch_file(proc, in_process("/status"), 4096);
    bench::floor::touch_file(proc, in_process("/cmdline"), 4096);
    bench::floor::touch_file(proc, in_process("/stat"), 4096);
    bench::floor::touch_file(proc, in_process("/environ"), 40960);
    std::array<char, 4096> target;
    benchmark::DoNotOptimize(::readlinkat(proc, in_process("/exe"), target.data(), target.size()));
    bench::floor::touch_descriptors(proc, in_process("/fd"));
  });
  bench::floor::touch_file(AT_FDCWD, "/proc/stat", 40960);
}

// A walk with libproc2 for the same fields, with the descriptors examined as well.
void libproc2_walk(Found* found) {
  static std::array<pids_item, 9> items{PIDS_ID_PID,    PIDS_CMD,     PIDS_ID_RUID,
                                        PIDS_ID_RGID,   PIDS_ID_PPID, PIDS_TIME_START,
                                        PIDS_CMDLINE_V, PIDS_EXE,     PIDS_ENVIRON_V};
  pids_info* info = nullptr;
  bench::require(::procps_pids_new(&info, items.data(), static_cast<int>(items.size())) == 0,
                 "libproc2 does not start");
  while (const pids_stack* process = ::procps_pids_get(info, PIDS_FETCH_TASKS_ONLY)) {
    const pids_result* field = process->head;
    const std::string fds = "/proc/" + std::to_string(field[0].result.s_int) + "/fd";
    benchmark::DoNotOptimize(bench::floor::touch_descriptors(AT_FDCWD, fds.c_str()));
    if (found != nullptr) {
      const char* path = field[7].result.str;
      // The library lengthens a name that the kernel had to cut.
      found->emplace(field[0].result.s_int,
                     line(field[1].result.str, field[2].result.u_int, field[3].result.u_int,
                          field[4].result.s_int, path[0] == '/' ? path : ""));
    }
  }
  ::procps_pids_unref(&info);
}

double psutil_walk() {
  std::string seconds;
  bench::run_program({"/usr/bin/python3", "-c", R"(
import psutil, time
fields = ['pid', 'name', 'uids', 'gids', 'ppid', 'create_time', 'cmdline', 'exe', 'environ', 'num_fds']
for again in range(2):
    begin = time.process_time()
    for process in psutil.process_iter(fields):
        pass
print(time.process_time() - begin)
)"},
                     &seconds);
  return std::stod(seconds);
}

void compare_walks(int processes) {
  Found ours;
  Found theirs;
  bench::require(CUnixProc::get_all_proc_data(collect, &ours) == 0, "the library's walk failed");
  libproc2_walk(&theirs);
  bench::require(static_cast<int>(ours.size()) > processes && ours == theirs,
                 "libproc2 and the library find other processes");
}

}  // namespace

void set_up() {
  const int processes = bench::option("processes", bench::smoke() ? 50 : 1000);
  // Fifteen descriptors each: three standard ones, ten files, two sockets.
  static const bench::Load load({processes, 10, 2, 2048});
  if (bench::checking()) compare_walks(processes);

  bench::work("walk/library", [] { CUnixProc::get_all_proc_data(ignore, nullptr); });
  bench::work("walk/floor", floor_walk);
  bench::work("walk/libproc2", [] { libproc2_walk(nullptr); });
  bench::timed_work("walk/psutil", psutil_walk);
}
