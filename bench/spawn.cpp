#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>

#include "support/harness.h"
#include "utility/CUnixProc.h"

namespace {

// Starts a daemon under a limit of open files, waits until it runs, and returns the seconds that
// took.
double start_daemon(rlim_t limit) {
  rlimit files{};
  ::getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = limit;
  ::setrlimit(RLIMIT_NOFILE, &files);

  static const std::string pipe = bench::scratch_file("started");
  static const bool made = ::mkfifo(pipe.c_str(), 0600) == 0;
  bench::require(made, "no named pipe");
  char* environment[] = {nullptr};
  const auto begin = std::chrono::steady_clock::now();
  bench::require(
      utility::CUnixProc::create_proc("/bin/echo", "> " + pipe, "/", "", environment) == 0,
      "no daemon was started");
  const int reader = ::open(pipe.c_str(), O_RDONLY | O_CLOEXEC);
  char byte = 0;
  bench::require(::read(reader, &byte, 1) == 1, "the daemon did not run");
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
  while (::read(reader, &byte, 1) > 0) continue;  // the next daemon is to find the pipe unused
  ::close(reader);
  return taken.count();
}

}  // namespace

void set_up() {
  rlimit files{};
  ::getrlimit(RLIMIT_NOFILE, &files);
  const rlim_t most = std::min<rlim_t>(files.rlim_max, 1048576);
  bench::timed_work("spawn/limit_1024", [] { return start_daemon(1024); });
  bench::timed_work("spawn/limit_most", [most] { return start_daemon(most); });
}
