#include "support/alloc_fault.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

constexpr long kIdle = -2;
constexpr long kDelivered = -1;
std::atomic<long> g_left{kIdle};

void* take(std::size_t size) noexcept {
  long left = g_left.load();
  while (left >= 0 && !g_left.compare_exchange_weak(left, left - 1)) {
  }
  return left == 0 ? nullptr : std::malloc(size == 0 ? 1 : size);
}

}  // namespace

AllocFault::AllocFault(std::size_t allowed) noexcept {
  g_left = static_cast<long>(allowed);
}
AllocFault::~AllocFault() {
  g_left = kIdle;
}
bool AllocFault::delivered() const noexcept {
  return g_left == kDelivered;
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return take(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return take(size);
}
void* operator new(std::size_t size) {
  void* memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void* operator new[](std::size_t size) {
  return operator new(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}
