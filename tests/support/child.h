#pragma once

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>

/// A child that runs `prepare` and waits; returns when it does so or has called exec.
inline pid_t start_child(
    const char* name, const std::function<void()>& prepare = [] {}) {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) std::abort();
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_NAME, name);
    prepare();
    if (::write(fds[1], "", 1) != 1) ::_exit(1);
    for (;;) ::pause();
  }
  ::close(fds[1]);
  while (::read(fds[0], fds, 1) < 0) continue;
  ::close(fds[0]);
  return child;
}

inline bool was_killed(pid_t child) {
  int status = 0;
  return ::waitpid(child, &status, 0) == child && WIFSIGNALED(status);
}

inline std::string proc_path(pid_t pid, const std::string& file) {
  return "/proc/" + std::to_string(pid) + "/" + file;
}
