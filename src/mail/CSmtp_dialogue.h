#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "base/handles.h"

namespace utility::detail {

/// The commands and replies of one SMTP connection, in one buffer.
class Dialogue {
 public:
  /// A command has at most `kRoom` - 1 bytes, a reply at most `kRoom`.
  static constexpr std::size_t kRoom = 4096;

  explicit Dialogue(int sock) noexcept : sock_(sock), buffer_(make_buffer(kRoom + 1)) {}

  /// False without memory for the buffer; nothing else may be called then.
  bool ready() const noexcept { return buffer_ != nullptr; }

  /// Sends `text`, cut to what fits, and reads once. Returns the code of CSmtp::sendcmd.
  int command(const std::string& text) { return exchange(text, 1); }
  /// The same, reading until the server falls silent.
  int command_gathering(const std::string& text) { return exchange(text, 2); }

  /// `sent` where that is a failure, 0 when the reply in hand begins with `code`, else `refusal`.
  int expect(int sent, std::string_view code, int refusal) const noexcept;

  /// The reply in hand, NUL-terminated.
  char* reply() noexcept { return buffer_.get(); }

  /// Waits up to 3 s for the server's greeting and reads it: 0, 8, 17 or 18.
  int read_greeting();

 private:
  int exchange(const std::string& text, int reply_mode);

  int sock_;
  Buffer buffer_;
};

}  // namespace utility::detail
