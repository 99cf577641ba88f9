#pragma once

#include <grp.h>
#include <pwd.h>
#include <sys/types.h>

#include "base/database_entry.h"

namespace utility::detail {

using UserEntry = DatabaseEntry<passwd>;
using GroupEntry = DatabaseEntry<group>;

inline UserEntry find_user(const char* name) noexcept {
  return UserEntry([name](auto... out) { return ::getpwnam_r(name, out...); });
}
inline UserEntry find_user_by_id(uid_t uid) noexcept {
  return UserEntry([uid](auto... out) { return ::getpwuid_r(uid, out...); });
}
inline GroupEntry find_group(const char* name) noexcept {
  return GroupEntry([name](auto... out) { return ::getgrnam_r(name, out...); });
}
inline GroupEntry find_group_by_id(gid_t gid) noexcept {
  return GroupEntry([gid](auto... out) { return ::getgrgid_r(gid, out...); });
}

}  // namespace utility::detail
