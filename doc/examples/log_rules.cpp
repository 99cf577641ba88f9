// Tells where the system log writes the errors of the mail system.

#include <utility/CUnixLog.h>

#include <cstdio>

namespace {

using utility::CUnixLog;

int print(const CUnixLog::UnixLogData& rule, void* /*context*/) {
  std::printf("%s.%s goes to %s\n", rule.fac.c_str(), rule.level.c_str(), rule.obj.c_str());
  return 0;
}

}  // namespace

int main() {
  if (CUnixLog::set_syslog_name("rsyslog") != 0) return 1;
  const int code = CUnixLog::find_ld("mail", "err", print, nullptr);
  if (code != 0) std::printf("the rules could not be read: code %d\n", code);
  return code;
}
