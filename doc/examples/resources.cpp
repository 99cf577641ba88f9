// Prints the use of memory, CPUs and the root file system.

#include <unistd.h>
#include <utility/CCpuInfo.h>
#include <utility/CDiskInfo.h>
#include <utility/CMemInfo.h>

#include <cstdio>
#include <vector>

int main() {
  using namespace utility;

  double percent = 0;
  if (CMemInfo::get_mem_usage(percent) != 0) return 1;
  std::printf("memory: %.0f %%\n", percent);

  CCpuInfo::CpuStat before, after;
  if (CCpuInfo::get_cpu_stat(before) != 0) return 1;
  ::usleep(200'000);
  if (CCpuInfo::get_cpu_stat(after) != 0) return 1;
  if (CCpuInfo::get_cpu_usage(before, after, percent) != 0) return 1;
  std::printf("cpu: %.0f %%\n", percent);

  std::vector<CDiskInfo::DiskInfo> disks;
  if (CDiskInfo::get_disk_info(disks) != 0) std::puts("no mount table, /etc/mtab, here");
  for (const auto& disk : disks) {
    if (disk.mount != "/") continue;
    const auto blocks = static_cast<double>(disk.fs.f_blocks);
    const auto free = static_cast<double>(disk.fs.f_bfree);
    std::printf("%s: %.0f %%\n", disk.mount.c_str(), 100 * (blocks - free) / blocks);
  }
  return 0;
}
