#include "watch.h"

#include <dirent.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <thread>

#include "support/harness.h"

namespace soak {
namespace {

// The most memory that was resident since the count began, in KiB.
std::size_t peak_memory() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word && word != "VmHWM:";) continue;
  std::size_t kib = 0;
  status >> kib;
  return kib;
}

}  // namespace

void watch(const std::string& name, Promise promise, const std::function<std::string()>& work) {
  DIR* listing = ::opendir("/proc/self/fd");
  const auto descriptors = [listing] {
    int count = -2;  // "." and ".."
    for (::rewinddir(listing); ::readdir(listing) != nullptr; ++count) continue;
    return count;
  };
  const int held = descriptors();
  int most = held;
  ::malloc_trim(0);
  std::ofstream("/proc/self/clear_refs") << 5;  // begins the count
  const std::size_t memory = peak_memory();

  std::atomic<bool> ended{false};
  std::thread sampler([&] {
    for (; !ended; ::usleep(200)) most = std::max(most, descriptors());
  });
  const auto begin = std::chrono::steady_clock::now();
  const std::string result = work();
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
  ended = true;
  sampler.join();

  const std::size_t peak = peak_memory();
  const int left = descriptors();
  ::closedir(listing);
  std::fprintf(stderr,
               "%s: %s in %.2f s\n    memory %zu KiB, at most %zu (may grow by %zu); "
               "descriptors %d, at most %d (may grow by %d), at the end %d\n",
               name.c_str(), result.c_str(), seconds.count(), memory, peak, promise.kib, held, most,
               promise.descriptors, left);
  bench::require(peak <= memory + promise.kib, "more memory than promised");
  bench::require(most <= held + promise.descriptors, "more descriptors than promised");
  bench::require(left == held, "a descriptor is left over");
}

}  // namespace soak
