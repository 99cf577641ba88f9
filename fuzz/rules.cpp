// The log daemon's rules: one that is added is found, one that is deleted is not, and every other
// byte of the file stays. The program stands in for the commands: none is run.
#include "fuzz.h"

using utility::CUnixLog;

namespace {

bool is_running = true;

// A name as daemons have them: what is no letter becomes one.
std::string name_of(std::string text) {
  for (char& c : text) c = static_cast<char>('a' + static_cast<unsigned char>(c) % 26);
  return text.empty() ? "x" : text.substr(0, 100);
}

}  // namespace

// Tells whether the daemon runs, or starts or stops it.
extern "C" int system(const char* command) {
  const std::string text = command;
  if (text.compare(0, 3, "ps ") == 0) return is_running ? 0 : 256;
  check(text.compare(0, 8, "service ") == 0, "no other command is run");
  is_running = text.find("start") != std::string::npos;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string action = scratch_file("action");
  static const bool is_apart = ::mount("tmpfs", "/etc", "tmpfs", 0, nullptr) == 0 &&
                               CUnixLog::set_syslog_name("syslog") == 0;
  check(is_apart, "an /etc of its own");
  const std::string file = "/etc/syslog.conf";
  Input input(data, size);
  CUnixLog::UnixLogData rule;
  rule.fac = name_of(input.text('\n'));
  rule.level = name_of(input.text('\n'));
  rule.obj = action;
  const std::string key = rule.fac + "." + rule.level, line = key + "\t\t" + action + "\n";
  const std::string between = input.rest() + "\n";
  if (between.find(key) < between.size()) return 0;
  write_file(file, between);
  const int added = CUnixLog::add_log_data(rule);
  bool found = false;
  check(added == 0 && CUnixLog::is_existed_data(rule, found) == 0 && found,
        "an added rule is found");
  check(read_file(file) == between + "\n" + line, "it stands at the end, and nothing else is new");
  // Twice in the file, with anything between and something after.
  const std::string end = "# end\n", left = "\n" + between + "\n" + end;
  write_file(file, line + between + line + end);
  check(CUnixLog::del_log_data(rule) == 0, "a rule that is there can be deleted");
  check(CUnixLog::is_existed_data(rule, found) == 0 && !found, "it is gone then");
  const std::string after = read_file(file);
  const std::size_t size_before = 2 * line.size() + between.size() + end.size();
  check(after == left + std::string(size_before - left.size(), ' '), "other bytes stay");
  return 0;
}
