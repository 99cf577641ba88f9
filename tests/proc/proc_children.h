#pragma once

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <string>

/// Starts a child that runs `prepare`, and returns once that is done or the child has called exec.
/// The child then waits for its end.
inline pid_t start_child(const std::function<void()>& prepare = [] {}) {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) std::abort();
  const pid_t child = ::fork();
  if (child == 0) {
    prepare();
    ::close(fds[0]);
    ::close(fds[1]);
    for (;;) ::pause();
  }
  ::close(fds[1]);
  char none = 0;
  while (::read(fds[0], &none, 1) < 0) {
  }
  ::close(fds[0]);
  return child;
}

/// The same with a process name.
inline pid_t start_named(const char* name) {
  return start_child([name] { ::prctl(PR_SET_NAME, name); });
}

/// Waits until `child` has ended, without reaping it.
inline void await_end(pid_t child) {
  siginfo_t info{};
  ::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT);
}

inline std::string proc_path(pid_t pid, const std::string& file) {
  return "/proc/" + std::to_string(pid) + "/" + file;
}
