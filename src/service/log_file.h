#pragma once

#include <cstddef>
#include <string>

#include "base/line_reader.h"

// What reading and editing the log daemon's configuration share.
namespace utility::detail {

constexpr std::size_t kLogLineCapacity = 1024;

/// The configuration file of the daemon that is chosen now.
std::string log_file_path();

/// The line in hand without its comment and the blanks around it; empty when there is no rule in
/// it.
std::string rule_text(const LineReader& lines);

}  // namespace utility::detail
