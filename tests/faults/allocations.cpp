// The allocation functions of the driver, which the libraries use as well: they fail on demand.

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <new>

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

/// The number of allocations until one fails; 0 or less: none does.
int g_until_failure = 0;

// Not under the thread sanitizer, whose own start needs functions that it has not looked into.
#ifndef __SANITIZE_THREAD__
namespace {
bool refused() noexcept {
  if (g_until_failure <= 0 || --g_until_failure > 0) return false;
  errno = ENOMEM;
  return true;
}
}  // namespace

extern "C" {
void* malloc(std::size_t size) {
  if (refused()) return nullptr;
  return __interceptor_malloc != nullptr ? __interceptor_malloc(size) : __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
  if (refused()) return nullptr;
  const auto real = __interceptor_calloc != nullptr ? __interceptor_calloc : __libc_calloc;
  return real(count, size);
}
void* realloc(void* memory, std::size_t size) {
  if (refused()) return nullptr;
  const auto real = __interceptor_realloc != nullptr ? __interceptor_realloc : __libc_realloc;
  return real(memory, size);
}
}

// The other forms of the language's operators come down to these.
void* operator new(std::size_t size) {
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
#endif
