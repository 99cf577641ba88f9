#pragma once

#include "utility/Export.h"

namespace utility {

/// Memory use of the host and of single processes.
///
/// All operations may run on any number of threads at once.
///
/// | Code | Meaning |
/// |---|---|
/// | 0 | done |
/// | 1 | memory ran out, or the process's status file cannot be opened |
/// | 2 | /proc/meminfo cannot be opened or lacks a key |
/// | 3 | the host's memory could not be read (`get_process_mem_usage`) |
class UTILITY_API CMemInfo {
 public:
  /// Memory of the host, in kB; figures beyond 32 bits (2 TiB) wrap.
  struct MemStat {
    int total = 0;  ///< "MemTotal".
    int free = 0;   ///< "MemFree" + "Cached" + "Buffers": what can be had.
  };

  /// Reads how much memory the host has and how much of it can be had.
  ///
  /// Keys are told by their beginning ("MemTotal:" and "MemTotalX" both count), and reading stops
  /// at the fourth that counts. A key without a number counts as 0.
  ///
  /// @param stat  receives the figures: `total` is set, `free` is added to. The caller zeroes it.
  /// @return 0 when all four keys were found; 2 when fewer were (also when the file cannot be
  ///         opened); 1 when memory ran out.
  /// On failure `stat` keeps what was filled before the failing step.
  /// Source: /proc/meminfo, proc(5).
  static int get_mem_stat(MemStat& stat);

  /// Computes the share of the host's memory that is in use.
  ///
  /// @param usage  receives percent, (total - free) / total, not rounded; 0 when the total is 0 kB.
  /// @return the code of `get_mem_stat`: 0, 1 or 2.
  /// On failure `usage` is untouched.
  /// Source: /proc/meminfo.
  static int get_mem_usage(double& usage);

  /// Computes the share of the host's memory that is resident for one process.
  ///
  /// A process without a "VmRSS" line (a kernel thread) or without a number in it uses 0.
  ///
  /// @param pid    the process id.
  /// @param usage  receives percent, rounded half up to one decimal; 0 when the total is 0 kB.
  /// @return 0; 1 when the process's status file cannot be opened; 3 when `get_mem_stat` failed.
  /// On failure `usage` is untouched.
  /// Source: `/proc/<pid>/status` in lines of at most 511 bytes, /proc/meminfo.
  static int get_process_mem_usage(const int& pid, double& usage);
};

}  // namespace utility
