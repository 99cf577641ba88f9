// The user half of CUnixUser, and what the group half shares with it.

#include "utility/CUnixUser.h"

#include <cstdio>

#include "account/CUnixUser_common.h"
#include "base/callback.h"
#include "base/database_entry.h"
#include "base/io.h"
#include "base/paths.h"
#include "base/text.h"
#include "utility/CUnixTools.h"

namespace utility {

using namespace detail;

namespace {

// The options that turn `current` into `wanted`. An empty home has to be an argument all the same.
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
  if (!read_all(open_to_read(path).get(), text)) return kFileNotRead;
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
  record.name = or_empty(entry.pw_name);
  record.uid = entry.pw_uid;
  record.gid = entry.pw_gid;
  record.gecos = or_empty(entry.pw_gecos);
  record.home = or_empty(entry.pw_dir);
  record.shell = or_empty(entry.pw_shell);
}

int CUnixUser::get_user_data(const std::string& name, UnixUserData& record) {
  if (name.empty()) return kNoNameToLookUp;
  const UserEntry user = find_user(name.c_str());
  if (!user) return kNoSuchUser;
  pw_2_ud(*user, record);
  return kAccountDone;
}

int CUnixUser::get_all_user_data(int (*callback)(const UnixUserData&, void*), void* context) {
  const DatabaseWalk walk(::setpwent, ::endpwent);
  UnixUserData record;
  while (const passwd* entry = ::getpwent()) {
    pw_2_ud(*entry, record);
    if (stops(callback, record, context)) return kWalkStopped;
  }
  return kAccountDone;
}

std::string CUnixUser::getusernamebyid(unsigned int uid) {
  const UserEntry user = find_user_by_id(uid);
  return user ? user->pw_name : std::to_string(uid);
}

int CUnixUser::is_user_exist(const std::string& name, int& found) {
  return find_account_line("/etc/passwd", name, found);
}

int CUnixUser::create_user(const std::string& name) {
  if (name.empty()) return kNoNameToChange;
  if (find_user(name.c_str())) return kUserExists;
  int has_group = 0;
  if (const int status = is_group_exist(name, has_group)) return status;
  std::string command = "/usr/sbin/useradd " + name;
  if (has_group != 0) command += " -g" + name;
  // The tool's exit code tells less than the account: useradd also fails over side work, such as a
  // mail spool. A shell that could not be started leaves no account either.
  CUnixTools::exec_cmd(command.c_str());
  return find_user(name.c_str()) ? kAccountDone : kToolFailed;
}

int CUnixUser::mod_user_data(const UnixUserData& record) {
  if (record.name.empty()) return kNoNameToChange;
  UnixUserData current;
  if (get_user_data(record.name, current) != kAccountDone) return kNoSuchUser;
  if (record.uid != current.uid && find_user_by_id(record.uid)) return kUidTaken;
  const std::string options = usermod_options(record, current);
  if (options.empty()) return kAccountDone;

  if (const int status = run_tool("/usr/sbin/usermod" + options + " " + record.name)) return status;
  if (record.home != current.home) {
    static_cast<void>(std::rename(current.home.c_str(), record.home.c_str()));
  }
  return kAccountDone;
}

int CUnixUser::delete_user(const std::string& name) {
  if (name.empty()) return kNoNameToChange;
  if (!find_user(name.c_str())) return kNoSuchUser;
  return run_removal("/usr/sbin/userdel", name);
}

}  // namespace utility
