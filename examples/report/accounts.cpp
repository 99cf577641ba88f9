#include <utility/CUnixLog.h>
#include <utility/CUnixServ.h>
#include <utility/CUnixTools.h>
#include <utility/CUnixUser.h>

#include <string>

#include "report/sections.h"

namespace report {
namespace {

using utility::CUnixLog;
using utility::CUnixServ;
using utility::CUnixTools;
using utility::CUnixUser;

int add_user(const CUnixUser::UnixUserData& user, void* context) {
  static_cast<Table*>(context)->add(
      {user.name, std::to_string(user.uid), std::to_string(user.gid), user.home, user.shell});
  return 0;
}

int add_group(const CUnixUser::UnixGroupData& group, void* context) {
  std::string members;
  CUnixUser::get_new_grp_mem_list(group.members, members);
  static_cast<Table*>(context)->add({group.name, std::to_string(group.gid), members});
  return 0;
}

int add_service(const CUnixServ::UnixServData& service, void* context) {
  static_cast<Table*>(context)->add({service.name, service.status});
  return 0;
}

int add_rule(const CUnixLog::UnixLogData& rule, void* context) {
  static_cast<Table*>(context)->add({rule.fac, rule.level, rule.obj});
  return 0;
}

}  // namespace

bool users(Format format, const std::string& /*argument*/) {
  Table table("users", {{"name"}, {"uid", true}, {"gid", true}, {"home"}, {"shell"}});
  const bool complete = CUnixUser::get_all_user_data(add_user, &table) == 0;
  table.print(format);
  return complete;
}

bool groups(Format format, const std::string& /*argument*/) {
  Table table("groups", {{"name"}, {"gid", true}, {"members"}});
  const bool complete = CUnixUser::get_all_group_data(add_group, &table) == 0;
  table.print(format);
  return complete;
}

bool services(Format format, const std::string& /*argument*/) {
  Table table("services", {{"name"}, {"status"}});
  const bool complete = CUnixServ::get_all_serv_data(add_service, &table) == 0;
  table.print(format);
  return complete;
}

bool log_rules(Format format, const std::string& /*argument*/) {
  if (CUnixTools::file_is_exist("/etc/rsyslog.conf")) CUnixLog::set_syslog_name("rsyslog");
  Table table("log-rules", {{"facility"}, {"level"}, {"action"}});
  const bool complete = CUnixLog::get_all_log_data(add_rule, &table) == 0;
  table.print(format);
  return complete;
}

}  // namespace report
