// The log daemon's rules: a rule that is added is found and can be deleted, and every other byte of
// the file stays. The program stands in for the commands: none is run.
#include "fuzz.h"
#include "utility/CUnixLog.h"

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
  write_file(file, input.rest());
  bool found = false;
  CUnixLog::is_existed_data(rule, found);
  if (found) return 0;
  const int added = CUnixLog::add_log_data(rule);
  const std::string after = read_file(file);
  check(after.compare(0, input.rest().size(), input.rest()) == 0, "what was there stays in front");
  if (added != 0) {
    check(after == input.rest(), "a refused rule leaves the file");
    return 0;
  }
  check(CUnixLog::is_existed_data(rule, found) == 0 && found, "an added rule is found");
  const int deleted = CUnixLog::del_log_data(rule);
  check(deleted == 0 || deleted == 8, "a rule that is there can be deleted");
  check(read_file(file).size() == after.size(), "the file keeps its size");
  if (after.find(rule.fac + "." + rule.level) < input.rest().size()) return 0;
  // Its line, the last one, is blanks now; no other has it.
  check(read_file(file).compare(0, input.rest().size(), input.rest()) == 0, "other lines stay");
  return 0;
}
