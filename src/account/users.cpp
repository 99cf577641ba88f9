// The user half of CUnixUser.

#include <cstdio>

#include "account/account_common.h"
#include "base/account_lookup.h"
#include "base/callback.h"
#include "utility/CUnixTools.h"
#include "utility/CUnixUser.h"

namespace utility {
namespace {

std::string text_or_empty(const char* text) {
  return text != nullptr ? text : "";
}

// An open walk over the user database.
struct UserWalk {
  UserWalk() noexcept { ::setpwent(); }
  UserWalk(const UserWalk&) = delete;
  UserWalk& operator=(const UserWalk&) = delete;
  ~UserWalk() { ::endpwent(); }
};

// The options that turn `current` into `wanted`. Only the comment is quoted; an empty home has to
// be an argument all the same.
std::string usermod_options(const CUnixUser::UnixUserData& wanted,
                            const CUnixUser::UnixUserData& current) {
  std::string options;
  if (wanted.uid != current.uid) options += " -u " + std::to_string(wanted.uid);
  if (wanted.gid != current.gid) options += " -g " + std::to_string(wanted.gid);
  if (wanted.home != current.home) options += " -d " + (wanted.home.empty() ? "\"\"" : wanted.home);
  if (wanted.shell != current.shell) options += " -s " + wanted.shell;
  if (wanted.gecos != current.gecos) options += " -c \"" + wanted.gecos + "\"";
  return options;
}

}  // namespace

void CUnixUser::pw_2_ud(const passwd& entry, UnixUserData& record) {
  record.name = text_or_empty(entry.pw_name);
  record.uid = entry.pw_uid;
  record.gid = entry.pw_gid;
  record.gecos = text_or_empty(entry.pw_gecos);
  record.home = text_or_empty(entry.pw_dir);
  record.shell = text_or_empty(entry.pw_shell);
}

int CUnixUser::get_user_data(const std::string& name, UnixUserData& record) {
  if (name.empty()) return 1;
  const detail::UserEntry user = detail::find_user(name.c_str());
  if (!user) return 2;
  pw_2_ud(*user, record);
  return 0;
}

int CUnixUser::get_all_user_data(int (*callback)(const UnixUserData&, void*), void* context) {
  const UserWalk walk;
  UnixUserData record;
  while (const passwd* entry = ::getpwent()) {
    pw_2_ud(*entry, record);
    if (detail::stops(callback, record, context)) return 20;
  }
  return 0;
}

std::string CUnixUser::getusernamebyid(unsigned int uid) {
  const detail::UserEntry user = detail::find_user_by_id(uid);
  return user ? user->pw_name : std::to_string(uid);
}

int CUnixUser::is_user_exist(const std::string& name, int& found) {
  return detail::find_account_line("/etc/passwd", name, found);
}

int CUnixUser::create_user(const std::string& name) {
  if (name.empty()) return 4;
  if (detail::find_user(name.c_str())) return 10;
  int has_group = 0;
  if (const int status = is_group_exist(name, has_group); status != 0) return status;

  std::string command = "/usr/sbin/useradd " + name;
  if (has_group != 0) command += " -g" + name;
  // The tool's exit code tells less than the account: useradd also fails over side work, such as a
  // mail spool. A shell that could not be started leaves no account either.
  CUnixTools::exec_cmd(command.c_str());
  return detail::find_user(name.c_str()) ? 0 : 7;
}

int CUnixUser::mod_user_data(const UnixUserData& record) {
  if (record.name.empty()) return 4;
  UnixUserData current;
  if (get_user_data(record.name, current) != 0) return 2;
  if (record.uid != current.uid && detail::find_user_by_id(record.uid)) return 5;
  const std::string options = usermod_options(record, current);
  if (options.empty()) return 0;

  const int status = detail::run_tool("/usr/sbin/usermod" + options + " " + record.name);
  if (status != 0) return status;
  if (record.home != current.home) {
    static_cast<void>(std::rename(current.home.c_str(), record.home.c_str()));
  }
  return 0;
}

int CUnixUser::delete_user(const std::string& name) {
  if (name.empty()) return 4;
  if (!detail::find_user(name.c_str())) return 2;
  return detail::run_removal("/usr/sbin/userdel", name);
}

}  // namespace utility
