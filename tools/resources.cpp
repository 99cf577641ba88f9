#include <utility/CCpuInfo.h>
#include <utility/CDiskInfo.h>
#include <utility/CMemInfo.h>
#include <utility/CUnixDisk.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "sections.h"

namespace report {
namespace {

using utility::CCpuInfo;
using utility::CDiskInfo;
using utility::CMemInfo;
using utility::CUnixDisk;

bool fill_memory(const Filters& /*filters*/, Table& table) {
  CMemInfo::MemStat stat;
  double usage = 0;
  if (CMemInfo::get_mem_stat(stat) != 0 || CMemInfo::get_mem_usage(usage) != 0) return false;
  // The figures of a host with 2 TiB and more are there, as negative ones.
  const auto total = static_cast<std::uint32_t>(stat.total);
  const auto available = static_cast<std::uint32_t>(stat.free);
  const auto bytes = [](std::uint64_t kilobytes) { return std::to_string(kilobytes * 1024); };
  table.add({bytes(total), bytes(available), bytes(total - available), percent(usage)});
  return true;
}

// The load of one CPU, from the samples of all.
std::string load_of(const CCpuInfo::CpuStatEnt& first, const CCpuInfo::CpuStatEnt& second) {
  CCpuInfo::CpuStat before;
  CCpuInfo::CpuStat after;
  before.count = after.count = 1;
  before.ents.push_back(first);
  after.ents.push_back(second);
  double usage = 0;
  return CCpuInfo::get_cpu_usage(before, after, usage) == 0 ? percent(usage) : "";
}

bool fill_cpu(const Filters& /*filters*/, Table& table) {
  constexpr auto kSample = std::chrono::milliseconds(500);
  CCpuInfo::CpuStat before;
  CCpuInfo::CpuStat after;
  if (CCpuInfo::get_cpu_stat(before) != 0) return false;
  std::this_thread::sleep_for(kSample);
  if (CCpuInfo::get_cpu_stat(after) != 0) return false;
  double usage = 0;
  // A CPU that came or went meanwhile leaves nothing to compare.
  if (CCpuInfo::get_cpu_usage(before, after, usage) != 0) return false;
  table.add({"all", percent(usage)});
  for (std::size_t i = 0; i < after.ents.size(); ++i) {
    const auto& name = after.ents[i].name;
    table.add(
        {std::string(name, ::strnlen(name, sizeof name)), load_of(before.ents[i], after.ents[i])});
  }
  return true;
}

// The mount table writes blanks and the like as three octal digits, "\040". (Mount points that hold
// one are left out by the library.)
std::string unescaped(const std::string& text) {
  const auto is_octal = [&text](std::size_t i) { return text[i] >= '0' && text[i] <= '7'; };
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size() && is_octal(i + 1) && is_octal(i + 2) &&
        is_octal(i + 3)) {
      result += static_cast<char>(std::stoi(text.substr(i + 1, 3), nullptr, 8));
      i += 3;
    } else {
      result += text[i];
    }
  }
  return result;
}

bool fill_disks(const Filters& /*filters*/, Table& table) {
  std::vector<CDiskInfo::DiskInfo> infos;
  const bool complete = CDiskInfo::get_disk_info(infos) == 0;
  for (const auto& info : infos) {
    if (info.fs.f_blocks == 0) continue;  // the kernel's own file systems, such as /proc
    const auto bytes = [&](std::uint64_t blocks) {
      return std::to_string(blocks * static_cast<std::uint64_t>(info.fs.f_bsize));
    };
    const auto used = info.fs.f_blocks - info.fs.f_bfree;
    const auto usable = used + info.fs.f_bavail;
    table.add({unescaped(info.dev), info.fstype, bytes(info.fs.f_blocks), bytes(used),
               bytes(info.fs.f_bavail),
               usable == 0
                   ? ""
                   : percent(100.0 * static_cast<double>(used) / static_cast<double>(usable)),
               info.mount});
  }
  return complete;
}

int collect_disk(const CUnixDisk::UnixDiskVg& disk, void* disks) {
  static_cast<std::vector<CUnixDisk::UnixDiskVg>*>(disks)->push_back(disk);
  return 0;
}

bool fill_volumes(const Filters& /*filters*/, Table& table) {
  std::vector<CUnixDisk::UnixDiskVg> disks;
  std::vector<std::string> names;
  const bool complete = CUnixDisk::get_vgs(collect_disk, &disks) == 0 &&
                        CUnixDisk::get_disk_info_from_proc(names) == 0;
  int row = 0;
  for (const auto& disk : disks) {
    const int parent = ++row;
    table.add({disk.name, "disk", std::to_string(disk.lv_count), disk.path}, parent);
    for (const std::string& name : names) {
      if (name.size() == disk.name.size() || name.compare(0, disk.name.size(), disk.name) != 0) {
        continue;
      }
      table.add({name, "part", "", "/dev/" + name}, ++row, parent);
    }
  }
  return complete;
}

}  // namespace

const Section kMemory = {
    "memory",
    "memory of the host",
    {{"TOTAL", Kind::kBytes, "all memory"},
     {"AVAILABLE", Kind::kBytes, "free memory, page cache and buffers: what can be had"},
     {"USED", Kind::kBytes, "the rest"},
     {"USE_PCT", Kind::kNumber, "USED of TOTAL, in percent"}},
    fill_memory};

const Section kCpu = {"cpu",
                      "load of every CPU, over half a second",
                      {{"CPU", Kind::kText, "cpu0 and so on; all"},
                       {"LOAD_PCT", Kind::kNumber, "time busy, in percent"}},
                      fill_cpu};

const Section kDisks = {"disks",
                        "mounted file systems that have a size, with their use",
                        {{"DEVICE", Kind::kLong, "device, or what stands for one"},
                         {"TYPE", Kind::kText, "type of file system"},
                         {"SIZE", Kind::kBytes, "size"},
                         {"USED", Kind::kBytes, "space in use"},
                         {"AVAILABLE", Kind::kBytes, "space that users other than root can have"},
                         {"USE_PCT", Kind::kNumber, "USED of USED and AVAILABLE, in percent"},
                         {"MOUNT", Kind::kLong, "where it is mounted"}},
                        fill_disks,
                        0,
                        "/etc/mtab"};

const Section kVolumes = {"volumes",
                          "disks named sd and hd, with or without partitions",
                          {{"NAME", Kind::kText, "name in the kernel"},
                           {"TYPE", Kind::kText, "disk or part"},
                           {"PARTITIONS", Kind::kNumber, "a disk's number of partitions"},
                           {"PATH", Kind::kText, "device file"}},
                          fill_volumes,
                          0,
                          nullptr,
                          "NAME"};

}  // namespace report
