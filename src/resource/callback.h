#pragma once

namespace utility::detail {

/// Hands `record` to an enumeration's callback; true when that asks to stop. Null is told nothing.
template <typename Record>
bool stops(int (*callback)(const Record&, void*), const Record& record, void* context) {
  return callback != nullptr && callback(record, context) != 0;
}

}  // namespace utility::detail
