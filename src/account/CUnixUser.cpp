// The user half of CUnixUser, and what the group half shares with it.

#include "utility/CUnixUser.h"

#include <cstdio>
#include <string_view>

#include "account/CUnixUser_common.h"
#include "base/database_entry.h"
#include "base/callback.h"
#include "base/io.h"
#include "base/paths.h"
#include "base/text.h"
#include "utility/CUnixTools.h"

namespace utility {
namespace {

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

detail::UserCode detail::find_account_line(const char* path, const std::string& name, int& found) {
  std::string text;
  if (const Fd file = open_to_read(path); !file || !read_all(file.get(), text)) return kFileNotRead;
  const std::string start = name + ":";
  found = 0;
  for (std::string_view rest = text; found == 0 && !rest.empty();) {
    found = begins_with(take_line(rest, rest.size()), start) ? 1 : 0;
  }
  return kAccountDone;
}

detail::UserCode detail::run_tool(const std::string& command) {
  return CUnixTools::exec_cmd(command.c_str()) == 0 ? kAccountDone : kToolFailed;
}

detail::UserCode detail::run_removal(const char* tool, const std::string& name) {
  return run_tool(std::string(tool) + " " + (name == "*" ? "\\*" : name));
}

void CUnixUser::pw_2_ud(const passwd& entry, UnixUserData& record) {
  record.name = detail::or_empty(entry.pw_name);
  record.uid = entry.pw_uid;
  record.gid = entry.pw_gid;
  record.gecos = detail::or_empty(entry.pw_gecos);
  record.home = detail::or_empty(entry.pw_dir);
  record.shell = detail::or_empty(entry.pw_shell);
}

int CUnixUser::get_user_data(const std::string& name, UnixUserData& record) {
  if (name.empty()) return detail::kNoNameToLookUp;
  const detail::UserEntry user = detail::find_user(name.c_str());
  if (!user) return detail::kNoSuchUser;
  pw_2_ud(*user, record);
  return detail::kAccountDone;
}

int CUnixUser::get_all_user_data(int (*callback)(const UnixUserData&, void*), void* context) {
  const detail::DatabaseWalk walk(::setpwent, ::endpwent);
  UnixUserData record;
  while (const passwd* entry = ::getpwent()) {
    pw_2_ud(*entry, record);
    if (detail::stops(callback, record, context)) return detail::kWalkStopped;
  }
  return detail::kAccountDone;
}

std::string CUnixUser::getusernamebyid(unsigned int uid) {
  const detail::UserEntry user = detail::find_user_by_id(uid);
  return user ? user->pw_name : std::to_string(uid);
}

int CUnixUser::is_user_exist(const std::string& name, int& found) {
  return detail::find_account_line("/etc/passwd", name, found);
}

int CUnixUser::create_user(const std::string& name) {
  if (name.empty()) return detail::kNoNameToChange;
  if (detail::find_user(name.c_str())) return detail::kUserExists;
  int has_group = 0;
  if (const int status = is_group_exist(name, has_group); status != detail::kAccountDone) {
    return status;
  }

  std::string command = "/usr/sbin/useradd " + name;
  if (has_group != 0) command += " -g" + name;
  // The tool's exit code tells less than the account: useradd also fails over side work, such as a
  // mail spool. A shell that could not be started leaves no account either.
  CUnixTools::exec_cmd(command.c_str());
  return detail::find_user(name.c_str()) ? detail::kAccountDone : detail::kToolFailed;
}

int CUnixUser::mod_user_data(const UnixUserData& record) {
  if (record.name.empty()) return detail::kNoNameToChange;
  UnixUserData current;
  if (get_user_data(record.name, current) != detail::kAccountDone) return detail::kNoSuchUser;
  if (record.uid != current.uid && detail::find_user_by_id(record.uid)) return detail::kUidTaken;
  const std::string options = usermod_options(record, current);
  if (options.empty()) return detail::kAccountDone;

  const int status = detail::run_tool("/usr/sbin/usermod" + options + " " + record.name);
  if (status != detail::kAccountDone) return status;
  if (record.home != current.home) {
    static_cast<void>(std::rename(current.home.c_str(), record.home.c_str()));
  }
  return detail::kAccountDone;
}

int CUnixUser::delete_user(const std::string& name) {
  if (name.empty()) return detail::kNoNameToChange;
  if (!detail::find_user(name.c_str())) return detail::kNoSuchUser;
  return detail::run_removal("/usr/sbin/userdel", name);
}

}  // namespace utility
