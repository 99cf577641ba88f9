// The log daemon's rules: a rule that is added is found, one that is deleted is not, and every
// other byte of the file stays. The program stands in for the commands: none is run.
#include <sys/stat.h>

#include "fuzz.h"
#include "utility/CUnixLog.h"

using utility::CUnixLog;
using Rule = CUnixLog::UnixLogData;

namespace {

bool runs = true;

// A name as daemons have them: what is no letter becomes one.
std::string name_of(std::string text) {
  for (char& c : text) c = static_cast<char>('a' + static_cast<unsigned char>(c) % 26);
  return text.empty() ? "x" : text.substr(0, 100);
}

}  // namespace

// Tells whether the daemon runs, or starts or stops it.
extern "C" int system(const char* command) {
  const std::string text = command;
  if (text.compare(0, 3, "ps ") == 0) return runs ? 0 : 256;
  check(text.compare(0, 8, "service ") == 0, "no other command is run");
  runs = text.find("start") != std::string::npos;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool entered = ::mkdir((scratch() + "/etc").c_str(), 0755) == 0 &&
                              ::mount("/run/etc", "/etc", nullptr, MS_BIND, nullptr) == 0;
  check(entered, "an /etc of its own");
  static const ScratchFile file("etc/syslog.conf");
  static const ScratchFile action("etc/action");
  static const int named = CUnixLog::set_syslog_name("syslog");
  check(named == 0, "a daemon of that name");
  runs = true;

  Input input(data, size);
  Rule rule{name_of(input.text('\n')), name_of(input.text('\n')), "/etc/action"};
  const std::string content = input.rest();
  file.write(content);
  bool found = false;
  CUnixLog::is_existed_data(rule, found);
  if (found) return 0;
  const int added = CUnixLog::add_log_data(rule);
  const std::string after = read_file(file.path);
  check(after.compare(0, content.size(), content) == 0, "what was there stays in front");
  if (added != 0) {
    check(after == content, "a refused rule leaves the file");
    return 0;
  }
  check(runs && CUnixLog::is_existed_data(rule, found) == 0 && found, "an added rule is found");
  const int deleted = CUnixLog::del_log_data(rule);
  check(deleted == 0 || deleted == 8, "a rule that is there can be deleted");
  check(read_file(file.path).size() == after.size(), "the file keeps its size");
  return 0;
}
