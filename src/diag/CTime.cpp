#include "utility/CTime.h"

#include "base/local_time.h"

namespace utility {

using namespace detail;

namespace {

enum Zone { kLocal = 0, kUtc = 1 };

char* write_time(long t, int zone, const char* format, char* out, int size) noexcept {
  if (format == nullptr || out == nullptr || size < 0) return nullptr;
  std::tm parts{};
  const bool is_known =
      zone == kLocal ? local_time(t, parts) : zone == kUtc && ::gmtime_r(&t, &parts) != nullptr;
  if (!is_known) return nullptr;
  const std::size_t length = std::strftime(out, static_cast<std::size_t>(size), format, &parts);
  return length > 0 ? out : nullptr;
}

}  // namespace

char* CTime::chtm_base(long t, int zone, char* format, char* out, int size) {
  return write_time(t, zone, format, out, size);
}

char* CTime::get_local_time_yyyymmdd(long t, char* out, int size) {
  return write_time(t, kLocal, "%F", out, size);
}

char* CTime::get_local_time_all(long t, char* out, int size) {
  return write_time(t, kLocal, "%c", out, size);
}

char* CTime::get_local_time_4_mysql(long t, char* out, int size) {
  return write_time(t, kLocal, "%F %T", out, size);
}

void CTime::time_2_seg(long seconds, TimeSeg* seg) {
  if (seg == nullptr) return;
  seg->days = static_cast<int>(seconds / 86400);
  seg->hours = static_cast<int>(seconds / 3600 % 24);
  seg->minutes = static_cast<int>(seconds / 60 % 60);
  seg->seconds = static_cast<int>(seconds % 60);
}

}  // namespace utility
