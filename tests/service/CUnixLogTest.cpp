#include "utility/CUnixLog.h"

#include <gtest/gtest.h>

#include "support/cases.h"

using utility::CUnixLog;
using S = std::string;
using Rule = CUnixLog::UnixLogData;

namespace {

int collect(const Rule& rule, void* rules) {
  static_cast<Words*>(rules)->push_back(rule.fac + "." + rule.level + " " + rule.obj);
  return 0;
}

int collect_and_stop(const Rule& rule, void* rules) { return collect(rule, rules) + 1; }

// The result of `read(callback, context)`, and the rules.
template <class Read>
Words rules_of(Read read, CUnixLog::Callback callback = collect) {
  Words rules{""};
  rules[0] = std::to_string(read(callback, &rules));
  return rules;
}

auto search(int (*find)(const S&, const S&, CUnixLog::Callback, void*)) {
  return call([find](const S& fac, const S& level) {
    return rules_of([&](auto... args) { return find(fac, level, args...); });
  });
}

auto change(int (*edit)(Rule&)) {
  return call([edit](const S& fac, const S& level, const S& action) {
    Rule rule{fac, level, action};
    return edit(rule);
  });
}

auto parse(CUnixLog::Callback callback) {
  return call([callback](const S& line) {
    return rules_of([&](auto... args) { return CUnixLog::parse_line(line, args...); }, callback);
  });
}

// Of the file "digits"; the position after it where it is done.
Words sub_line(const char* mode, long start, long end, S text) {
  FILE* file = std::fopen("digits", mode);
  const int result = CUnixLog::sub_line(file, start, end, text);
  const long position = result == 0 ? std::ftell(file) : -1;
  std::fclose(file);
  return texts(result, position);
}

Calls log_calls() {
  const auto all = [] { return rules_of(CUnixLog::get_all_log_data); };
  const auto first = [] { return rules_of(CUnixLog::get_all_log_data, collect_and_stop); };
  const auto exists = [](const S& fac, const S& level, const S& action, bool& found) {
    return CUnixLog::is_existed_data({fac, level, action}, found);
  };
  return {{"set_syslog_name", call(CUnixLog::set_syslog_name)},
          {"is_valid_fac", call(CUnixLog::is_valid_fac)},
          {"is_valid_level", call(CUnixLog::is_valid_level)},
          {"divide_src_obj", call(CUnixLog::divide_src_obj)},
          {"parse_line", parse(collect)},
          {"parse_line_until_stopped", parse(collect_and_stop)},
          {"sub_line", call(sub_line)},
          {"get_all_log_data", call(all)},
          {"get_all_until_stopped", call(first)},
          {"find_ld", search(CUnixLog::find_ld)},
          {"filter_logs_data", search(CUnixLog::filter_logs_data)},
          {"is_existed_data", call(exists)},
          {"add_log_data", change(CUnixLog::add_log_data)},
          {"del_log_data", change(CUnixLog::del_log_data)},
          {"put_line", call(CUnixLog::put_line)},
          {"is_running", call(CUnixLog::is_running)},
          {"start_syslog", call(CUnixLog::start_syslog)},
          {"stop_syslog", call(CUnixLog::stop_syslog)},
          {"restart_syslog", call(CUnixLog::restart_syslog)}};
}

}  // namespace

TEST(CUnixLog, LinesAndFiles) {
  run_cases(FIXTURES "/log.txt", log_calls());
  S text;
  EXPECT_EQ(CUnixLog::sub_line(nullptr, 0, 0, text), 1);
  EXPECT_EQ(CUnixLog::get_all_log_data(nullptr, nullptr), 0);
  EXPECT_EQ(CUnixLog::parse_line("a.b;c.d /x", nullptr, nullptr), 0);
  EXPECT_EQ(CUnixLog::find_ld("mail", "info", nullptr, nullptr), 0);
  EXPECT_EQ(CUnixLog::proc_find({}, nullptr) + CUnixLog::proc_exist({}, nullptr), 1 + 1);
}

TEST(CUnixLog, TheServiceCommandMayFail) { run_cases(FIXTURES "/daemon.txt", log_calls()); }

TEST(CUnixLog, TheRealDaemonFollowsTheRules) { run_cases(FIXTURES "/rsyslog.txt", log_calls()); }
