#pragma once

#include <cstddef>

/// Makes non-throwing allocations of this process fail on demand.
///
/// While an object lives, the non-throwing `new` that follows `allowed` successful ones returns
/// null, once. Only `new (std::nothrow)` is counted, in the library as well as in the test.
class AllocFault {
 public:
  explicit AllocFault(std::size_t allowed) noexcept;
  ~AllocFault();
  AllocFault(const AllocFault&) = delete;
  AllocFault& operator=(const AllocFault&) = delete;

  /// True once the failure was delivered.
  bool delivered() const noexcept;
};
