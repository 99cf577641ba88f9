#pragma once

#include <iconv.h>

#include <string_view>

namespace utility::detail {

/// One open converter of the C library between two code sets.
class Iconv {
 public:
  Iconv(const char* to, const char* from) noexcept : handle_(::iconv_open(to, from)) {}
  ~Iconv() {
    if (*this) ::iconv_close(handle_);
  }
  Iconv(const Iconv&) = delete;
  Iconv& operator=(const Iconv&) = delete;

  /// False when there is no such converter.
  explicit operator bool() const noexcept {
    return handle_ != reinterpret_cast<iconv_t>(-1);  // NOLINT(performance-no-int-to-ptr): its API
  }

  /// Converts from the front of `in` to `out`, which has `room` bytes; all three move on. False,
  /// with errno set, when it stops before the end of `in`: E2BIG where there is no room for more.
  bool convert(std::string_view& in, char*& out, std::size_t& room) noexcept {
    char* from = const_cast<char*>(in.data());  // iconv only reads it
    std::size_t left = in.size();
    const std::size_t result = ::iconv(handle_, &from, &left, &out, &room);
    in.remove_prefix(in.size() - left);
    return result != static_cast<std::size_t>(-1);
  }

  /// Goes back to the initial state, writing what that takes.
  void finish(char*& out, std::size_t& room) noexcept {
    ::iconv(handle_, nullptr, nullptr, &out, &room);
  }

 private:
  iconv_t handle_;
};

}  // namespace utility::detail
