#include "utility/CUnixLog.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>

#include "support/alloc_fault.h"
#include "support/sandbox.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;
using utility::CUnixLog;
using Rule = CUnixLog::UnixLogData;
using Lines = std::vector<std::string>;

namespace {

constexpr char kConf[] = "/etc/syslog.conf";

int collect(const Rule& rule, void* context) {
  *static_cast<std::string*>(context) += rule.fac + "|" + rule.level + "|" + rule.obj + "\n";
  return 0;
}

int collect_and_stop(const Rule& rule, void* context) {
  return collect(rule, context) + 1;
}

// A daemon made of a file: "service" makes and removes it, "ps" shows it.
void fake_daemon(const std::string& service_body) {
  const std::string base = sandbox::scratch();
  static const bool made_private = [] {
    sandbox::make_private("/usr/bin");
    sandbox::make_private("/usr/sbin");
    return true;
  }();
  ASSERT_TRUE(made_private);
  sandbox::write_file("/usr/bin/ps", "#!/bin/bash\n[ -e " + base + "/daemon ] && echo rsyslogd\n",
                      0755);
  sandbox::write_file(
      "/usr/sbin/service",
      "#!/bin/bash\necho \"$*\" >> " + base + "/calls\ncd " + base + "\n" + service_body, 0755);
}
constexpr char kWorks[] = "case $2 in start) touch daemon;; stop) rm daemon;; esac\n";

}  // namespace

TEST(CUnixLog, LinesAreDividedAndParsed) {
  const struct {
    std::string line;
    int divided, parsed;
    std::string rules;
  } rows[] = {
      {"kern.*;mail.none /m", 0, 0, "kern|*|/m\nmail|none|/m\n"},
      {"mail.*   -/m \t log", 0, 0, "mail|*|-/m log\n"},
      {"mail,news.=info /x", 0, 0, "mail,news|=info|/x\n"},
      {"a..b.c /x", 0, 0, "a|b|/x\n"},
      {"kern.*", 8, 8, ""},
      {"kern.*;mail.none", 8, 8, "kern|*|\n"},
      {"a.b;kern;mail.info /x", 0, 8, "a|b|/x\n"},
      {";;", 8, 8, ""},
      {"", 1, 1, ""},
      {"$ModLoad imuxsock", 0, 8, ""},
      {"$IncludeConfig /etc/rsyslog.d/*.conf", 0, 8, ""},
      {"module(load=\"imuxsock\") # provides support", 0, 8, ""},
      {"*.emerg :omusrmsg:*", 0, 0, "*|emerg|:omusrmsg:*\n"},
      {"*.* @@10.0.0.1:514", 0, 0, "*|*|@@10.0.0.1:514\n"},
  };
  for (const auto& row : rows) {
    std::string selectors, action, rules;
    EXPECT_EQ(CUnixLog::divide_src_obj(row.line, selectors, action), row.divided) << row.line;
    EXPECT_EQ(CUnixLog::parse_line(row.line, collect, &rules), row.parsed) << row.line;
    EXPECT_EQ(rules, row.rules) << row.line;
  }
  std::string selectors, action = "old", rules;
  CUnixLog::divide_src_obj("a.b ;c", selectors, action);
  EXPECT_EQ(selectors + action, "a.b ;");
  EXPECT_EQ(CUnixLog::parse_line("a.b;c.d /x", collect_and_stop, &rules), 17);
  EXPECT_EQ(rules, "a|b|/x\n");
}

TEST(CUnixLog, ReadingAndSearchingTheFile) {
  sandbox::run([] {
    std::string rules;
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
    ASSERT_EQ(CUnixLog::get_all_log_data(collect, &rules), 0);
    EXPECT_EQ(rules,
              "*|err|/c\nkern|*|/c\nmail|info|/a\n*|info|/b\nmail,news|info|/c\nmail|*|/d\n"
              "mail|=info|/e\nl|*|" +
                  std::string(1023 - 4, 'z') + "\nlast|info|/f\n");
    rules.clear();
    EXPECT_EQ(CUnixLog::get_all_log_data(collect_and_stop, &rules), 0);
    EXPECT_EQ(rules.find("kern"), std::string::npos) << "a stop ends its line";
    EXPECT_NE(rules.find("last"), std::string::npos) << "and no other";
    rules.clear();
    EXPECT_EQ(CUnixLog::find_ld("mail", "info", collect, &rules), 0);
    EXPECT_EQ(rules, "mail|info|/a\n*|info|/b\nmail,news|info|/c\nmail|*|/d\n");
    EXPECT_EQ(CUnixLog::find_ld("cron", "info", collect, &rules), 11);
    EXPECT_EQ(CUnixLog::filter_logs_data("mail", "warn", collect, &rules), 11);
    EXPECT_EQ(CUnixLog::proc_find({}, nullptr) + CUnixLog::proc_exist({}, nullptr), 1 + 1);

    bool found = false;
    EXPECT_EQ(CUnixLog::is_existed_data({"*", "err", "/c"}, found), 0);
    EXPECT_TRUE(found);
    EXPECT_EQ(CUnixLog::is_existed_data({"news", "info", "/c"}, found), 0);
    EXPECT_FALSE(found);
    for (const std::size_t allowed : {0U, 1U}) {
      const AllocFault fault(allowed);
      EXPECT_EQ(CUnixLog::find_ld("mail", "info", collect, &rules), 4);
      EXPECT_TRUE(fault.delivered());
    }
    EXPECT_EQ(CUnixLog::set_syslog_name("syslog-ng"), 1);
    EXPECT_EQ(CUnixLog::m_syslog_name, "syslog");
    EXPECT_EQ(CUnixLog::set_syslog_name("rsyslog"), 0);
    fs::rename(kConf, "/etc/rsyslog.conf");
    EXPECT_EQ(CUnixLog::get_all_log_data(collect, &rules), 0);
  });
}

TEST(CUnixLog, RemovingARuleEditsInPlace) {
  const std::string full = "#" + std::string(1019, 'x') + "\n";  // one piece less two bytes
  const struct {
    const char* sentence;
    std::string before;
    Rule rule;
    int result;
    std::string after;  // spaces fill it up to the old size
  } rows[] = {
      {"first", "k.*;mail.none /m\nx.y /z\n", {"k", "*", "/m"}, 0, "mail.none /m\nx.y /z\n"},
      {"middle", "a.b;kern.*;c.d /m\n", {"kern", "*", "/m"}, 0, "a.b;c.d /m\n"},
      {"last: its separator stays", "k.*;m.none /x\n", {"m", "none", "/x"}, 0, "k.*; /x\n"},
      {"alone: an empty line", "k.* /m\nx.y /z\n", {"k", "*", "/m"}, 0, "\nx.y /z\n"},
      {"lines",
       " k.i;a.b \t/m # c\nz\nq.r;k.i /m\n",
       {"k", "i", "/m"},
       0,
       "a.b \t/m\nz\nq.r; /m\n"},
      {"no final line end", "x\nkern.* /m", {"kern", "*", "/m"}, 0, "x\n\n"},
      {"inside a level", "mail.information /m\n", {"mail", "info", "/m"}, 0, "rmation /m\n"},
      {"inside the action", "a.b /k.i\n", {"k", "i", "/k.i"}, 0, "a.b /\n"},
      {"CRLF", "k.i;a.b /m\r\n", {"k", "i", "/m"}, 0, "a.b /m\n"},
      {"another action", "kern.* /m\n", {"kern", "*", "/n"}, 10, "kern.* /m\n"},
      {"in a comment", "#kern.* /m\n", {"kern", "*", "/m"}, 10, "#kern.* /m\n"},
      {"no action", "k.i /m\nk.i\nk.i /m\n", {"k", "i", "/m"}, 8, "\nk.i\nk.i /m\n"},
      {"long lines", full + full + "yy\nk.i /m\n", {"k", "i", "/m"}, 0, full + full + "yy\n\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.sentence);
    sandbox::run([&row] {
      fake_daemon(kWorks);
      sandbox::write_file(kConf, row.before);
      Rule rule = row.rule;
      EXPECT_EQ(CUnixLog::del_log_data(rule), row.result);
      std::string after = row.after;
      after.resize(row.before.size(), ' ');
      EXPECT_EQ(sandbox::read_file(kConf), after);
      EXPECT_EQ(sandbox::recorded_calls(), row.result == 0 ? Lines{"syslog start"} : Lines{});
    });
  }
}

TEST(CUnixLog, ReplacingBytesNeverShrinksTheFile) {
  const TempDir dir;
  const struct {
    long start, end;
    std::string text;
    int result;
    std::string after;
  } rows[] = {
      {2, 6, "X", 0, "01X6789   "},      {2, 6, "WXYZ", 0, "01WXYZ6789"},
      {2, 6, "VWXYZ", 0, "01VWXYZ6789"}, {0, 10, "", 0, "          "},
      {10, 10, "X", 0, "0123456789X"},   {2, 11, "X", 9, "0123456789"},
      {-1, 3, "X", 14, "0123456789"},    {5, 3, "X", 14, "0123456789"},
  };
  for (auto row : rows) {
    FILE* file = std::fopen(dir.write("file", "0123456789").c_str(), "r+");
    EXPECT_EQ(CUnixLog::sub_line(file, row.start, row.end, row.text), row.result) << row.after;
    const long behind = row.start + static_cast<long>(row.text.size());
    EXPECT_TRUE(row.result != 0 || std::ftell(file) == behind) << row.after;
    std::fclose(file);
    EXPECT_EQ(dir.read("file"), row.after);
  }
  std::string text = "X";
  EXPECT_EQ(CUnixLog::sub_line(nullptr, 0, 0, text), 1);
  FILE* file = std::fopen((dir / "file").c_str(), "r");
  EXPECT_EQ(CUnixLog::sub_line(file, 0, 1, text), 15) << "not open for writing";
  {
    const AllocFault fault(0);
    EXPECT_EQ(CUnixLog::sub_line(file, 0, 1, text), 4);
  }
  std::fclose(file);
}

TEST(CUnixLog, AddingARuleAndControllingTheDaemon) {
  sandbox::run([] {
    fake_daemon(kWorks);
    fs::remove(kConf);
    const std::string log = sandbox::scratch() + "/app.log";
    Rule rule{"cron", "warn", log};
    EXPECT_EQ(CUnixLog::add_log_data(rule), 3) << "no file to look into";
    sandbox::write_file(kConf, "a.b /x");
    EXPECT_EQ(CUnixLog::add_log_data(rule), 20);
    fs::create_directory(log);
    EXPECT_EQ(CUnixLog::add_log_data(rule), 21);
    rule.obj = sandbox::scratch() + "/calls/below-a-file";
    sandbox::write_file(sandbox::scratch() + "/calls", "");
    EXPECT_EQ(CUnixLog::add_log_data(rule), 21) << "not examinable, but not missing";
    EXPECT_EQ(sandbox::read_file(kConf), "a.b /x");
    fs::remove(log);
    sandbox::write_file(log, "");
    rule.obj = log;
    EXPECT_EQ(CUnixLog::add_log_data(rule), 0);
    EXPECT_EQ(sandbox::read_file(kConf), "a.b /x\ncron.warn\t\t" + log + "\n");
    EXPECT_EQ(CUnixLog::add_log_data(rule), 12);
    EXPECT_EQ(CUnixLog::put_line(""), 1);

    EXPECT_TRUE(CUnixLog::is_running()) << "syslog is found in rsyslogd";
    EXPECT_EQ(CUnixLog::start_syslog(), 5);
    EXPECT_EQ(CUnixLog::restart_syslog(), 0);
    EXPECT_EQ(CUnixLog::stop_syslog(), 0);
    EXPECT_EQ(CUnixLog::stop_syslog(), 7);
    EXPECT_EQ(sandbox::recorded_calls(),
              (Lines{"syslog start", "syslog stop", "syslog start", "syslog stop"}));
  });
  sandbox::run([] {
    fake_daemon("exit 1\n");
    EXPECT_EQ(CUnixLog::start_syslog(), 6);
    fake_daemon("kill -9 $$\n");
    EXPECT_EQ(CUnixLog::start_syslog(), 6) << "a signal is a failure here";
    fake_daemon("exit 0\n");
    EXPECT_EQ(CUnixLog::start_syslog(), 18) << "it never comes up";
  });
}

TEST(CUnixLog, TheRealDaemonFollowsTheRules) {
  sandbox::run([] {
    const std::string base = sandbox::scratch();
    sandbox::write_file("/etc/rsyslog.conf", "$ModLoad imuxsock\n$SystemLogSocketName " + base +
                                                 "/log\n*.none /dev/null\n");
    sandbox::write_file("/etc/init.d/rsyslog",
                        "#!/bin/sh\ncase $1 in\n"
                        "start) /usr/sbin/rsyslogd -i " +
                            base +
                            "/pid;;\n"
                            "stop) kill $(cat " +
                            base + "/pid);;\nesac\n",
                        0755);
    sandbox::write_file(base + "/app.log", "");
    ASSERT_EQ(CUnixLog::set_syslog_name("rsyslog"), 0);
    const auto log = [&](const char* text) {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      (base + "/log").copy(address.sun_path, sizeof address.sun_path - 1);
      const int fd = ::socket(AF_UNIX, SOCK_DGRAM, 0);
      const std::string line = std::string("<158>tester: ") + text;  // local3.info
      ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
      ASSERT_EQ(::send(fd, line.data(), line.size(), 0), static_cast<ssize_t>(line.size()));
      ::close(fd);
    };
    Rule rule{"local3", "info", base + "/app.log"};
    ASSERT_EQ(CUnixLog::add_log_data(rule), 0);
    log("first message");
    ASSERT_EQ(CUnixLog::stop_syslog(), 0) << "the daemon writes what it has when it stops";
    EXPECT_NE(sandbox::read_file(base + "/app.log").find("first message"), std::string::npos);
    ASSERT_EQ(CUnixLog::del_log_data(rule), 0) << "restarts the daemon";
    log("second message");
    ASSERT_EQ(CUnixLog::stop_syslog(), 0);
    EXPECT_EQ(sandbox::read_file(base + "/app.log").find("second message"), std::string::npos);
  });
}
