#include "utility/CMemInfo.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <locale>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "base/handles.h"
#include "utility/CStr.h"

namespace utility {
namespace {

constexpr std::string_view kTotalKey = "MemTotal";
constexpr std::array<std::string_view, 3> kFreeKeys = {"MemFree", "Cached", "Buffers"};
constexpr int kKeys = 1 + static_cast<int>(kFreeKeys.size());

constexpr std::string_view kResidentKey = "VmRSS";
constexpr std::size_t kStatusLine = 512;

bool begins_with(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

bool is_free_key(std::string_view word) {
  for (const std::string_view key : kFreeKeys) {
    if (begins_with(word, key)) return true;
  }
  return false;
}

// Fetches a line of any length without its line feed; false at the end of the file.
bool read_line(FILE* stream, std::string& line) {
  line.clear();
  int byte = 0;
  while ((byte = std::getc(stream)) != EOF && byte != '\n') line += static_cast<char>(byte);
  return byte != EOF || !line.empty();
}

// Takes the number of a line that begins with one of the keys; false for any other line.
bool take_meminfo_line(const std::string& line, CMemInfo::MemStat& stat) {
  std::istringstream stream(line);
  stream.imbue(std::locale::classic());  // the host program's locale may group digits
  std::string word;
  stream >> word;
  const bool is_total = begins_with(word, kTotalKey);
  if (!is_total && !is_free_key(word)) return false;

  long number = 0;
  stream >> number;
  const auto kilobytes = static_cast<std::uint32_t>(number);
  const auto sum = static_cast<std::uint32_t>(stat.free) + kilobytes;
  (is_total ? stat.total : stat.free) = static_cast<std::int32_t>(is_total ? kilobytes : sum);
  return true;
}

// The kilobytes of a line "VmRSS: <number> kB", 0 without a number.
int resident_size(const std::string& line) {
  std::vector<std::string> fields;
  CStr::ext_line(fields, line);
  if (fields.size() < 2) return 0;
  return static_cast<int>(std::strtol(fields[1].c_str(), nullptr, 10));
}

}  // namespace

int CMemInfo::get_mem_stat(MemStat& stat) {
  try {
    int found = 0;
    if (const detail::File file = detail::open_file("/proc/meminfo", "re")) {
      std::string line;
      while (found < kKeys && read_line(file.get(), line)) {
        if (take_meminfo_line(line, stat)) ++found;
      }
    }
    return found == kKeys ? 0 : 2;
  } catch (const std::exception&) {
    return 1;
  }
}

int CMemInfo::get_mem_usage(double& usage) {
  MemStat stat;
  const int result = get_mem_stat(stat);
  if (result != 0) return result;
  const double total = stat.total;
  usage = stat.total == 0 ? 0.0 : (total - stat.free) / total * 100.0;
  return 0;
}

int CMemInfo::get_process_mem_usage(const int& pid, double& usage) {
  int resident = 0;
  {
    const std::string path = "/proc/" + std::to_string(pid) + "/status";
    const detail::File file = detail::open_file(path.c_str(), "re");
    if (!file) return 1;
    std::array<char, kStatusLine> line;
    while (std::fgets(line.data(), static_cast<int>(line.size()), file.get()) != nullptr) {
      if (!begins_with(line.data(), kResidentKey)) continue;
      resident = resident_size(line.data());
      break;
    }
  }
  MemStat stat;
  if (get_mem_stat(stat) != 0) return 3;
  const double share = stat.total == 0 ? 0.0 : static_cast<double>(resident) / stat.total;
  usage = std::trunc(share * 100.0 * 10.0 + 0.5) / 10.0;
  return 0;
}

}  // namespace utility
