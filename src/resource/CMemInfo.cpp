#include "utility/CMemInfo.h"

#include <cmath>
#include <cstdint>

#include "base/io.h"
#include "base/text.h"

namespace utility {

using namespace detail;

namespace {

enum Code : int { kDone = 0, kNotRead = 1, kKeyMissing = 2, kHostNotRead = 3 };

constexpr std::string_view kFreeKeys[] = {"MemFree", "Cached", "Buffers"};
constexpr int kKeys = 1 + static_cast<int>(std::size(kFreeKeys));

// The kilobytes that follow the first word of a line, 0 without a number.
long kilobytes_after(std::string_view word) {
  return std::strtol(word.data() + word.size(), nullptr, 10);
}

// Takes the number of a line that begins with one of the keys; false for any other line.
bool take_meminfo_line(const char* line, CMemInfo::MemStat& stat) {
  const std::string_view word = first_word(line);
  const auto begins_word = [word](std::string_view key) { return begins_with(word, key); };
  const auto kilobytes = static_cast<std::uint32_t>(kilobytes_after(word));
  if (begins_word("MemTotal")) {
    stat.total = static_cast<std::int32_t>(kilobytes);
    return true;
  }
  if (std::none_of(std::begin(kFreeKeys), std::end(kFreeKeys), begins_word)) return false;
  stat.free = static_cast<std::int32_t>(static_cast<std::uint32_t>(stat.free) + kilobytes);
  return true;
}

// 0 where there is nothing to have a share of.
double share_of(double part, int total) { return total == 0 ? 0.0 : part / total; }

}  // namespace

int CMemInfo::get_mem_stat(MemStat& stat) {
  try {
    std::string text;
    read_all(open_to_read("/proc/meminfo").get(), text);
    int found = 0;
    for (std::string_view rest = text; found < kKeys && !rest.empty();) {
      const std::string line(take_line(rest, rest.size()));
      if (take_meminfo_line(line.c_str(), stat)) ++found;
    }
    return found == kKeys ? kDone : kKeyMissing;
  } catch (const std::exception&) {
    return kNotRead;
  }
}

int CMemInfo::get_mem_usage(double& usage) {
  MemStat stat;
  if (const int result = get_mem_stat(stat)) return result;
  usage = share_of(static_cast<double>(stat.total) - stat.free, stat.total) * 100.0;
  return kDone;
}

int CMemInfo::get_process_mem_usage(const int& pid, double& usage) {
  const std::string path = "/proc/" + std::to_string(pid) + "/status";
  Lines<512> lines(open_to_read(path.c_str()));
  if (!lines) return kNotRead;
  bool found = false;
  while (!found && lines.next()) found = begins_with(lines.line(), "VmRSS");
  const int resident = found ? static_cast<int>(kilobytes_after(first_word(lines.text()))) : 0;
  MemStat stat;
  if (get_mem_stat(stat) != kDone) return kHostNotRead;
  usage = std::trunc(share_of(resident, stat.total) * 100.0 * 10.0 + 0.5) / 10.0;
  return kDone;
}

}  // namespace utility
