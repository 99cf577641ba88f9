// SMTP sessions: the server may say anything. The program stands in for the socket calls, so that
// no time passes. Whatever is said, the client reports a code of its table, and success only for a
// mail of which every byte was sent.
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

#include "fuzz.h"

using utility::CSmtp;

namespace {

struct Server {
  std::vector<std::string> replies;  // in the order in which they are read
  std::size_t takes = 0;             // bytes that it takes before it is gone
  std::string sent;
};
Server server;

}  // namespace

extern "C" int poll(pollfd* entries, nfds_t, int milliseconds) {
  check(milliseconds >= 0, "no wait is without limit");
  entries->revents = entries->events;
  return entries->events == POLLOUT || !server.replies.empty() ? 1 : 0;
}

extern "C" ssize_t send(int, const void* bytes, std::size_t size, int) {
  const std::size_t count = std::min({size, server.takes - server.sent.size(), std::size_t{50}});
  server.sent.append(static_cast<const char*>(bytes), count);
  errno = EPIPE;
  return count > 0 ? static_cast<ssize_t>(count) : -1;
}

extern "C" ssize_t recv(int, void* buffer, std::size_t size, int) {
  if (server.replies.empty()) return 0;
  std::string& reply = server.replies.front();
  const std::size_t count = reply.copy(static_cast<char*>(buffer), size);
  reply.erase(0, count);
  if (reply.empty()) server.replies.erase(server.replies.begin());
  return static_cast<ssize_t>(count);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::size_t limit = input.byte();
  CSmtp::send_mail_t mail{};
  mail.server = "here";
  for (std::string* field : {&mail.user, &mail.password, &mail.from}) *field = input.text('\n');
  mail.to = {input.text('\n'), "b@x"};
  mail.need_auth = 1;
  mail.body = "body\r\n";
  mail.body_len = 6;
  server = {{}, limit == 0 ? std::size_t{1} << 20 : limit * 8, ""};
  while (!input.rest().empty()) {
    const std::string reply = input.text('\x1e');
    if (!reply.empty()) server.replies.push_back(reply);
  }
  const Server fresh = server;

  const int code = CSmtp::putmail(1000, mail);
  const std::string codes(",0,1,7,8,9,14,15,17,18,");
  check(codes.find("," + std::to_string(code) + ",") < codes.size(), "the code is of its table");
  const std::string end = std::string("Subject: \r\n\r\nbody\r\n\0", 20) + "\r\n.\r\nQUIT\r\n";
  check(code != 0 || server.sent.find(end) < server.sent.size(), "success means all was sent");
  check(
      code == 7 || server.sent.empty() || server.sent.back() == '\n' || server.sent.size() >= 4095,
      "commands are whole");

  server = fresh;
  CSmtp::test_mail_t account{"here", mail.user, mail.password, 1, 25, mail.from};
  char flags = 0;
  const int tested = CSmtp::test_valid(1000, account, flags);
  check((flags & ~6) == 0 && (tested != 0 || flags == 6), "flags tell what was reached");
  return 0;
}
