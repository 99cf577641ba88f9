#pragma once

#include <grp.h>
#include <pwd.h>

#include <cerrno>

#include "base/handles.h"

namespace utility::detail {

/// One entry of a database of the C library, as the *_r look-ups find it, in memory of its own.
template <class Entry>
class DatabaseEntry {
 public:
  /// `fetch(entry, text, size, found)` is one of the getpwnam_r family with its key bound; it
  /// returns an error number, ERANGE where `size` bytes are too few.
  template <class Fetch>
  explicit DatabaseEntry(Fetch fetch) noexcept {
    for (std::size_t size = 1024; size <= kLargest; size *= 4) {
      Buffer text = make_buffer(size);
      if (!text) return;
      Entry* found = nullptr;
      const int error = fetch(&entry_, text.get(), size, &found);
      if (error == ERANGE) continue;
      text_ = std::move(text);
      is_found_ = error == 0 && found != nullptr;
      is_answered_ = is_found_ || !is_failure(error);
      return;
    }
  }

  /// False when there is no such entry or it could not be read.
  explicit operator bool() const noexcept { return is_found_; }
  /// False when it could not be read, so that nothing is known.
  bool answered() const noexcept { return is_answered_; }
  const Entry& operator*() const noexcept { return entry_; }
  const Entry* operator->() const noexcept { return &entry_; }

 private:
  // Room for a group of a million members; a database that asks for more is damaged.
  static constexpr std::size_t kLargest = std::size_t{1} << 26;

  // The look-ups use other numbers, too, for an entry that is not there.
  static bool is_failure(int error) noexcept {
    return error == EINTR || error == EIO || error == EMFILE || error == ENFILE || error == ENOMEM;
  }

  Entry entry_{};
  Buffer text_;
  bool is_found_ = false;
  bool is_answered_ = false;
};

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
