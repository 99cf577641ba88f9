#include "mail/CSmtp_dialogue.h"

#include <sys/socket.h>

#include "base/io.h"
#include "base/text.h"
#include "utility/CSmtp.h"

namespace utility::detail {

int Dialogue::read_greeting() {
  const int readable = CSmtp::IsReadable(sock_, 3);
  if (readable != kSuccess) return readable;
  const ssize_t count = retry([this] { return ::recv(sock_, buffer_.get(), kRoom, MSG_DONTWAIT); });
  return count < 0 ? kNotReceived : kSuccess;
}

int Dialogue::say(const std::string& command, const Wanted& wanted, int reply_mode) {
  const auto length = static_cast<int>(command.copy(buffer_.get(), kRoom - 1));
  int room = kRoom;
  const int result = CSmtp::sendcmd(sock_, buffer_.get(), length, reply_mode, reply(), room);
  if (result != kSuccess) return result;
  return begins_with(reply(), wanted.code) ? kSuccess : wanted.refusal;
}

}  // namespace utility::detail
