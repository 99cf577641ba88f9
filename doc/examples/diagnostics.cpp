// Writes a log, dumps bytes, compares versions, formats times, and waits for a thread.

#include <utility/CDiyLog.h>
#include <utility/CDump.h>
#include <utility/CEvent.h>
#include <utility/CTime.h>
#include <utility/TarvelVersion.h>

#include <cstdio>
#include <thread>

int main() {
  using namespace utility;

  CDiyLog log;
  if (!log.init("agent.log", CDiyLog::kProcessId)) return 1;
  log.write_log("%d rules read", 7);

  char bytes[] = "bytes\x01\x02";
  CDump::setmaxline(8);
  if (CDump::dump(bytes, 7) != 0) return 1;

  std::printf("newer: %s\n", TarvelVersion("3.10.0") > TarvelVersion("3.9.5") ? "yes" : "no");

  char format[] = "%F %T";
  char text[32];
  std::puts(CTime::chtm_base(86400, 1, format, text, sizeof text));
  CTime::TimeSeg parts;
  CTime::time_2_seg(93784, &parts);
  std::printf("%d d %d h %d min %d s\n", parts.days, parts.hours, parts.minutes, parts.seconds);

  CEvent done;
  if (!done.init()) return 1;
  std::thread worker([&done] { done.signal(); });
  std::printf("waited: %d\n", done.wait(5000));
  worker.join();
  return 0;
}
