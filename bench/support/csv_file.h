#pragma once

#include <string>

namespace bench {

/// Writes a scratch file of records of 5 fields and 60 bytes, or `width` times as many, and returns
/// its path. The first field is the record's number.
std::string csv_file(int records, int width);

}  // namespace bench
