#pragma once

#include <sys/socket.h>

#include <cerrno>
#include <cstddef>

namespace utility::detail {

/// recv(2) that signals do not interrupt.
inline ssize_t receive(int sock, char* buffer, std::size_t size, int flags) noexcept {
  ssize_t count = 0;
  do {
    count = ::recv(sock, buffer, size, flags);
  } while (count < 0 && errno == EINTR);
  return count;
}

}  // namespace utility::detail
