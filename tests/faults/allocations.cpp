// The allocation functions of the test program, which libraries use as well.

#include <cerrno>
#include <cstdlib>
#include <new>

#include "faults/faults.h"

extern "C" {
// A sanitizer's own functions where there is one, otherwise the C library's.
// NOLINTBEGIN(bugprone-reserved-identifier)
void* __interceptor_malloc(std::size_t) __attribute__((weak));
void* __interceptor_calloc(std::size_t, std::size_t) __attribute__((weak));
void* __interceptor_realloc(void*, std::size_t) __attribute__((weak));
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

thread_local faults::Run* t_run = nullptr;
thread_local faults::Plan t_plan;

bool refused(int kind) noexcept {
  if (t_run == nullptr || t_run->steps.of[faults::kFail][kind]++ != t_plan.nth) return false;
  if (kind != t_plan.kind || t_plan.mode != faults::kFail) return false;
  t_run->delivered = true;
  errno = ENOMEM;
  return true;
}

void* take(std::size_t size) noexcept {
  return __interceptor_malloc != nullptr ? __interceptor_malloc(size) : __libc_malloc(size);
}

}  // namespace

void faults::watch_allocations(Run* run, const Plan& plan) noexcept {
  t_plan = plan;
  t_run = run;
}

extern "C" {
void* malloc(std::size_t size) {
  return refused(faults::kMalloc) ? nullptr : take(size);
}
void* calloc(std::size_t count, std::size_t size) {
  if (refused(faults::kMalloc)) return nullptr;
  const auto real = __interceptor_calloc != nullptr ? __interceptor_calloc : __libc_calloc;
  return real(count, size);
}
void* realloc(void* memory, std::size_t size) {
  if (refused(faults::kMalloc)) return nullptr;
  const auto real = __interceptor_realloc != nullptr ? __interceptor_realloc : __libc_realloc;
  return real(memory, size);
}
}

void* operator new(std::size_t size) {
  void* const memory = refused(faults::kNew) ? nullptr : take(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void* operator new[](std::size_t size) {
  return operator new(size);
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return refused(faults::kNothrow) ? nullptr : take(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
  return operator new(size, tag);
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
