#pragma once

namespace utility::detail {

/// Hands `record` to a walk's callback; true when it asks to stop. A null callback never does.
template <class Record>
bool stops(int (*callback)(const Record&, void*), const Record& record, void* context) {
  return callback != nullptr && callback(record, context) != 0;
}

}  // namespace utility::detail
