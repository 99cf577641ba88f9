#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace soak {

/// What the library needs at most beyond what is there already.
struct Promise {
  std::size_t kib;  ///< resident memory
  int descriptors;
};

/// Runs `work`, which returns what it has done, and reports what it took of this process. Ends the
/// program where a promise was broken or a descriptor is left over.
///
/// Reports are on standard error, as the library prints on standard output.
void watch(const std::string& name, Promise promise, const std::function<std::string()>& work);

}  // namespace soak
