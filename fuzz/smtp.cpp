// SMTP sessions: the server may say anything. The program stands in for the socket calls, so that
// no time passes. Whatever is said, the client sends whole commands, reports a code of its table,
// and reports success only for a mail of which every byte was sent.
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <vector>

#include "fuzz.h"
#include "utility/CSmtp.h"

using utility::CSmtp;

namespace {

constexpr int kSocket = 1000;

struct Server {
  std::vector<std::string> replies;  // in the order in which they are read
  std::size_t next = 0;
  std::size_t takes = 0;  // bytes that it takes before it is gone
  std::string sent;
};
Server server;

}  // namespace

extern "C" int poll(pollfd* entries, nfds_t, int milliseconds) {
  check(milliseconds >= 0, "no wait is without limit");
  entries->revents = entries->events;
  return entries->events == POLLOUT || server.next < server.replies.size() ? 1 : 0;
}

extern "C" ssize_t send(int, const void* bytes, std::size_t size, int) {
  const std::size_t count = std::min(size, server.takes - server.sent.size());
  server.sent.append(static_cast<const char*>(bytes), count);
  errno = EPIPE;
  return count > 0 ? static_cast<ssize_t>(count) : -1;
}

extern "C" ssize_t recv(int, void* buffer, std::size_t size, int) {
  if (server.next == server.replies.size()) return 0;
  std::string& reply = server.replies[server.next];
  const std::size_t count = reply.copy(static_cast<char*>(buffer), size);
  reply.erase(0, count);
  if (reply.empty()) ++server.next;
  return static_cast<ssize_t>(count);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  server = Server();
  const std::size_t limit = input.byte();
  server.takes = limit == 0 ? std::size_t{1} << 20 : limit * 8;
  CSmtp::send_mail_t mail{};
  mail.server = "here";
  mail.user = input.text('\n');
  mail.password = input.text('\n');
  mail.from = input.text('\n');
  mail.to = {input.text('\n'), "b@x"};
  mail.need_auth = 1;
  mail.body = "body\r\n";
  mail.body_len = 6;
  while (!input.empty()) {
    server.replies.push_back(input.text('\x1e'));
    if (server.replies.back().empty()) server.replies.pop_back();
  }
  const std::vector<std::string> replies = server.replies;

  const int code = CSmtp::putmail(kSocket, mail);
  const bool listed = code == 0 || code == 1 || code == 7 || code == 8 || code == 9 || code == 14 ||
                      code == 15 || code == 17 || code == 18;
  check(listed, "the code is one of its table");
  if (code == 0) {
    const std::string text = "Subject: \r\n\r\nbody\r\n";
    check(server.sent.find(text + '\0' + "\r\n.\r\nQUIT\r\n") != std::string::npos,
          "success means that all was sent");
  }
  if (code != 7 && !server.sent.empty()) {
    check(server.sent.back() == '\n' || server.sent.size() >= 4095, "commands are whole");
  }

  CSmtp::test_mail_t account{"here", mail.user, mail.password, 1, 25, mail.from};
  server.replies = replies;
  server.next = 0;
  server.sent.clear();
  char flags = 0;
  const int tested = CSmtp::test_valid(kSocket, account, flags);
  check((flags & ~6) == 0 && (tested != 0 || flags == 6), "flags tell what was reached");
  return 0;
}
