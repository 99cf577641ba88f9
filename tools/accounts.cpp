#include <utility/CUnixLog.h>
#include <utility/CUnixServ.h>
#include <utility/CUnixTools.h>
#include <utility/CUnixUser.h>

#include <map>
#include <string>
#include <vector>

#include "sections.h"

namespace report {
namespace {

using utility::CUnixLog;
using utility::CUnixServ;
using utility::CUnixTools;
using utility::CUnixUser;

template <class Record>
int collect(const Record& record, void* records) {
  static_cast<std::vector<Record>*>(records)->push_back(record);
  return 0;
}

bool fill_users(const Filters& /*filters*/, Table& table) {
  std::vector<CUnixUser::UnixUserData> users;
  std::vector<CUnixUser::UnixGroupData> groups;
  const bool complete = CUnixUser::get_all_user_data(collect, &users) == 0 &&
                        CUnixUser::get_all_group_data(collect, &groups) == 0;
  std::map<unsigned, std::string> group_names;
  for (const auto& group : groups) group_names.emplace(group.gid, group.name);
  for (const auto& user : users) {
    const auto group = group_names.find(user.gid);
    table.add({user.name, std::to_string(user.uid), group != group_names.end() ? group->second : "",
               std::to_string(user.gid), user.gecos, user.home, user.shell});
  }
  table.sort("UID");
  return complete;
}

bool fill_groups(const Filters& /*filters*/, Table& table) {
  std::vector<CUnixUser::UnixGroupData> groups;
  const bool complete = CUnixUser::get_all_group_data(collect, &groups) == 0;
  for (const auto& group : groups) {
    std::string members;
    CUnixUser::get_new_grp_mem_list(group.members, members);
    table.add({group.name, std::to_string(group.gid), members});
  }
  table.sort("GID");
  return complete;
}

bool fill_services(const Filters& /*filters*/, Table& table) {
  std::vector<CUnixServ::UnixServData> services;
  const bool complete = CUnixServ::get_all_serv_data(collect, &services) == 0;
  for (const auto& service : services) {
    table.add({service.name, service.status == "-" ? "" : service.status});
  }
  table.sort("NAME");
  return complete;
}

bool fill_log_rules(const Filters& /*filters*/, Table& table) {
  // Hosts with the older daemon are the rare ones.
  const bool older = !CUnixTools::file_is_exist("/etc/rsyslog.conf") &&
                     CUnixTools::file_is_exist("/etc/syslog.conf");
  CUnixLog::set_syslog_name(older ? "syslog" : "rsyslog");
  std::vector<CUnixLog::UnixLogData> rules;
  const bool complete = CUnixLog::get_all_log_data(collect, &rules) == 0;
  for (const auto& rule : rules) table.add({rule.fac, rule.level, rule.obj});
  return complete;
}

}  // namespace

const Section kUsers = {"users",
                        "accounts, by number",
                        {{"NAME", Kind::kText, "login name"},
                         {"UID", Kind::kNumber, "user id"},
                         {"GROUP", Kind::kText, "primary group"},
                         {"GID", Kind::kNumber, "its id"},
                         {"COMMENT", Kind::kLong, "comment, most often the full name", kWide},
                         {"HOME", Kind::kLong, "home directory"},
                         {"SHELL", Kind::kLong, "login shell"}},
                        fill_users};

const Section kGroups = {
    "groups",
    "groups with their members, by number",
    {{"NAME", Kind::kText, "name"},
     {"GID", Kind::kNumber, "group id"},
     {"MEMBERS", Kind::kList, "members beside those whose primary group it is"}},
    fill_groups};

const Section kServices = {"services",
                           "init-script services; runs the status command of each",
                           {{"NAME", Kind::kText, "name of the script"},
                            {"STATUS", Kind::kText, "running or stopped, if it tells"}},
                           fill_services,
                           0,
                           "/etc/init.d"};

const Section kLogRules = {"log-rules",
                           "what the system log writes where",
                           {{"FACILITY", Kind::kText, "facility, as the rule has it"},
                            {"LEVEL", Kind::kText, "level, as the rule has it"},
                            {"ACTION", Kind::kLong, "where it goes"}},
                           fill_log_rules,
                           0,
                           "/etc/rsyslog.conf"};

}  // namespace report
