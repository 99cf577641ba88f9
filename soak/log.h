#pragma once

namespace soak {

/// A million lines from sixteen threads of two processes, while the log starts afresh over and
/// over.
void write_logs();

}  // namespace soak
