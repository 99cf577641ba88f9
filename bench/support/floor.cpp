#include "support/floor.h"

#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <numeric>

namespace bench::floor {
namespace {

alignas(dirent64) char block[40960];

ssize_t touch_block(int fd, std::size_t limit) {
  const ssize_t count = ::read(fd, block, limit);
  benchmark::DoNotOptimize(std::accumulate(block, block + std::max<ssize_t>(count, 0), 0));
  return count;
}

template <class Visit>
void each_entry(int dir, const char* path, Visit visit) {
  const int fd = ::openat(dir, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  alignas(dirent64) char entries[4096];
  for (ssize_t filled = 0; (filled = ::getdents64(fd, entries, sizeof entries)) > 0;) {
    for (const char* at = entries; at < entries + filled;) {
      const auto* entry = reinterpret_cast<const dirent64*>(at);
      if (entry->d_name[0] != '.') visit(fd, entry->d_name);
      at += entry->d_reclen;
    }
  }
  ::close(fd);
}

}  // namespace

bool touch_file(int dir, const char* path, std::size_t limit) {
  const int fd = ::openat(dir, path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  touch_block(fd, limit);
  ::close(fd);
  return true;
}

void touch_table(const char* path) {
  const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  while (touch_block(fd, 4096) > 0) continue;
  ::close(fd);
}

int touch_descriptors(int dir, const char* path) {
  int sockets = 0;
  each_entry(dir, path, [&sockets](int fd, const char* name) {
    struct stat status {};
    sockets += ::fstatat(fd, name, &status, 0) == 0 && S_ISSOCK(status.st_mode) ? 1 : 0;
  });
  return sockets;
}

void each_process(void (*visit)(int proc, const char* name)) {
  each_entry(AT_FDCWD, "/proc", [visit](int proc, const char* name) {
    if (name[0] >= '1' && name[0] <= '9') visit(proc, name);
  });
}

}  // namespace bench::floor
