#pragma once

#include <ctime>

namespace utility::detail {

/// Breaks `t` down in local time as localtime() does. False when the year does not fit.
///
/// localtime_r() alone reads the time zone once per process; tzset() makes a changed TZ or
/// /etc/localtime count, at the price of looking at that file when TZ is unset.
inline bool local_time(std::time_t t, std::tm& parts) noexcept {
  ::tzset();
  return ::localtime_r(&t, &parts) != nullptr;
}

}  // namespace utility::detail
