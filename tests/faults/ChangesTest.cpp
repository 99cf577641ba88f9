#include <gtest/gtest.h>

#include <filesystem>

#include "faults/faults.h"
#include "support/sandbox.h"
#include "utility/utility.h"

namespace fs = std::filesystem;
using namespace utility;
using User = utility::CUnixUser;
using Tools = utility::CUnixTools;
using Log = utility::CUnixLog;
using Serv = utility::CUnixServ;
using faults::note;
using faults::Outputs;
using Files = std::vector<std::string>;

namespace {

// Outcomes that are shared.
constexpr char kNameless[] = "nothrow:0~ malloc:0~,= open:0~ read:0~ seek:0~";
constexpr char kWalk[] = "nothrow:4 malloc:3,= open:3 read:9,9~";
constexpr char kLine[] = "malloc:22,= open:22 read:22";

constexpr char kConf[] = "/etc/syslog.conf";
constexpr char kRules[] = "/etc/sysconfig/iptables";

// A tool of the host as far as it matters here.
void put_tool(const std::string& path, const std::string& body) {
  sandbox::write_file(path, "#!/bin/sh\n" + body + "\n", 0755);
}

int read_user(Outputs& o) {
  User::UnixUserData data;
  const int code = User::get_user_data("al", data);
  o.text += data.name + data.home;
  return code;
}
int read_group(Outputs& o) {
  User::UnixGroupData data;
  const int code = User::get_group_data("staff", data);
  o.list.insert(o.list.end(), data.members.begin(), data.members.end());
  return code;
}

int service(Outputs& o) {
  Serv::UnixServData data;
  const int code = Serv::get_serv_data("one", data);
  o.text += data.name + data.status + data.status_text;
  return code;
}

int note_rule(const Log::UnixLogData& rule, void* outputs) {
  static_cast<Outputs*>(outputs)->list.push_back(rule.fac + rule.level + rule.obj);
  return 0;
}
int change_rule(int (*change)(Log::UnixLogData&), Log::UnixLogData rule) {
  return change(rule);
}

}  // namespace

TEST(Faults, Accounts) {
  const auto prepare = [] {
    sandbox::write_file("/etc/nsswitch.conf", "passwd: files\ngroup: files\n");
    sandbox::write_file("/etc/passwd", "root:x:0:0:root:/:/sh\nal:x:1000:1000:Al:/al:/sh\n");
    sandbox::write_file("/etc/group", "root:x:0:\nstaff:x:50:root\n");
    sandbox::make_private("/usr/sbin");
    put_tool("/usr/sbin/useradd", "echo $1:x:7:7::/:/sh >> /etc/passwd");
    put_tool("/usr/sbin/chpasswd", "cat > ./ran");
    for (const char* tool : {"usermod", "userdel", "groupadd", "groupmod", "groupdel"}) {
      put_tool(std::string("/usr/sbin/") + tool, "echo $* > ./ran");
    }
  };
  const Files ran = {"./ran"};
  const Files groups = {"/etc/group", "/etc/group.temp", "/etc/group.bak"};
  const std::vector<faults::Row> rows = {
      {CALL(read_user(o)), "nothrow:2 malloc:2,= open:2 read:2 seek:2"},
      {CALL(User::get_all_user_data(note<User::UnixUserData>, &o)), "read:0,="},
      {TEXT(User::getusernamebyid(1000)), kNameless},
      {CALL(User::is_user_exist("al", o.number)), kLine},
      {CALL(User::create_user("bo")),
       "nothrow:7~,= malloc:22,7~,= open:22,7~,= read:22,7~,= seek:7~,= fork:7",
       {"/etc/passwd"}},
      {CALL(User::mod_user_data({"al", 1001, 50, "", "/al", "/sh"})),
       "nothrow:2,= malloc:2,= open:2,= read:2,= seek:2,= fork:7 wait:7~", ran},
      {CALL(User::mod_passwd("al", "secret")),
       "nothrow:11 malloc:11,= open:11 read:11 write:0~ seek:11 fork:21 wait:21~ pipe:21", ran},
      {CALL(User::delete_user("al")), "nothrow:2 malloc:2,= open:2 read:2 seek:2 fork:7 wait:7~",
       ran},
      {CALL(read_group(o)), "nothrow:3 malloc:3,= open:3 read:3 seek:3"},
      {CALL(User::get_all_group_data(note<User::UnixGroupData>, &o)), "read:3,3~"},
      {TEXT(User::getgrpnamebyid(50)), kNameless},
      {CALL(User::is_group_exist("staff", o.number)), kLine},
      {CALL(User::create_group("new")), "malloc:22,= open:22 read:22 fork:7 wait:7~", ran},
      {CALL(User::delete_group("staff")),
       "nothrow:3,= malloc:3,= open:3,= read:3,= seek:3,= fork:7 wait:7~", ran},
      {CALL(User::mod_grp_data({"staff", 51, {"al"}})),
       "nothrow:3,= malloc:22~,3,= open:22~,3,= read:22~,3,= write:0~ seek:3,= rename:0~,= "
       "unlink:0~ fork:7 wait:7~",
       {"/etc/group", "./ran"}},
      {CALL(User::mod_group_member("staff", {"al", "bo"})),
       "malloc:22~,= open:22~ read:22~ write:0~ rename:0~,= unlink:0~", groups},
      {TEXT(Tools::get_process_user()), kNameless},
  };
  faults::try_rows(prepare, rows);
}

TEST(Faults, Services) {
  const auto prepare = [] {
    sandbox::make_private("/usr/sbin");
    sandbox::make_private("/usr/bin");
    sandbox::make_private("/var/log");
    put_tool("/usr/sbin/service",
             "case $2 in start) touch ./daemon;; stop) rm -f ./daemon;; *) echo is running;; esac");
    put_tool("/usr/bin/ps", "[ ! -e ./daemon ] || echo syslogd");
    sandbox::write_file(kConf, "a.b /x\nkern.*;c.d ./log # y\ne.f /z\n");
    sandbox::write_file("./log", "");
    sandbox::write_file("./daemon", "");
    sandbox::write_file(
        kRules, "*filter\n:INPUT ACCEPT\n-A INPUT -p tcp -m tcp --dport 25 -j ACCEPT\nCOMMIT\n");
    fs::remove_all("/etc/init.d");
    put_tool("/etc/init.d/one", "");
    put_tool("/etc/init.d/iptables", "echo $1 > ./ran");
    sandbox::write_file("/var/log/version_control", "./agent\n");
    sandbox::write_file("./agent/command_control", "other x\nscript_server iptables\n");
    sandbox::write_file("./agent/suse", "");
    Tools::get_tarvel_path();  // asked for once
  };
  const Files log = {kConf, "./daemon"};
  const Files rules = {kRules, std::string(kRules) + ".tvbak"};
  const std::vector<faults::Row> rows = {
      {CALL(service(o)), "malloc:3,= read:0~,= fork:3 pipe:3"},
      {CALL(Serv::get_all_serv_data(note<Serv::UnixServData>, &o)),
       "malloc:0~,= open:1 list:0,= access:0~ fork:0~ pipe:0~"},
      {CALL(Log::restart_syslog()), "fork:5,6,6~,7,= wait:5,6,6~,7,=", log},
      {CALL(Serv::start_serv("one")), "fork:6 wait:6"},
      {CALL(Serv::stop_serv("one")), "fork:6 wait:6"},  // from here on the daemon does not run
      {CALL(Log::get_all_log_data(note_rule, &o)), kWalk},
      {CALL(Log::find_ld("kern", "info", note_rule, &o)), kWalk},
      {CALL(Log::is_existed_data({"e", "f", "/z"}, o.found)),
       "nothrow:4,4~ malloc:3~,= open:3~ read:9,9~"},
      {CALL(Log::put_line("g.h /i")), "malloc:3,= open:3 write:0 seek:3", log},
      {CALL(change_rule(Log::add_log_data, {"g", "h", "./log"})),
       "nothrow:4 malloc:3,= open:3 read:9 write:0~ stat:21,= seek:3 fork:6~,= wait:6~,=", log},
      {CALL(change_rule(Log::del_log_data, {"kern", "*", "./log"})),
       "nothrow:4 malloc:3,= open:3 read:9,9~,= write:15,15~ seek:14,14~,15,= truncate:19~ "
       "fork:6~,= wait:6~,=",
       log},
      {CALL((Tools::get_oem_and_issue(o.number, o.number), 0)), "access:0~,="},
      {TEXT(Tools::get_agent_names("script_server")), "nothrow:0~ malloc:0~,= open:0~ read:0~"},
      {CALL((Tools::operate_agent_service(0), 0)),
       "nothrow:0 malloc:0,= open:0 read:0 fork:0",
       {"./ran"}},
      {CALL((Tools::appand_rule(kRules, "-A new\n"), 0)),
       "nothrow:0 malloc:0,0~,= open:0 read:0 write:0 close:0,= stat:0,=", rules},
      {CALL((Tools::delete_rule(kRules, "COMMIT\n"), 0)), "malloc:0,= open:0 read:0 write:0~",
       rules},
      {CALL(Tools::iptables_allow_port("centos", 80)),
       "nothrow:0 malloc:0,0~,= open:0 read:0 write:0 close:0,= stat:0,= access:0,=", rules},
      {CALL(Tools::iptables_banned_port("centos", 25)),
       "malloc:0,= open:0 read:0 write:0~ access:0,=", rules},
  };
  faults::try_rows(prepare, rows);
}

TEST(Faults, FilesAndCommands) {
  const auto prepare = [] {
    sandbox::write_file("./dir/sub/file", "text");
    sandbox::write_file("./file", std::string(20000, 'x'));
    sandbox::write_file("./old", "old");
  };
  const Files both = {"./file", "./old"};
  const std::vector<faults::Row> rows = {
      {CALL(Tools::file_is_exist("./old")), "access:0"},
      {CALL(Tools::is_exist_dir("./dir")), "stat:0 access:0"},
      {CALL(Tools::file_type("./dir")), "stat:255"},
      {CALL(Tools::read_file_permission("./old")), "stat:0"},
      {CALL(Tools::create_file("./new", 0600)), "open:7", {"./new"}},
      {CALL(Tools::copy_regular_file("./file", "./old")),
       "open:1~ read:0~,= write:1~ stat:1~,= access:0~ unlink:0~", both},
      {CALL(Tools::copy_file("./dir", "./copy", true)),
       "open:1 read:0~,= write:1~ list:0,= stat:13,1~,= access:4,=",
       {"./copy/sub/file"}},
      {CALL(Tools::move_file("./file", "./old", true)),
       "open:0~ read:0~,= write:0~ stat:0~,10~,= access:0~,4,4~,= unlink:0~,11~", both},
      {CALL(Tools::rm_file("./dir")),
       "open:11 list:11,= stat:10,11,= access:4 unlink:11,11~",
       {"./dir/sub/file"}},
      {CALL(Tools::mkdir_parents("./p/q", 0700)), "mkdir:12"},
      {CALL(Tools::exec_cmd("exit 5")), "fork:127 wait:255"},
      {CALL(Tools::exec_cmd_results("printf 'a\\nb\\n'", o.list, 100)),
       "nothrow:2 malloc:2,= read:0,= fork:2 pipe:2"},
      {TEXT(Tools::get_process_path(1)), "readlink:0~"},
      {TEXT(Tools::get_time_now().substr(0, 2)), ""},
  };
  faults::try_rows(prepare, rows);
}
