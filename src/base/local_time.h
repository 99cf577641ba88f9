#pragma once

#include <ctime>

namespace utility::detail {

/// Converts to local time as `localtime` does, following changes of TZ, but into the caller's
/// record. False when the year does not fit.
inline bool local_time(std::time_t time, std::tm& fields) noexcept {
  ::tzset();
  return ::localtime_r(&time, &fields) != nullptr;
}

}  // namespace utility::detail
