#include "utility/CUnixLog.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <tuple>

#include "support/sandbox.h"
#include "support/temp_dir.h"

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

TEST(CUnixLog, LinesAreDividedAndParsed) {
  const std::tuple<std::string, int, int, std::string> rows[] = {
      {"kern.*;mail.none /m", 0, 0, "kern|*|/m\nmail|none|/m\n"},
      {"mail.*   -/m \t log", 0, 0, "mail|*|-/m log\n"},
      {"mail,news.=info /x", 0, 0, "mail,news|=info|/x\n"},
      {"a..b.c /x", 0, 0, "a|b|/x\n"},
      {"kern.*", 8, 8, ""},
      {"kern.*;mail.none", 8, 8, "kern|*|\n"},
      {"a.b ;c", 8, 8, "a|b |\n"},
      {"a.b;kern;mail.info /x", 0, 8, "a|b|/x\n"},
      {";;", 8, 8, ""},
      {"", 1, 1, ""},
      {"$ModLoad imuxsock", 0, 8, ""},
      {"$IncludeConfig /etc/rsyslog.d/*.conf", 0, 8, ""},
      {"module(load=\"imuxsock\") # provides support", 0, 8, ""},
      {"*.emerg :omusrmsg:*", 0, 0, "*|emerg|:omusrmsg:*\n"},
      {"*.* @@10.0.0.1:514", 0, 0, "*|*|@@10.0.0.1:514\n"},
  };
  for (const auto& [line, divided, parsed, expected] : rows) {
    std::string selectors, action = "old", rules;
    EXPECT_EQ(CUnixLog::divide_src_obj(line, selectors, action), divided) << line;
    EXPECT_EQ(action.empty(), divided != 0) << line;
    EXPECT_EQ(CUnixLog::parse_line(line, collect, &rules), parsed) << line;
    EXPECT_EQ(rules, expected) << line;
  }
  std::string rules;
  EXPECT_EQ(CUnixLog::parse_line("a.b;c.d /x", collect_and_stop, &rules), 17);
  EXPECT_EQ(rules, "a|b|/x\n");
}

TEST(CUnixLog, ReadingAndSearchingTheFile) {
  sandbox::run([] {
    std::string rules;
    EXPECT_EQ(CUnixLog::set_syslog_name("syslog-ng"), 1) << "and it is syslog still";
    fs::remove(kConf);
    EXPECT_EQ(CUnixLog::get_all_log_data(collect, &rules), 3);
    fs::create_directory(kConf);
    EXPECT_EQ(CUnixLog::get_all_log_data(collect, &rules), 9) << "a read error";
    fs::remove(kConf);
    sandbox::write_file(kConf,
                        "# all\n\n \t\n*.err;kern.*  /c # note\r\nmail.info /a\n*.info /b\n"
                        "mail,news.info /c\nmail.* /d\nmail.=info /e\nkern.*\n$Umask 0022\n"
                        "l.* " +
                            std::string(1100, 'z') + "\nlast.info /f");
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
  });
}

TEST(CUnixLog, RemovingARuleEditsInPlace) {
  const std::string full = "#" + std::string(1019, 'x') + "\n";  // one piece less two bytes
  const struct {
    const char *sentence, *action;  // of the rule k.i
    int result;
    std::string before, after;  // spaces fill the file up to its old size
  } rows[] = {
      {"first", "/m", 0, "k.i;mail.none /m\nx.y /z\n", "mail.none /m\nx.y /z\n"},
      {"middle", "/m", 0, "a.b;k.i;c.d /m\n", "a.b;c.d /m\n"},
      {"last: its separator stays", "/x", 0, "k.*;k.i /x\n", "k.*; /x\n"},
      {"alone: an empty line", "/m", 0, "k.i /m\nx.y /z\n", "\nx.y /z\n"},
      {"lines", "/m", 0, " k.i;a.b \t/m # c\nz\nq.r;k.i /m\n", "a.b \t/m\nz\nq.r; /m\n"},
      {"no final line end", "/m", 0, "x\nk.i /m", "x\n\n"},
      {"inside a level", "/m", 0, "k.information /m\n", "nformation /m\n"},
      {"inside the action", "/k.i", 0, "a.b /k.i\n", "a.b /\n"},
      {"CRLF", "/m", 0, "k.i;a.b /m\r\n", "a.b /m\n"},
      {"another action", "/n", 10, "k.i /m\n", "k.i /m\n"},
      {"in a comment", "/m", 10, "#k.i /m\n", "#k.i /m\n"},
      {"no action", "/m", 8, "k.i /m\nk.i\nk.i /m\n", "\nk.i\nk.i /m\n"},
      {"long lines", "/m", 0, full + full + "yy\nk.i /m\n", full + full + "yy\n\n"},
  };
  sandbox::run([&rows] {
    fake_daemon(kWorks);
    for (const auto& row : rows) {
      SCOPED_TRACE(row.sentence);
      fs::remove("/etc/daemon");
      sandbox::write_file("/etc/calls", "");
      sandbox::write_file(kConf, row.before);
      Rule rule{"k", "i", row.action};
      EXPECT_EQ(CUnixLog::del_log_data(rule), row.result);
      std::string after = row.after;
      after.resize(row.before.size(), ' ');
      EXPECT_EQ(sandbox::read_file(kConf), after);
      EXPECT_EQ(sandbox::read_file("/etc/calls"), row.result == 0 ? "syslog start\n" : "");
    }
  });
}

TEST(CUnixLog, ReplacingBytesNeverShrinksTheFile) {
  const TempDir dir;
  const std::tuple<const char*, long, long, std::string, int, std::string> rows[] = {
      {"r+", 2, 6, "X", 0, "01X6789   "},      {"r+", 2, 6, "WXYZ", 0, "01WXYZ6789"},
      {"r+", 2, 6, "VWXYZ", 0, "01VWXYZ6789"}, {"r+", 0, 10, "", 0, "          "},
      {"r+", 10, 10, "X", 0, "0123456789X"},   {"r+", 2, 11, "X", 9, "0123456789"},
      {"r+", -1, 3, "X", 14, "0123456789"},    {"r+", 5, 3, "X", 14, "0123456789"},
      {"r", 0, 1, "X", 15, "0123456789"},
  };
  for (auto [mode, start, end, text, result, after] : rows) {
    FILE* file = std::fopen(dir.write("file", "0123456789").c_str(), mode);
    EXPECT_EQ(CUnixLog::sub_line(file, start, end, text), result) << after;
    const long next = start + static_cast<long>(text.size());
    EXPECT_TRUE(result != 0 || std::ftell(file) == next) << after;
    std::fclose(file);
    EXPECT_EQ(dir.read("file"), after);
    EXPECT_EQ(CUnixLog::sub_line(nullptr, start, end, text), 1);
  }
}

TEST(CUnixLog, TheRealDaemonFollowsTheRules) {
  sandbox::run([] {
    const std::string conf = "/etc/rsyslog.conf";
    const std::string config =
        "$ModLoad imuxsock\n$SystemLogSocketName /etc/log\n*.none /dev/null\n";
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
  });
}

TEST(CUnixLog, TheServiceCommandMayFail) {
  sandbox::run([] {
    fake_daemon("exit 1\n");
    EXPECT_EQ(CUnixLog::start_syslog(), 6);
    fake_daemon("kill -9 $$\n");
    EXPECT_EQ(CUnixLog::start_syslog(), 6) << "a signal is a failure here";
    fake_daemon("exit 0\n");
    EXPECT_EQ(CUnixLog::start_syslog(), 18) << "it never comes up";
    sandbox::write_file("/etc/daemon", "");
    EXPECT_TRUE(CUnixLog::is_running()) << "syslog is found in rsyslogd";
  });
}
