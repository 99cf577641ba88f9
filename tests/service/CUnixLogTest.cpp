#include "utility/CUnixLog.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "support/cases.h"
#include "support/sandbox.h"

namespace fs = std::filesystem;
using utility::CUnixLog;
using Rule = CUnixLog::UnixLogData;

namespace {

constexpr char kConf[] = "/etc/syslog.conf";

int collect(const Rule& rule, void* context) {
  *static_cast<std::string*>(context) += rule.fac + "|" + rule.level + "|" + rule.obj + "\n";
  return 0;
}

int collect_and_stop(const Rule& rule, void* context) { return collect(rule, context) + 1; }

// A daemon made of a file, which "service" makes and removes and "ps" shows.
void fake_daemon(const std::string& service) {
  const auto replace = [](const std::string& tool, const std::string& script) {
    sandbox::write_file(sandbox::scratch() + tool, "#!/bin/bash\ncd /etc\n" + script, 0755);
    sandbox::bind_path(sandbox::scratch() + tool, tool);
  };
  replace("/usr/bin/ps", "[ -e daemon ] && echo rsyslogd\n");
  replace("/usr/sbin/service", "echo \"$*\" >> calls\n" + service);
}
constexpr char kWorks[] = "case $2 in start) touch daemon;; stop) rm daemon;; esac\n";

}  // namespace

TEST(CUnixLog, LinesAndEdits) {
  fake_daemon(kWorks);
  const auto line = [](const Case& row) {
    std::string selectors, action = "old", rules, expected;
    row.expect("divided", CUnixLog::divide_src_obj(row["text"], selectors, action));
    EXPECT_EQ(action.empty(), row.number("divided") != 0);
    row.expect("parsed", CUnixLog::parse_line(row["text"], collect, &rules));
    for (const std::string& rule : row.all("rule")) expected += rule + "\n";
    EXPECT_EQ(rules, expected);
  };
  const auto remove = [](const Case& row) {
    fs::remove("/etc/daemon");
    sandbox::write_file("/etc/calls", "");
    sandbox::write_file(kConf, row["before"]);
    Rule rule{"k", "i", row["action"]};
    row.expect("result", CUnixLog::del_log_data(rule));
    std::string after = row["after"];
    after.resize(row["before"].size(), ' ');
    EXPECT_EQ(sandbox::read_file(kConf), after);
    EXPECT_EQ(sandbox::read_file("/etc/calls"), row["result"] == "0" ? "syslog start\n" : "");
  };
  const auto replace = [](const Case& row) {
    sandbox::write_file("/etc/digits", "0123456789");
    FILE* file = std::fopen("/etc/digits", row["mode"].c_str());
    std::string text = row["text"];
    row.expect("result", CUnixLog::sub_line(file, row.number("start"), row.number("end"), text));
    const long next = row.number("start") + static_cast<long>(text.size());
    EXPECT_TRUE(row["result"] != "0" || std::ftell(file) == next);
    std::fclose(file);
    row.expect("after", sandbox::read_file("/etc/digits"));
  };
  for_each_case(FIXTURES "/rules.txt", {{"line", line}, {"remove", remove}, {"replace", replace}});
  std::string rules;
  EXPECT_EQ(CUnixLog::parse_line("a.b;c.d /x", collect_and_stop, &rules), 17);
  EXPECT_EQ(rules, "a|b|/x\n");
  EXPECT_EQ(CUnixLog::sub_line(nullptr, 0, 0, rules), 1);
}

TEST(CUnixLog, ReadingAndSearchingTheFile) {
  std::string rules;
  EXPECT_EQ(CUnixLog::set_syslog_name("syslog-ng"), 1) << "and it is syslog still";
  fs::remove(kConf);
  EXPECT_EQ(CUnixLog::get_all_log_data(collect, &rules), 3);
  fs::create_directory(kConf);
  EXPECT_EQ(CUnixLog::get_all_log_data(collect, &rules), 9) << "a read error";
  fs::remove(kConf);
  sandbox::write_file(kConf, sandbox::read_file(FIXTURES "/syslog.conf"));
  EXPECT_EQ(CUnixLog::get_all_log_data(collect, &rules), 0);
  EXPECT_EQ(rules,
            "*|err|/c\nkern|*|/c\nmail|info|/a\n*|info|/b\nmail,news|info|/c\nmail|*|/d\n"
            "mail|=info|/e\nl|*|" +
                std::string(1023 - 4, 'z') + "\nlast|info|/f\n");
  rules.clear();
  EXPECT_EQ(CUnixLog::get_all_log_data(collect_and_stop, &rules), 0);
  EXPECT_EQ(rules.find("kern"), std::string::npos) << "a stop ends its line";
  EXPECT_NE(rules.find("last"), std::string::npos) << "and no other";

  EXPECT_EQ(CUnixLog::get_all_log_data(nullptr, nullptr), 0);
  EXPECT_EQ(CUnixLog::parse_line("a.b;c.d /x", nullptr, nullptr), 0);
  for (const auto search : {CUnixLog::find_ld, CUnixLog::filter_logs_data}) {
    rules.clear();
    EXPECT_EQ(search("mail", "info", collect, &rules), 0);
    EXPECT_EQ(rules, "mail|info|/a\n*|info|/b\nmail,news|info|/c\nmail|*|/d\n");
    EXPECT_EQ(search("mail", "info", nullptr, nullptr), 0);
    EXPECT_EQ(search("cron", "info", collect, &rules), 11) << "no valid facility";
    EXPECT_EQ(search("mail", "warn", collect, &rules), 11) << "no valid level";
  }
  EXPECT_EQ(CUnixLog::proc_find({}, nullptr) + CUnixLog::proc_exist({}, nullptr), 1 + 1);
  bool found = false;
  EXPECT_TRUE(CUnixLog::is_existed_data({"*", "err", "/c"}, found) == 0 && found);
  EXPECT_TRUE(CUnixLog::is_existed_data({"news", "info", "/c"}, found) == 0 && !found);

  fs::rename(kConf, "/etc/rsyslog.conf");
  EXPECT_EQ(CUnixLog::set_syslog_name("rsyslog"), 0);
  EXPECT_EQ(CUnixLog::get_all_log_data(collect, &rules), 0);
}

TEST(CUnixLog, TheRealDaemonFollowsTheRules) {
  const std::string conf = "/etc/rsyslog.conf";
  const std::string config = "$ModLoad imuxsock\n$SystemLogSocketName /etc/log\n*.none /dev/null\n";
  sandbox::write_file("/etc/init.d/rsyslog", R"(#!/bin/sh
case $1 in
start) /usr/sbin/rsyslogd -i /etc/pid;;
stop) kill $(cat /etc/pid);;
esac
)",
                      0755);
  Rule rule{"local3", "info", "/etc/app.log"};
  ASSERT_EQ(CUnixLog::set_syslog_name("rsyslog"), 0);
  fs::remove(conf);
  EXPECT_EQ(CUnixLog::add_log_data(rule), 3) << "no file to look into";
  sandbox::write_file(conf, config);
  EXPECT_EQ(CUnixLog::add_log_data(rule), 20);
  for (const char* refused : {"/etc", "/etc/passwd/below-a-file"}) {
    Rule other{"local3", "info", refused};
    EXPECT_EQ(CUnixLog::add_log_data(other), 21) << refused << ": not missing, but no file";
  }
  EXPECT_EQ(CUnixLog::put_line(""), 1);
  EXPECT_EQ(sandbox::read_file(conf), config);
  sandbox::write_file("/etc/app.log", "");
  ASSERT_EQ(CUnixLog::add_log_data(rule), 0);
  EXPECT_EQ(sandbox::read_file(conf), config + "\nlocal3.info\t\t/etc/app.log\n");
  EXPECT_EQ(CUnixLog::add_log_data(rule), 12);

  const auto is_written = [](const std::string& message) {
    EXPECT_EQ(std::system(("logger -u /etc/log -p local3.info " + message).c_str()), 0);
    EXPECT_EQ(CUnixLog::stop_syslog(), 0) << "the daemon writes what it has when it stops";
    return sandbox::read_file("/etc/app.log").find(message) != std::string::npos;
  };
  EXPECT_EQ(CUnixLog::start_syslog(), 5) << "it runs already";
  EXPECT_TRUE(is_written("first message"));
  EXPECT_EQ(CUnixLog::stop_syslog(), 7) << "it does not run any more";
  EXPECT_EQ(CUnixLog::restart_syslog(), 0);
  ASSERT_EQ(CUnixLog::del_log_data(rule), 0);
  EXPECT_FALSE(is_written("second message"));
}

TEST(CUnixLog, TheServiceCommandMayFail) {
  fake_daemon("exit 1\n");
  EXPECT_EQ(CUnixLog::start_syslog(), 6);
  fake_daemon("kill -9 $$\n");
  EXPECT_EQ(CUnixLog::start_syslog(), 6) << "a signal is a failure here";
  fake_daemon("exit 0\n");
  EXPECT_EQ(CUnixLog::start_syslog(), 18) << "it never comes up";
  sandbox::write_file("/etc/daemon", "");
  EXPECT_TRUE(CUnixLog::is_running()) << "syslog is found in rsyslogd";
}
