#include <utility/CMemInfo.h>

#include <cstdio>

int main() {
  utility::CMemInfo::MemStat memory;
  if (utility::CMemInfo::get_mem_stat(memory) != 0) return 1;
  std::printf("%d of %d kB of memory can be had\n", memory.free, memory.total);
  return 0;
}
