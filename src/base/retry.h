#pragma once

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string_view>

// System calls that a signal may cut short, carried to their end.
namespace utility::detail {

/// Writes all of `bytes`; false where no more can be written.
inline bool write_all(int fd, std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

/// Waits for the end of `child`, whose status is not kept; false when there is no such child.
inline bool wait_for(pid_t child) noexcept {
  pid_t ended = 0;
  do {
    ended = ::waitpid(child, nullptr, 0);
  } while (ended < 0 && errno == EINTR);
  return ended == child;
}

}  // namespace utility::detail
