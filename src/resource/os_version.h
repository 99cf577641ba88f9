#pragma once

#include <string_view>

namespace utility::detail {

/// The number of `COS_info::get_os_vesion` for the system, release and machine names of uname(2).
int pack_os_version(std::string_view system, std::string_view release, std::string_view machine);

}  // namespace utility::detail
