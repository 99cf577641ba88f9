#pragma once

#include "base/io.h"

namespace utility::detail {

/// The result codes of CSmtp.
enum SmtpCode : int {
  kSuccess = 0,
  kBadArgument = 1,
  kNoSocket = 2,
  kBadSocket = 3,
  kNotResolved = 4,
  kNotConnected = 5,
  kNoMemory = 6,
  kNotSent = 7,
  kNotReceived = 8,
  kRefused = 9,
  kConnectTimedOut = 11,
  kNoAlarmHandler = 13,
  kNotAuthenticated = 14,
  kNotEncoded = 15,
  kWaitFailed = 17,
  kNothingReadable = 18,
};

/// Sends all of `bytes`; false where the server takes nothing for 15 s, signals or not, or is gone.
bool send_all(int sock, std::string_view bytes) noexcept;

/// What a command takes of `text`, as "%s" does.
inline std::string before_nul(const std::string& text) { return text.substr(0, text.find('\0')); }

/// What a reply must begin with, and the result where it does not.
struct Wanted {
  std::string_view code;
  SmtpCode refusal;
};
constexpr Wanted kAnything{"", kSuccess};
constexpr Wanted kReply250{"250", kRefused};
constexpr Wanted kReply235{"235", kNotAuthenticated};

/// The commands and replies of one SMTP connection, in one buffer.
class Dialogue {
 public:
  /// A command has at most `kRoom` - 1 bytes, a reply at most `kRoom`.
  static constexpr std::size_t kRoom = 4096;

  explicit Dialogue(int sock) noexcept : sock_(sock), buffer_(make_buffer(kRoom + 1)) {}

  /// False without memory for the buffer; nothing else may be called then.
  bool ready() const noexcept { return buffer_ != nullptr; }

  /// Waits up to 3 s for the server's greeting and reads it: 0, 8, 17 or 18.
  int read_greeting();

  /// Sends `command`, cut to what fits, and reads the reply as `reply_mode` of CSmtp::sendcmd says.
  /// Returns the code of that, or the refusal of `wanted`.
  int say(const std::string& command, const Wanted& wanted = kAnything, int reply_mode = 1);

  /// The reply in hand, NUL-terminated.
  char* reply() noexcept { return buffer_.get(); }

 private:
  int sock_;
  Buffer buffer_;
};

}  // namespace utility::detail
