#pragma once

#include <grp.h>
#include <pwd.h>
#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <utility>

#include "base/handles.h"

// One entry of the user or group database, as getpwnam and its kin find it, in memory of its own.
namespace utility::detail {

template <class Entry>
class AccountEntry {
 public:
  /// `fetch(entry, text, size, found)` is one of the getpwnam_r family with its key bound.
  template <class Fetch>
  explicit AccountEntry(Fetch fetch) noexcept {
    for (std::size_t size = 1024; size <= kLargest; size *= 4) {
      Buffer text = make_buffer(size);
      if (!text) return;
      Entry* found = nullptr;
      const int error = fetch(&entry_, text.get(), size, &found);
      if (error == ERANGE) continue;
      is_found_ = error == 0 && found != nullptr;
      text_ = std::move(text);
      return;
    }
  }

  /// False when there is no such entry or it could not be read.
  explicit operator bool() const noexcept { return is_found_; }
  const Entry& operator*() const noexcept { return entry_; }
  const Entry* operator->() const noexcept { return &entry_; }

 private:
  // Room for a group of a million members; a database that asks for more is damaged.
  static constexpr std::size_t kLargest = std::size_t{1} << 26;

  Entry entry_{};
  Buffer text_;
  bool is_found_ = false;
};

using UserEntry = AccountEntry<passwd>;
using GroupEntry = AccountEntry<group>;

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
