// What the kernel tells of the host: one text stands for the memory figures, the CPU counters, the
// partition list, the counters of the interfaces and the mount table, and each reader's results are
// held against a plain model of its rules.
#include <sys/stat.h>
#include <sys/vfs.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "check.h"
#include "lines.h"
#include "resource/os_version.h"
#include "scratch.h"
#include "utility/CCpuInfo.h"
#include "utility/CDiskInfo.h"
#include "utility/CMemInfo.h"
#include "utility/CNetInfo.h"
#include "utility/CUnixDisk.h"

using namespace utility;

namespace {

using Texts = std::vector<std::string>;

bool begins_with(const std::string& text, const char* prefix) {
  return text.compare(0, std::strlen(prefix), prefix) == 0;
}

// A number as CStr reads it: 0 where it does not fit.
template <class Number>
Number number_of(const std::string& text, Number (*convert)(const char*, char**, int)) {
  errno = 0;
  const Number value = convert(text.c_str(), nullptr, 10);
  return errno == ERANGE ? 0 : value;
}

void check_memory(const std::string& text) {
  unsigned total = 0;
  unsigned free = 0;
  int found = 0;
  for (std::size_t at = 0; at < text.size() && found < 4;) {
    const std::string line = text.substr(at, text.find('\n', at) - at);
    at += line.size() + 1;
    const Texts words = words_of(line);
    if (words.empty()) continue;
    const auto number =
        static_cast<unsigned>(words.size() > 1 ? std::strtol(words[1].c_str(), nullptr, 10) : 0);
    if (begins_with(words[0], "MemTotal")) {
      total = number;
    } else if (begins_with(words[0], "MemFree") || begins_with(words[0], "Cached") ||
               begins_with(words[0], "Buffers")) {
      free += number;
    } else {
      continue;
    }
    ++found;
  }

  CMemInfo::MemStat stat;
  const int code = CMemInfo::get_mem_stat(stat);
  FUZZ_CHECK(code == (found == 4 ? 0 : 2));
  FUZZ_CHECK(stat.total == static_cast<int>(total) && stat.free == static_cast<int>(free));
  double usage = -7;
  FUZZ_CHECK(CMemInfo::get_mem_usage(usage) == code && std::isfinite(usage));
  FUZZ_CHECK(code == 0 || usage == -7);
  if (code == 0 && 0 <= stat.free && stat.free <= stat.total) {
    FUZZ_CHECK(usage >= 0 && usage <= 100);
  }
}

// A load is what it says where no counter goes backwards, and never more than everything.
void check_load(CCpuInfo::CpuStat& later) {
  CCpuInfo::CpuStat before;
  before.count = later.count;
  double usage = -7;
  const int code = CCpuInfo::get_cpu_usage(before, later, usage);
  FUZZ_CHECK(code == 0 || (code == 4 && usage == -7));
  constexpr std::int64_t kMost = std::int64_t{1} << 40;
  bool plausible = code == 0;
  std::int64_t busy = 0;
  std::int64_t total = 0;
  for (const auto& cpu : later.ents) {
    for (const std::int64_t ticks :
         {cpu.user, cpu.nice, cpu.system, cpu.idle, cpu.iowait, cpu.irq, cpu.softirq}) {
      plausible = plausible && ticks >= 0 && ticks < kMost;
      if (plausible) total += ticks;
    }
    if (plausible) busy += cpu.user + cpu.nice + cpu.system;
  }
  if (!plausible) return;
  FUZZ_CHECK(usage >= 0 && usage <= 100);
  FUZZ_CHECK(std::fabs(usage - 100.0 * static_cast<double>(busy) / static_cast<double>(total)) <
             1e-9);
}

void check_cpus(const std::string& text) {
  CCpuInfo::CpuStat stat;
  const int code = CCpuInfo::get_cpu_stat(stat);
  std::size_t cpus = 0;
  for (const std::string& line : lines_of(text, 1023)) {
    const Texts words = words_of(line);
    if (words.size() < 8 || !begins_with(words[0], "cpu") || words[0] == "cpu") continue;
    FUZZ_CHECK(cpus < stat.ents.size());
    const CCpuInfo::CpuStatEnt& cpu = stat.ents[cpus++];
    FUZZ_CHECK(std::string(cpu.name, ::strnlen(cpu.name, 16)) == words[0].substr(0, 16));
    const std::int64_t counters[] = {cpu.user,   cpu.nice, cpu.system, cpu.idle,
                                     cpu.iowait, cpu.irq,  cpu.softirq};
    std::size_t word = 0;
    for (const std::int64_t counter : counters) {
      FUZZ_CHECK(counter == number_of(words[++word], std::strtoll));
    }
  }
  FUZZ_CHECK(stat.ents.size() == cpus && stat.count == static_cast<std::int32_t>(cpus));
  FUZZ_CHECK(code == (cpus == 0 ? 5 : 0));
  check_load(stat);
}

// Two numbers, one without sign, a name: white space may stand before each, the name ends at a
// blank or the line feed.
std::string plain_partition(const std::string& line) {
  const char* at = line.c_str();
  for (int i = 0; i < 3; ++i) {
    char* end = nullptr;
    std::strtoull(at, &end, 10);
    if (end == at) return {};
    at = end;
  }
  const std::string rest = at + std::strspn(at, " \t\n\v\f\r");
  return rest.substr(0, rest.find_first_of("\n "));
}

int stop_at_second(const CUnixDisk::UnixDiskLv& lv, void* ctx) {
  static_cast<Texts*>(ctx)->push_back(lv.name);
  return static_cast<Texts*>(ctx)->size() == 2 ? 1 : 0;
}

int note_group(const CUnixDisk::UnixDiskVg& vg, void* ctx) {
  const Texts& names = *static_cast<const Texts*>(ctx);
  const auto parts = std::count_if(names.begin(), names.end(), [&vg](const std::string& name) {
    return name.size() > 3 && begins_with(name, vg.name.c_str());
  });
  FUZZ_CHECK(vg.name.size() == 3 && vg.lv_count == parts && vg.path == "/dev/" + vg.name);
  return 0;
}

void check_partitions(const std::string& text) {
  Texts expected;
  Texts of_sda;
  for (const std::string& line : lines_of(text, 127)) {
    const std::string name = plain_partition(line);
    if (!begins_with(name, "sd") && !begins_with(name, "hd")) continue;
    expected.push_back(name);
    if (begins_with(name, "sda") && name.size() > 3) of_sda.push_back(name);
  }
  Texts names;
  FUZZ_CHECK(CUnixDisk::get_disk_info_from_proc(names) == 0 && names == expected);
  FUZZ_CHECK(CUnixDisk::get_vgs(note_group, &names) == 0);

  Texts visited;
  const int code = CUnixDisk::get_lvs_by_vg("sda", stop_at_second, &visited);
  FUZZ_CHECK(code == (of_sda.size() > 1 ? 2 : 0));
  of_sda.resize(std::min<std::size_t>(of_sda.size(), 2));
  FUZZ_CHECK(visited == of_sda);
}

// The counters of the first line that has, at its colon, two parts: the name and sixteen columns.
bool plain_counters(const Texts& lines, const std::string& name, CNetInfo::NetStat& stat) {
  for (const std::string& line : lines) {
    Texts parts;
    std::istringstream stream(line);
    for (std::string part; std::getline(stream, part, ':');) {
      if (!part.empty()) parts.push_back(part);
    }
    if (parts.size() != 2) continue;
    parts[0].erase(0, parts[0].find_first_not_of(" \t\r\n"));
    parts[0].erase(parts[0].find_last_not_of(" \t\r\n") + 1);
    const Texts columns = words_of(parts[1]);
    if (parts[0] != name || columns.size() != 16) continue;
    const auto number = [&columns](std::size_t i) { return number_of(columns[i], std::strtol); };
    stat.rx_bytes = number_of(columns[0], std::strtoull);
    stat.tx_bytes = number_of(columns[8], std::strtoull);
    stat.rx_packets = number(1);
    stat.rx_errors = number(2);
    stat.tx_packets = number(9);
    stat.tx_errors = number(10);
    return true;
  }
  return false;
}

void check_interfaces(const std::string& text) {
  const Texts lines = lines_of(text, 1023);
  Texts names{"lo", "eth0"};
  const std::size_t colon = text.find(':');
  if (colon != std::string::npos) names.push_back(text.substr(0, colon));
  for (const std::string& name : names) {
    if (name.empty()) continue;
    CNetInfo::NetStat expected{1, 2, 3, 4, 5, 6};
    CNetInfo::NetStat stat = expected;
    const bool listed = plain_counters(lines, name, expected);
    FUZZ_CHECK(CNetInfo::get_net_stat(name, stat) == (listed ? 0 : 7));
    FUZZ_CHECK(stat.rx_bytes == expected.rx_bytes && stat.tx_bytes == expected.tx_bytes);
    FUZZ_CHECK(stat.rx_packets == expected.rx_packets && stat.tx_packets == expected.tx_packets);
    FUZZ_CHECK(stat.rx_errors == expected.rx_errors && stat.tx_errors == expected.tx_errors);
  }
}

void check_mounts(const std::string& text) {
  std::vector<CDiskInfo::DiskInfo> infos;
  FUZZ_CHECK(CDiskInfo::get_disk_info(infos) == 0);
  std::size_t at = 0;
  for (const std::string& line : lines_of(text, 4095)) {
    const Texts words = words_of(line);
    struct statfs fs {};
    if (words.size() < 3 || begins_with(words[1], "/proc/")) continue;
    if (::statfs(words[1].c_str(), &fs) != 0) continue;
    FUZZ_CHECK(at < infos.size());
    const CDiskInfo::DiskInfo& info = infos[at++];
    FUZZ_CHECK(info.dev == words[0] && info.mount == words[1] && info.fstype == words[2]);
    FUZZ_CHECK(info.fs.f_type == fs.f_type && info.fs.f_blocks == fs.f_blocks);
  }
  FUZZ_CHECK(at == infos.size());
}

void check_version(const std::string& text) {
  Texts words = words_of(text.substr(0, text.find('\n')));
  words.resize(3);
  const auto digit = [&words](std::size_t at) {
    return at < words[1].size() ? (words[1][at] - '0') & 31 : 0;
  };
  const bool is_linux = words[0].find("Linux") != std::string::npos;
  const bool is_x64 = words[2].find("x64") != std::string::npos;
  FUZZ_CHECK(detail::pack_os_version(words[0], words[1], words[2]) ==
             (is_linux ? 0x2000000 : 0) + digit(0) * 0x100000 + digit(2) * 0x8000 +
                 (is_x64 ? 1 : 0));
}

// One file in the place of all that is read.
scratch::File* make_sources() {
  const std::string net = scratch::dir() + "/net";
  FUZZ_CHECK(::mkdir(net.c_str(), 0755) == 0);
  auto* file = new scratch::File("net/dev", "/etc/mtab");
  for (const char* target : {"/proc/meminfo", "/proc/stat", "/proc/partitions"}) {
    scratch::put_over(file->path(), target);
  }
  scratch::put_over(net, "/proc/net");  // whole: the kernel drops what covers a file in it
  std::cout.rdbuf(nullptr);             // where get_lvs_by_vg prints what it visits
  return file;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static scratch::File* const source = make_sources();
  const std::string text = text_of(data, size, 8192);
  source->write(text);
  check_memory(text);
  check_cpus(text);
  check_partitions(text);
  check_interfaces(text);
  check_mounts(text);
  check_version(text);
  return 0;
}
