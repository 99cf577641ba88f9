#pragma once

#include <cstddef>
#include <string_view>

// What may wait for the server. Every wait has one deadline, however often signals interrupt it.
namespace utility::detail {

/// Sends all of `bytes`; false where the server takes nothing for 15 s, or is gone.
bool send_all(int sock, std::string_view bytes) noexcept;

/// Receives once, within 5 minutes; a negative count means that it failed.
long receive(int sock, char* buffer, std::size_t size) noexcept;

}  // namespace utility::detail
