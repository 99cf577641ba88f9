#pragma once

#include <cstdint>
#include <vector>

#include "utility/Export.h"

namespace utility {

/// Time counters of the host's CPUs, and the load between two samples of them.
///
///     CCpuInfo::CpuStat before, after;
///     CCpuInfo::get_cpu_stat(before);
///     ...  // an interval of the caller's choosing
///     CCpuInfo::get_cpu_stat(after);
///     double percent = 0;
///     CCpuInfo::get_cpu_usage(before, after, percent);
///
/// All operations may run on any number of threads at once.
///
/// | Code | Meaning |
/// |---|---|
/// | 0 | done |
/// | 1 | /proc/stat cannot be opened |
/// | 2 | reading failed on the way |
/// | 4 | the samples cannot be compared |
/// | 5 | no CPU was found |
class UTILITY_API CCpuInfo {
 public:
  /// The counters of one CPU, in clock ticks since the start of the host.
  struct CpuStatEnt {
    char name[16] = {};        ///< "cpu0", ...; NUL-padded. A name of 16 bytes or more has no NUL.
    std::int64_t user = 0;     ///< Running programs.
    std::int64_t nice = 0;     ///< Running programs of lowered priority.
    std::int64_t system = 0;   ///< Running the kernel.
    std::int64_t idle = 0;     ///< Doing nothing.
    std::int64_t iowait = 0;   ///< Doing nothing while a disk or the like is awaited.
    std::int64_t irq = 0;      ///< Serving interrupts.
    std::int64_t softirq = 0;  ///< Serving what interrupts put off.
  };

  /// One sample of all CPUs.
  struct CpuStat {
    std::int32_t count = 0;        ///< Entries that the last `get_cpu_stat` read.
    std::vector<CpuStatEnt> ents;  ///< One per CPU, in file order.
  };

  /// Reads the counters of each CPU; the summary line "cpu" is left out.
  ///
  /// A counter that is no number, or does not fit in 64 bits, reads as 0.
  ///
  /// @param stat  receives the sample: entries are appended, `count` is set to how many this call
  ///              appended. Pass a fresh record for each sample: a load is computed over its first
  ///              `count` entries.
  /// @return 0; 1 when the file cannot be opened (`stat` is untouched); 2 when reading failed on
  /// the
  ///         way; 5 when no CPU was found.
  /// On 2 `stat` keeps what was filled before the failing step.
  /// Source: /proc/stat in lines of at most 1023 bytes, proc(5).
  static int get_cpu_stat(CpuStat& stat);

  /// Computes the load of all CPUs between two samples.
  ///
  /// Busy is user + nice + system; waiting for I/O and interrupt time count as idle.
  ///
  /// @param first   the earlier sample.
  /// @param second  the later sample.
  /// @param usage   receives percent of the time between them, not rounded.
  /// @return 0; 4 when the samples have different counts or no time passed between them.
  /// On failure `usage` is untouched.
  static int get_cpu_usage(CpuStat& first, CpuStat& second, double& usage);
};

}  // namespace utility
