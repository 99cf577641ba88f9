// SMTP sessions: the input holds an account and what a server does, turn by turn. The program
// stands in for the socket calls, so no time passes and every wait and failure can be scripted. The
// commands sent, the result and the flags are as the rules make them from the server's replies.
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <deque>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "check.h"
#include "input.h"
#include "utility/Base64.h"
#include "utility/CHmacMd5.h"
#include "utility/CSmtp.h"

namespace {

using utility::Base64;
using utility::CSmtp;

constexpr int kSocket = 1000;
constexpr std::size_t kRoom = 4096;
constexpr int kReplyLimit = 300'000;  // milliseconds

constexpr char kTurnEnd = '\x1e';
constexpr char kSegmentEnd = '\x1f';
// At the beginning of a turn: what happens besides the reply.
constexpr char kReset = '\x15';        // behind the reply the connection breaks
constexpr char kShortSend = '\x16';    // one byte of the command is taken at first
constexpr char kSendFails = '\x18';    // nothing of the command is taken
constexpr char kInterrupted = '\x1b';  // a signal comes before the reply

struct Exchange {
  std::string command;
  std::string reply;
  bool send_failed = false;
  bool read_failed = false;
};

/// The peer. A turn begins with the first send behind a read; the greeting is the first. When there
/// are no more turns it has closed.
class Server {
 public:
  void start(const std::string& script) {
    turns_.clear();
    segments_.clear();
    exchanges.clear();
    waited = 0;
    Input input(reinterpret_cast<const std::uint8_t*>(script.data()), script.size());
    while (!input.empty()) turns_.push_back(input.text(kTurnEnd));
    begin_turn();
    sending_ = false;
  }

  ssize_t send(const char* data, std::size_t size) {
    if (!sending_) begin_turn();
    Exchange& exchange = exchanges.back();
    sending_ = !std::exchange(send_fails_, false);
    if (!sending_) {
      exchange.send_failed = true;
      errno = EPIPE;
      return -1;
    }
    if (std::exchange(short_send_, false)) size = 1;
    exchange.command.append(data, size);
    return static_cast<ssize_t>(size);
  }

  int poll(pollfd& entry, int milliseconds) {
    sending_ = false;
    if (interrupts()) return -1;
    FUZZ_CHECK(milliseconds >= 0);
    const bool readable = !segments_.empty() || reset_ || turns_.empty();
    entry.revents = readable ? POLLIN : 0;
    waited += readable ? 0 : milliseconds;
    return readable ? 1 : 0;
  }

  ssize_t recv(char* buffer, std::size_t size) {
    sending_ = false;
    if (interrupts()) return -1;
    if (segments_.empty() && !reset_ && turns_.empty()) return 0;
    if (segments_.empty()) {
      waited += reset_ ? 0 : kReplyLimit;
      errno = reset_ ? ECONNRESET : EAGAIN;
      exchanges.back().read_failed = true;
      return -1;
    }
    std::string& segment = segments_.front();
    const std::size_t count = segment.copy(buffer, size);
    exchanges.back().reply.append(segment, 0, count);
    segment.erase(0, count);
    if (segment.empty()) segments_.pop_front();
    return static_cast<ssize_t>(count);
  }

  std::vector<Exchange> exchanges;
  int waited = 0;  // milliseconds

 private:
  void begin_turn() {
    exchanges.emplace_back();
    reset_ = short_send_ = send_fails_ = interrupted_ = false;
    if (turns_.empty()) return;
    const std::string turn = turns_.front();
    turns_.pop_front();
    const std::size_t text = std::min(turn.find_first_not_of("\x15\x16\x18\x1b"), turn.size());
    const std::string events = turn.substr(0, text);
    const auto happens = [&](char event) { return events.find(event) != std::string::npos; };
    reset_ = happens(kReset);
    short_send_ = happens(kShortSend);
    send_fails_ = happens(kSendFails);
    interrupted_ = happens(kInterrupted);
    Input segments(reinterpret_cast<const std::uint8_t*>(turn.data()) + text, turn.size() - text);
    while (!segments.empty()) {
      std::string segment = segments.text(kSegmentEnd);
      if (!segment.empty()) segments_.push_back(std::move(segment));
    }
  }

  bool interrupts() {
    errno = EINTR;
    return std::exchange(interrupted_, false);
  }

  std::deque<std::string> turns_;
  std::deque<std::string> segments_;
  bool sending_ = false;
  bool reset_ = false;
  bool short_send_ = false;
  bool send_fails_ = false;
  bool interrupted_ = false;
};

Server server;

/// Goes through what was exchanged and says what should have been.
class Expected {
 public:
  Expected(const CSmtp::send_mail_t& mail, char& flags) : mail_(mail), flags_(flags) {}

  int of_mail() {
    if (mail_.from.empty()) return 1;
    int result = introduction();
    if (result == 0) result = accepted("MAIL From:<" + mail_.from + ">\r\n");
    for (const auto* list : {&mail_.to, &mail_.cc}) {
      for (const std::string& address : *list) {
        if (result == 0) result = accepted("RCPT To:<" + address + ">\r\n");
      }
    }
    if (result == 0) result = sent("DATA\r\n");
    if (result == 0) result = text_accepted();
    return result == 0 ? sent("QUIT\r\n") : result;
  }

  int of_test() {
    int result = introduction();
    if (result != 0) return result;
    if (mail_.need_auth != 0) flags_ |= 2;
    result = accepted("MAIL From:<" + mail_.from + ">\r\n");
    if (result != 0) return result;
    flags_ |= 4;
    return sent("QUIT\r\n");
  }

  std::size_t exchanges() const { return next_; }

 private:
  const Exchange& exchange() {
    FUZZ_CHECK(next_ < server.exchanges.size());
    return server.exchanges[next_++];
  }

  int sent(const std::string& command, int read_failure = 1) {
    const Exchange& done = exchange();
    if (done.send_failed) return 7;
    FUZZ_CHECK(done.command == command.substr(0, kRoom - 1));
    FUZZ_CHECK(done.reply.size() <= kRoom);
    reply_ = done.reply.c_str();
    return done.read_failed ? read_failure : 0;
  }
  bool begins(const char* code) const { return reply_.compare(0, 3, code) == 0; }
  int answered(int result, const char* code, int refusal) const {
    return result != 0 || begins(code) ? result : refusal;
  }
  int accepted(const std::string& command) { return answered(sent(command), "250", 9); }

  int introduction() {
    const Exchange& greeting = exchange();
    if (greeting.read_failed) return 8;
    if (greeting.reply.empty() && server.waited > 0) return 18;
    const int greeted = answered(sent("EHLO " + mail_.server + " \r\n", 8), "250", 9);
    return greeted != 0 || mail_.need_auth == 0 ? greeted : authentication(offered());
  }

  /// The line of the reply that tells the methods.
  std::string offered() const {
    std::istringstream lines(reply_);
    for (std::string line; std::getline(lines, line);) {
      if (line.compare(0, 9, "250-AUTH ") == 0) return line;
    }
    return {};
  }

  int authentication(const std::string& methods) {
    const auto offers = [&](const char* name) { return methods.find(name) != std::string::npos; };
    const std::pair<const char*, int (Expected::*)()> kMethods[] = {
        {"CRAM-MD5", &Expected::cram_md5},
        {"LOGIN", &Expected::login},
        {"PLAIN", &Expected::plain}};
    int result = 0;
    for (const auto& [name, method] : kMethods) {
      if (!offers(name)) continue;
      result = (this->*method)();
      if (result == 0) return 0;
    }
    return result;
  }

  static bool fits(const std::string& secret, std::size_t before = 0) {
    return before + Base64::encode(secret).size() + 2 < kRoom;
  }

  int cram_md5() {
    if (mail_.password.size() >= kRoom || !fits(mail_.user + std::string(33, ' '))) return 1;
    const int asked = sent("AUTH CRAM-MD5\r\n");
    if (asked != 0) return asked;
    std::istringstream words(reply_);
    std::string code;
    std::string challenge;
    if (!(words >> code >> challenge)) return 14;
    challenge = Base64::decode(challenge);
    std::string key = mail_.password;
    char digest[16];
    const int digested =
        utility::CHmacMd5::hmac_md5(challenge.data(), static_cast<int>(challenge.size()),
                                    key.data(), static_cast<int>(key.size()), digest);
    if (digested != 0) return digested;
    const std::string answer = mail_.user + " " + utility::CHmacMd5::checksumtostring(digest);
    return answered(sent(Base64::encode(answer) + "\r\n"), "235", 14);
  }

  int login() {
    if (!fits(mail_.user) || !fits(mail_.password)) return 1;
    int result = sent("AUTH LOGIN\r\n");
    if (result == 0) result = sent(Base64::encode(mail_.user) + "\r\n");
    if (result == 0) result = sent(Base64::encode(mail_.password) + "\r\n");
    return answered(result, "235", 14);
  }

  int plain() {
    const std::string secret = '\0' + mail_.user + '\0' + mail_.password;
    if (!fits(secret, 11)) return 1;
    return answered(sent("AUTH PLAIN " + Base64::encode(secret) + "\r\n"), "235", 14);
  }

  /// Text and final dot, which is sent without a reply in between. The date in front is now's.
  int text_accepted() {
    const Exchange& done = exchange();
    if (done.send_failed) return 7;
    std::string text = "\r\nFrom: " + mail_.from + "\r\nTo: " + mail_.to[0] + ", " + mail_.to[1];
    if (!mail_.cc.empty()) text += "\r\nCc: " + mail_.cc[0];
    text += "\r\nSubject: " + mail_.subject + "\r\n\r\n";
    text.append(mail_.body, static_cast<std::size_t>(mail_.body_len)).append("\0\r\n.\r\n", 6);
    const std::string& command = done.command;
    FUZZ_CHECK(command.compare(0, 6, "Date: ") == 0 && command.size() > text.size());
    FUZZ_CHECK(command.compare(command.size() - text.size(), text.size(), text) == 0);
    reply_ = done.reply.c_str();
    return answered(done.read_failed ? 1 : 0, "250", 9);
  }

  const CSmtp::send_mail_t& mail_;
  char& flags_;
  std::size_t next_ = 0;
  std::string reply_;
};

CSmtp::send_mail_t mail_of(unsigned char settings, Input& input) {
  CSmtp::send_mail_t mail{};
  mail.server = "mail.example";
  mail.user = input.text('\n');
  mail.password = input.text('\n');
  mail.from = input.text(kTurnEnd);
  mail.need_auth = static_cast<char>(settings & 2);
  mail.subject = mail.user;
  mail.to = {"a@example", mail.from};
  if ((settings & 4) != 0) mail.cc = {"c@example"};
  if ((settings & 8) != 0) mail.user.append(3000 + settings, 'u');
  if ((settings & 16) != 0) mail.from.append(4070 + settings, 'f');
  mail.body = "body";
  mail.body_len = 4;
  return mail;
}

}  // namespace

// In place of the C library's, for the library under test.
extern "C" ssize_t send(int sock, const void* data, std::size_t size, int flags) {
  FUZZ_CHECK(sock == kSocket && flags == MSG_NOSIGNAL && size > 0);
  return server.send(static_cast<const char*>(data), size);
}

extern "C" ssize_t recv(int sock, void* buffer, std::size_t size, int flags) {
  FUZZ_CHECK(sock == kSocket && flags == 0);
  return server.recv(static_cast<char*>(buffer), size);
}

extern "C" int poll(pollfd* entries, nfds_t count, int milliseconds) {
  FUZZ_CHECK(count == 1 && entries->fd == kSocket && entries->events == POLLIN);
  return server.poll(*entries, milliseconds);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const unsigned char settings = input.byte();
  CSmtp::send_mail_t mail = mail_of(settings, input);
  server.start(input.rest());

  int result = 0;
  char flags = 0;
  const bool test = (settings & 1) != 0;
  if (test) {
    CSmtp::test_mail_t account{mail.server,    mail.user, mail.password,
                               mail.need_auth, mail.port, mail.from};
    result = CSmtp::test_valid(kSocket, account, flags);
  } else {
    result = CSmtp::putmail(kSocket, mail);
  }

  char expected_flags = 0;
  Expected expected(mail, expected_flags);
  FUZZ_CHECK(result == (test ? expected.of_test() : expected.of_mail()));
  FUZZ_CHECK(flags == expected_flags);
  FUZZ_CHECK(server.exchanges.size() <= expected.exchanges() || mail.from.empty());
  // The greeting, the reply to EHLO, and one more read that fails in each method and at the end.
  FUZZ_CHECK(server.waited <= 3300 + 15500 + 4 * kReplyLimit);
  return 0;
}
