#include "utility/CCpuInfo.h"

#include "base/io.h"
#include "base/text.h"

namespace utility {

using namespace detail;

namespace {

enum Code : int { kDone = 0, kNotOpened = 1, kReadFailed = 2, kNotComparable = 4, kNoCpu = 5 };

// The counters in the order in which a line of /proc/stat gives them after the name.
constexpr std::int64_t CCpuInfo::CpuStatEnt::*kCounters[] = {
    &CCpuInfo::CpuStatEnt::user,   &CCpuInfo::CpuStatEnt::nice,   &CCpuInfo::CpuStatEnt::system,
    &CCpuInfo::CpuStatEnt::idle,   &CCpuInfo::CpuStatEnt::iowait, &CCpuInfo::CpuStatEnt::irq,
    &CCpuInfo::CpuStatEnt::softirq};

// Fills `entry` from a line of one CPU; false for any other line, the summary of all CPUs included.
bool parse_cpu_line(const std::string& line, CCpuInfo::CpuStatEnt& entry) {
  const std::vector<std::string> fields = words_of(line);
  if (fields.size() <= std::size(kCounters)) return false;
  if (!begins_with(fields[0], "cpu") || fields[0] == "cpu") return false;
  fields[0].copy(entry.name, sizeof entry.name);
  std::size_t field = 0;
  for (const auto counter : kCounters) entry.*counter = CStr::atoll(fields[++field]);
  return true;
}

// Sums over all CPUs. Unsigned, so that absurd counters wrap.
struct Times {
  std::uint64_t busy = 0;
  std::uint64_t total = 0;
};

Times sum_times(const CCpuInfo::CpuStat& stat) {
  Times times;
  std::int32_t left = stat.count;
  for (const CCpuInfo::CpuStatEnt& entry : stat.ents) {
    if (left-- <= 0) break;
    for (const auto counter : kCounters) times.total += static_cast<std::uint64_t>(entry.*counter);
    times.busy += static_cast<std::uint64_t>(entry.user) + static_cast<std::uint64_t>(entry.nice) +
                  static_cast<std::uint64_t>(entry.system);
  }
  return times;
}

}  // namespace

int CCpuInfo::get_cpu_stat(CpuStat& stat) {
  Lines<1024> lines(open_to_read("/proc/stat"));
  if (!lines) return kNotOpened;
  stat.count = 0;
  while (lines.next()) {
    CpuStatEnt entry;
    if (!parse_cpu_line(lines.text(), entry)) continue;
    stat.ents.push_back(entry);
    ++stat.count;
  }
  if (lines.failed()) return kReadFailed;
  return stat.count == 0 ? kNoCpu : kDone;
}

int CCpuInfo::get_cpu_usage(CpuStat& first, CpuStat& second, double& usage) {
  if (first.count != second.count) return kNotComparable;
  const Times before = sum_times(first);
  const Times after = sum_times(second);
  if (before.total == after.total) return kNotComparable;
  const auto busy = static_cast<std::int64_t>(after.busy - before.busy);
  const auto total = static_cast<std::int64_t>(after.total - before.total);
  usage = static_cast<double>(busy) / static_cast<double>(total) * 100.0;
  return kDone;
}

}  // namespace utility
