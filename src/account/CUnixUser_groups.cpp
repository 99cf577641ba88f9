// The group half of CUnixUser.

#include <cstdio>

#include "account/CUnixUser_common.h"
#include "base/callback.h"
#include "base/database_entry.h"
#include "base/edited_copy.h"
#include "base/paths.h"
#include "base/text.h"
#include "utility/CUnixUser.h"

namespace utility {

using namespace detail;

namespace {

constexpr char kGroupFile[] = "/etc/group";
constexpr char kWorkingCopy[] = "/etc/group.temp";
constexpr char kBackup[] = "/etc/group.bak";

// Puts the new members into the lines of the group file that belong to the group `name`.
void replace_members(std::string_view line, const std::string& name, const std::string& members,
                     std::string& text) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos || line.substr(0, colon) != name) {
    text.append(line);
  } else {
    text.append(line.substr(0, line.rfind(':'))).append(":").append(members).append("\n");
  }
}

// Writes the group file with the new members of the group `name` to the working copy.
int write_working_copy(const std::string& name, const std::vector<std::string>& members) {
  int found = 0;
  if (const int status = CUnixUser::is_group_exist(name, found)) return status;
  if (found == 0) return kNoSuchGroup;
  std::string member_text;
  CUnixUser::get_new_grp_mem_list(members, member_text);
  const auto edit = [&](std::string_view line, std::string& text) {
    replace_members(line, name, member_text, text);
  };
  const Copied copied = append_edited_copy(kGroupFile, kWorkingCopy, edit);
  return copied < Copied::kNotWritten ? kFileNotRead : kAccountDone;
}

}  // namespace

void CUnixUser::gr_2_gd(const group& entry, UnixGroupData& record) {
  record.name = or_empty(entry.gr_name);
  record.gid = entry.gr_gid;
  record.members.clear();
  for (char** member = entry.gr_mem; member != nullptr && *member != nullptr; ++member) {
    record.members.emplace_back(*member);
  }
}

int CUnixUser::get_group_data(const std::string& name, UnixGroupData& record) {
  if (name.empty()) return kNoNameToLookUp;
  const GroupEntry entry = find_group(name.c_str());
  if (!entry) return kNoSuchGroup;
  gr_2_gd(*entry, record);
  return kAccountDone;
}

int CUnixUser::get_all_group_data(int (*callback)(const UnixGroupData&, void*), void* context) {
  const DatabaseWalk walk(::setgrent, ::endgrent);
  UnixGroupData record;
  // The end of the database leaves errno alone, an error sets it.
  for (errno = 0; const group* entry = ::getgrent(); errno = 0) {
    gr_2_gd(*entry, record);
    if (stops(callback, record, context)) return kWalkStopped;
  }
  return errno != 0 ? kNoSuchGroup : kAccountDone;
}

std::string CUnixUser::getgrpnamebyid(unsigned int gid) {
  const GroupEntry entry = find_group_by_id(gid);
  return entry ? entry->gr_name : std::to_string(gid);
}

int CUnixUser::is_group_exist(const std::string& name, int& found) {
  return find_account_line(kGroupFile, name, found);
}

int CUnixUser::create_group(const std::string& name) {
  if (name.empty()) return kNoNameToChange;
  int found = 0;
  if (const int status = is_group_exist(name, found)) return status;
  if (found != 0) return kGroupExists;
  return run_tool("/usr/sbin/groupadd " + name);
}

int CUnixUser::delete_group(const std::string& name) {
  if (name.empty()) return kNoNameToChange;
  if (find_user(name.c_str())) {
    std::puts("have same of username");
    return kUserOfSameName;
  }
  if (!find_group(name.c_str())) return kNoSuchGroup;
  return run_removal("/usr/sbin/groupdel", name);
}

int CUnixUser::mod_grp_data(const UnixGroupData& record) {
  if (record.name.empty()) return kNoNameToChange;
  const GroupEntry current = find_group(record.name.c_str());
  if (!current) return kNoSuchGroup;
  std::string command = "/usr/sbin/groupmod";
  if (record.gid != current->gr_gid) {
    if (find_group_by_id(record.gid)) return kGidTaken;
    command += " -g " + std::to_string(record.gid);
  }
  if (const int status = run_tool(command + " " + record.name)) return status;
  return mod_group_member(record.name, record.members);
}

int CUnixUser::mod_group_member(const std::string& name, const std::vector<std::string>& members) {
  const int status = write_working_copy(name, members);
  // Taken whatever the status: callers know this ending, and the header warns of it.
  static_cast<void>(std::rename(kGroupFile, kBackup));
  static_cast<void>(std::rename(kWorkingCopy, kGroupFile));
  static_cast<void>(std::remove(kBackup));
  return status;
}

void CUnixUser::get_new_grp_mem_list(const std::vector<std::string>& members, std::string& text) {
  if (members.empty()) text.clear();
  text += joined(members, ",");
}

}  // namespace utility
