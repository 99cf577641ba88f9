#pragma once

#include "utility/Export.h"

namespace utility {

/// Texts of calendar times, and durations split into days, hours, minutes and seconds.
///
/// All operations may run on any number of threads at once. Local time follows TZ, or
/// /etc/localtime, as it is at the time of the call; texts follow the process's locale.
class UTILITY_API CTime {
 public:
  /// A duration in parts; all of them carry the sign of the whole.
  struct TimeSeg {
    int days;
    int hours;    ///< -23 to 23
    int minutes;  ///< -59 to 59
    int seconds;  ///< -59 to 59
  };

  /// Writes the time `t` into `out` as strftime(3) formats it.
  ///
  /// @param t       seconds since 1970-01-01 00:00:00 UTC.
  /// @param zone    0 for local time, 1 for UTC.
  /// @param format  the strftime format; only read.
  /// @param out     receives the NUL-terminated text.
  /// @param size    the bytes that `out` has room for, the closing NUL included.
  /// @return `out`; or null when `format` or `out` is null, `size` is negative, `zone` is neither 0
  ///         nor 1 or the year of `t` does not fit in an int (`out` is untouched), and when the
  ///         text is empty or does not fit (`out` may hold a piece of it, without a NUL).
  static char* chtm_base(long t, int zone, char* format, char* out, int size);

  /// Writes the local date of `t` as YYYY-MM-DD ("%F"). Arguments and result as in `chtm_base`.
  static char* get_local_time_yyyymmdd(long t, char* out, int size);
  /// Writes the local date and time of `t` as the locale has it ("%c"), in the "C" locale like
  /// "Thu Jan  1 00:00:00 1970". Arguments and result as in `chtm_base`.
  static char* get_local_time_all(long t, char* out, int size);
  /// Writes the local date and time of `t` as YYYY-MM-DD HH:MM:SS ("%F %T"). Arguments and result
  /// as in `chtm_base`.
  static char* get_local_time_4_mysql(long t, char* out, int size);

  /// Splits a duration; divisions cut towards zero, so that -61 is -1 minute and -1 second.
  ///
  /// @param seconds  the duration; days beyond an int (5.8 million years) keep their low 32 bits.
  /// @param seg      receives the parts; nothing happens when it is null.
  static void time_2_seg(long seconds, TimeSeg* seg);
};

}  // namespace utility
