#include "mail/CSmtp_dialogue.h"

#include <algorithm>

#include "base/text.h"
#include "mail/CSmtp_code.h"
#include "mail/CSmtp_transport.h"
#include "utility/CSmtp.h"

namespace utility::detail {

int Dialogue::exchange(const std::string& text, int reply_mode) {
  const std::size_t length = std::min(text.size(), kRoom - 1);
  text.copy(buffer_.get(), length);
  int room = kRoom;
  return CSmtp::sendcmd(sock_, buffer_.get(), static_cast<int>(length), reply_mode, buffer_.get(),
                        room);
}

int Dialogue::expect(int sent, std::string_view code, int refusal) const noexcept {
  if (sent != kSuccess) return sent;
  return begins_with(buffer_.get(), code) ? kSuccess : refusal;
}

int Dialogue::read_greeting() {
  const int readable = CSmtp::IsReadable(sock_, 3);
  if (readable != kSuccess) return readable;
  return receive(sock_, buffer_.get(), kRoom) < 0 ? kNotReceived : kSuccess;
}

}  // namespace utility::detail
