#pragma once

#include <cstdlib>
#include <string>

namespace utility::detail {

/// Runs "service NAME VERB" and waits. True only for a plain exit with 0: unlike exec_cmd, a
/// command that a signal ended has failed here.
inline bool run_service(const std::string& name, const char* verb) {
  return std::system(("service " + name + " " + verb).c_str()) == 0;
}

}  // namespace utility::detail
