#include <utility/CCpuInfo.h>
#include <utility/CDiskInfo.h>
#include <utility/CMemInfo.h>
#include <utility/CUnixDisk.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "report/sections.h"

namespace report {
namespace {

using utility::CCpuInfo;
using utility::CDiskInfo;
using utility::CMemInfo;
using utility::CUnixDisk;

std::string percent(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", value);
  return text;
}

// The load of one CPU, from the samples of all.
std::string load_of(const CCpuInfo::CpuStatEnt& first, const CCpuInfo::CpuStatEnt& second) {
  CCpuInfo::CpuStat before;
  CCpuInfo::CpuStat after;
  before.count = after.count = 1;
  before.ents.push_back(first);
  after.ents.push_back(second);
  double usage = 0;
  return CCpuInfo::get_cpu_usage(before, after, usage) == 0 ? percent(usage) : "-";
}

int add_volume(const CUnixDisk::UnixDiskVg& disk, void* context) {
  static_cast<Table*>(context)->add({disk.name, disk.path, std::to_string(disk.lv_count)});
  return 0;
}

}  // namespace

bool memory(Format format, const std::string& /*argument*/) {
  CMemInfo::MemStat stat{};
  double usage = 0;
  if (CMemInfo::get_mem_stat(stat) != 0 || CMemInfo::get_mem_usage(usage) != 0) return false;
  Table table("memory", {{"total_kb", true}, {"free_kb", true}, {"used_percent", true}});
  table.add({std::to_string(stat.total), std::to_string(stat.free), percent(usage)});
  table.print(format);
  return true;
}

bool cpu(Format format, const std::string& /*argument*/) {
  constexpr auto kSample = std::chrono::milliseconds(500);
  CCpuInfo::CpuStat before;
  CCpuInfo::CpuStat after;
  if (CCpuInfo::get_cpu_stat(before) != 0) return false;
  std::this_thread::sleep_for(kSample);
  if (CCpuInfo::get_cpu_stat(after) != 0) return false;
  double usage = 0;
  if (CCpuInfo::get_cpu_usage(before, after, usage) != 0) return false;

  Table table("cpu", {{"cpu"}, {"load_percent", true}});
  table.add({"all", percent(usage)});
  for (std::size_t i = 0; i < after.ents.size(); ++i) {
    const auto& name = after.ents[i].name;
    table.add(
        {std::string(name, ::strnlen(name, sizeof name)), load_of(before.ents[i], after.ents[i])});
  }
  table.print(format);
  return true;
}

bool disks(Format format, const std::string& /*argument*/) {
  std::vector<CDiskInfo::DiskInfo> infos;
  if (CDiskInfo::get_disk_info(infos) != 0) return false;
  Table table("disks", {{"device"},
                        {"type"},
                        {"size_mb", true},
                        {"used_mb", true},
                        {"used_percent", true},
                        {"mount"}});
  for (const auto& info : infos) {
    if (info.dev.rfind("/dev/", 0) != 0) continue;  // the kernel's own file systems have no disk
    const auto megabytes = [&](auto blocks) {
      return static_cast<unsigned long>(blocks) * static_cast<unsigned long>(info.fs.f_bsize) >> 20;
    };
    const auto used = info.fs.f_blocks - info.fs.f_bfree;
    const auto usable = used + info.fs.f_bavail;
    table.add({info.dev, info.fstype, std::to_string(megabytes(info.fs.f_blocks)),
               std::to_string(megabytes(used)),
               usable == 0
                   ? "-"
                   : percent(100.0 * static_cast<double>(used) / static_cast<double>(usable)),
               info.mount});
  }
  table.print(format);
  return true;
}

bool volumes(Format format, const std::string& /*argument*/) {
  Table table("volumes", {{"disk"}, {"path"}, {"partitions", true}});
  const bool complete = CUnixDisk::get_vgs(add_volume, &table) == 0;
  table.print(format);
  return complete;
}

}  // namespace report
