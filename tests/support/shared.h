#pragma once

#include <sys/mman.h>

#include <new>
#include <stdexcept>

/// A value that the processes of a test share: what a sandbox writes, the test finds.
template <typename T>
class Shared {
 public:
  Shared()
      : place_(
            ::mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
    if (place_ == MAP_FAILED) throw std::runtime_error("no shared memory");
    value_ = new (place_) T{};
  }
  ~Shared() { ::munmap(place_, sizeof(T)); }
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;

  T& operator*() const { return *value_; }

 private:
  void* place_;
  T* value_ = nullptr;
};
