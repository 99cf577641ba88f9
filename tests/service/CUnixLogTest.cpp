#include "utility/CUnixLog.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
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
  static_cast<Lines*>(context)->push_back(rule.fac + "|" + rule.level + "|" + rule.obj);
  return 0;
}

int collect_and_stop(const Rule& rule, void* context) {
  collect(rule, context);
  return 1;
}

// A daemon made of a file: "service" makes and removes it, "ps" shows it.
void fake_daemon(const std::string& service_body) {
  const std::string state = sandbox::scratch() + "/daemon";
  static const bool made_private = [] {
    sandbox::make_private("/usr/bin");
    sandbox::make_private("/usr/sbin");
    return true;
  }();
  ASSERT_TRUE(made_private);
  sandbox::write_file("/usr/bin/ps", "#!/bin/bash\n[ -e " + state + " ] && echo rsyslogd; exit 0\n",
                      0755);
  sandbox::write_file("/usr/sbin/service",
                      "#!/bin/bash\necho \"$*\" >> " + sandbox::scratch() + "/calls\ncd " +
                          sandbox::scratch() + "\n" + service_body,
                      0755);
}
constexpr char kWorks[] = "case $2 in start) touch daemon;; stop) rm daemon;; esac\n";

}  // namespace

TEST(CUnixLog, LinesAreDividedAndParsed) {
  const struct {
    const char* sentence;
    std::string line;
    int divided, parsed;
    Lines rules;
  } rows[] = {
      {"two selectors",
       "kern.*;mail.none /var/log/messages",
       0,
       0,
       {"kern|*|/var/log/messages", "mail|none|/var/log/messages"}},
      {"white space in the action is squeezed",
       "mail.*   -/var/log/mail \t log",
       0,
       0,
       {"mail|*|-/var/log/mail log"}},
      {"a comma list", "mail,news.=info /x", 0, 0, {"mail,news|=info|/x"}},
      {"further dots are ignored", "a..b.c /x", 0, 0, {"a|b|/x"}},
      {"no action", "kern.*", 8, 8, {}},
      {"no action, but selectors before the last", "kern.*;mail.none", 8, 8, {"kern|*|"}},
      {"a selector without a dot ends the line", "a.b;kern;mail.info /x", 0, 8, {"a|b|/x"}},
      {"separators only", ";;", 8, 8, {}},
      {"empty", "", 1, 1, {}},
      {"a directive", "$ModLoad imuxsock", 0, 8, {}},
      {"an include", "$IncludeConfig /etc/rsyslog.d/*.conf", 0, 8, {}},
      {"a module call", "module(load=\"imuxsock\") # provides support", 0, 8, {}},
      {"an emergency rule", "*.emerg :omusrmsg:*", 0, 0, {"*|emerg|:omusrmsg:*"}},
      {"a forward", "*.* @@10.0.0.1:514", 0, 0, {"*|*|@@10.0.0.1:514"}},
  };
  for (const auto& row : rows) {
    std::string selectors = "old";
    std::string action = "old";
    EXPECT_EQ(CUnixLog::divide_src_obj(row.line, selectors, action), row.divided) << row.sentence;
    Lines rules;
    EXPECT_EQ(CUnixLog::parse_line(row.line, collect, &rules), row.parsed) << row.sentence;
    EXPECT_EQ(rules, row.rules) << row.sentence;
  }
  std::string selectors;
  std::string action = "old";
  CUnixLog::divide_src_obj("a.b ;c", selectors, action);
  EXPECT_EQ(selectors, "a.b ;");
  EXPECT_EQ(action, "");
  Lines rules;
  EXPECT_EQ(CUnixLog::parse_line("a.b;c.d /x", collect_and_stop, &rules), 17);
  EXPECT_EQ(rules, Lines{"a|b|/x"});
}

TEST(CUnixLog, ReadingAndSearchingTheFile) {
  sandbox::run([] {
    Lines rules;
    fs::remove(kConf);
    EXPECT_EQ(CUnixLog::get_all_log_data(collect, &rules), 3);
    fs::create_directory(kConf);
    EXPECT_EQ(CUnixLog::get_all_log_data(collect, &rules), 9) << "a read error";
    fs::remove(kConf);
    sandbox::write_file(kConf,
                        "# all of it\n\n \t\n*.err;kern.*  /dev/console # note\r\n"
                        "mail.info /a\n*.info /b\nmail,news.info /c\nmail.* /d\nmail.=info /e\n"
                        "kern.*\n$Umask 0022\nlocal0.* " +
                            std::string(1100, 'z') + "\nlast.info /f");
    ASSERT_EQ(CUnixLog::get_all_log_data(collect, &rules), 0);
    ASSERT_EQ(rules.size(), 9U);
    EXPECT_EQ(rules[1], "kern|*|/dev/console");
    EXPECT_EQ(rules[7], "local0|*|" + std::string(1023 - 9, 'z')) << "1023 bytes of a line";
    EXPECT_EQ(rules[8], "last|info|/f");

    rules.clear();
    EXPECT_EQ(CUnixLog::find_ld("mail", "info", collect, &rules), 0);
    EXPECT_EQ(rules, (Lines{"mail|info|/a", "*|info|/b", "mail,news|info|/c", "mail|*|/d"}));
    rules.clear();
    EXPECT_EQ(CUnixLog::get_all_log_data(collect_and_stop, &rules), 0);
    EXPECT_EQ(rules.size(), 8U) << "the first rule of every line";
    EXPECT_EQ(CUnixLog::find_ld("cron", "info", collect, &rules), 11);
    EXPECT_EQ(CUnixLog::filter_logs_data("mail", "warn", collect, &rules), 11);
    EXPECT_EQ(CUnixLog::proc_find({}, nullptr), 1);
    EXPECT_EQ(CUnixLog::proc_exist({}, nullptr), 1);

    bool found = false;
    EXPECT_EQ(CUnixLog::is_existed_data({"*", "err", "/dev/console"}, found), 0);
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
  const std::string text_1020 = "#" + std::string(1018, 'x') + "\n";
  const struct {
    const char* sentence;
    std::string before;
    Rule rule;
    int result;
    std::string after;  // spaces fill it up to the old size
  } rows[] = {
      {"the first selector",
       "kern.*;mail.none /m\nx.y /z\n",
       {"kern", "*", "/m"},
       0,
       "mail.none /m\nx.y /z\n"},
      {"the middle one", "a.b;kern.*;c.d /m\n", {"kern", "*", "/m"}, 0, "a.b;c.d /m\n"},
      {"the last one leaves its separator",
       "kern.*;mail.none /x\n",
       {"mail", "none", "/x"},
       0,
       "kern.*; /x\n"},
      {"the only one leaves an empty line",
       "kern.* /m\nx.y /z\n",
       {"kern", "*", "/m"},
       0,
       "\nx.y /z\n"},
      {"several lines, comments and blanks lost",
       " k.i;a.b \t/m # c\nz\nq.r;k.i /m\n",
       {"k", "i", "/m"},
       0,
       "a.b \t/m\nz\nq.r; /m\n"},
      {"no final line end: one is written", "x\nkern.* /m", {"kern", "*", "/m"}, 0, "x\n\n"},
      {"the text inside a longer level",
       "mail.information /m\n",
       {"mail", "info", "/m"},
       0,
       "rmation /m\n"},
      {"the text inside the action", "a.b /k.i\n", {"k", "i", "/k.i"}, 0, "a.b /\n"},
      {"CRLF ends are blanks", "k.i;a.b /m\r\n", {"k", "i", "/m"}, 0, "a.b /m\n"},
      {"another action", "kern.* /m\n", {"kern", "*", "/n"}, 10, "kern.* /m\n"},
      {"in a comment only", "#kern.* /m\n", {"kern", "*", "/m"}, 10, "#kern.* /m\n"},
      {"a line without an action stops it",
       "k.i /m\nk.i\nk.i /m\n",
       {"k", "i", "/m"},
       8,
       "\nk.i\nk.i /m\n"},
      {"behind a line longer than a piece",
       text_1020 + text_1020.substr(0, 1019) + "yyyyyyyy\nk.i /m\n",
       {"k", "i", "/m"},
       0,
       text_1020 + text_1020.substr(0, 1019) + "yyyyyyyy\n\n"},
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
    const char* sentence;
    long start, end;
    std::string text;
    int result;
    std::string after;
  } rows[] = {
      {"shorter", 2, 6, "X", 0, "01X6789   "},
      {"as long", 2, 6, "WXYZ", 0, "01WXYZ6789"},
      {"longer", 2, 6, "UVWXYZ", 0, "01UVWXYZ6789"},
      {"nothing for all", 0, 10, "", 0, "          "},
      {"at the end", 10, 10, "X", 0, "0123456789X"},
      {"behind the end", 2, 11, "X", 9, "0123456789"},
      {"before the start", -1, 3, "X", 14, "0123456789"},
      {"turned round", 5, 3, "X", 14, "0123456789"},
  };
  for (auto row : rows) {
    FILE* file = std::fopen(dir.write("file", "0123456789").c_str(), "r+");
    EXPECT_EQ(CUnixLog::sub_line(file, row.start, row.end, row.text), row.result) << row.sentence;
    if (row.result == 0) {
      EXPECT_EQ(std::ftell(file), row.start + static_cast<long>(row.text.size())) << row.sentence;
    }
    std::fclose(file);
    EXPECT_EQ(dir.read("file"), row.after) << row.sentence;
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
  EXPECT_EQ(dir.read("file"), "0123456789");
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
