#include "mail/dialogue.h"

#include <algorithm>

#include "mail/receive.h"
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
  if (sent != 0) return sent;
  return std::string_view(buffer_.get()).substr(0, code.size()) == code ? 0 : refusal;
}

int Dialogue::read_greeting() {
  const int readable = CSmtp::IsReadable(sock_, 3);
  if (readable != 0) return readable;
  return receive(sock_, buffer_.get(), kRoom, 0) < 0 ? 8 : 0;
}

}  // namespace utility::detail
