#pragma once

#include <sys/stat.h>
#include <unistd.h>

namespace utility::detail {

/// Gives the file `to` the owner and mode of the file `from`, as far as we may: a new file is made
/// under the process's umask, and what it replaces has rights of its own.
inline void take_over_rights(int from, int to) noexcept {
  struct stat st {};
  if (::fstat(from, &st) != 0) return;
  // The owner first: changing it drops the set-id bits. Only root can, and then nobody gains.
  if (::fchown(to, st.st_uid, st.st_gid) != 0 && st.st_uid != ::geteuid()) return;
  ::fchmod(to, st.st_mode & 07777);
}

}  // namespace utility::detail
