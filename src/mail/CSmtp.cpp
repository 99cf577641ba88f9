#include "utility/CSmtp.h"

#include <ctime>

#include "base/text.h"
#include "mail/CSmtp_dialogue.h"
#include "utility/Base64.h"
#include "utility/CHmacMd5.h"
#include "utility/CTime.h"

namespace utility {

using namespace detail;

namespace {

constexpr std::size_t kSecretRoom = 4096;  // for a password and its NUL
constexpr std::size_t kDigestText = 32;
constexpr char kPlainCommand[] = "AUTH PLAIN ";

struct Method {
  char bit;
  const char* name;
  int (*authenticate)(int sock, std::string user, std::string password);
};
// In order of preference.
constexpr Method kMethods[] = {
    {CSmtp::kAuthCramMd5, "CRAM-MD5", CSmtp::auth_cram_md5},
    {CSmtp::kAuthLogin, "LOGIN", CSmtp::auth_login},
    {CSmtp::kAuthPlain, "PLAIN", CSmtp::auth_plain},
};

// True when the base64 of `bytes` bytes, `prefix` bytes before it and a line end make one command.
bool fits(std::size_t bytes, std::size_t prefix = 0) {
  return prefix + (bytes + 2) / 3 * 4 + 2 < Dialogue::kRoom;
}

// Puts the base64 of `text` in its place; false without memory.
bool encode(std::string& text) {
  const bool is_empty = text.empty();
  text = Base64::encode(text);
  return is_empty || !text.empty();
}

constexpr std::size_t kDateRoom = 4096;
constexpr char kConnected = 1;
constexpr char kAuthenticated = 2;
constexpr char kSenderAccepted = 4;

bool is_complete(const CSmtp::send_mail_t& mail) {
  return !mail.server.empty() && !mail.from.empty() && !mail.to.empty() && mail.body != nullptr &&
         mail.body_len >= 1;
}

// Greeting, EHLO and, where asked for, authentication.
template <class Account>
int introduce(int sock, Dialogue& dialogue, const Account& account) {
  if (const int greeted = dialogue.read_greeting()) return greeted;
  const int result = dialogue.say("EHLO " + before_nul(account.server) + " \r\n", kReply250, 2);
  if (result != kSuccess || account.need_auth == 0) return result;
  char methods = 0;
  CSmtp::parseauth(dialogue.reply(), methods);
  return CSmtp::smtp_auth(sock, account.user, account.password, methods);
}

int offer_address(Dialogue& dialogue, const char* verb, const std::string& address) {
  return dialogue.say(std::string(verb) + ":<" + before_nul(address) + ">\r\n", kReply250);
}

int offer_recipients(Dialogue& dialogue, const CSmtp::send_mail_t& mail) {
  for (const auto* list : {&mail.to, &mail.cc}) {
    for (const std::string& address : *list) {
      if (const int result = offer_address(dialogue, "RCPT To", address)) return result;
    }
  }
  return kSuccess;
}

// One session: the lock and the alarm action, the connection, the dialogue.
template <class Dialog>
int run_session(const std::string& server, short port, const Dialog& dialog) {
  if (const int begun = CSmtp::init()) return begun;
  const struct End {
    ~End() { CSmtp::destroy(); }
  } end;
  int sock = -1;
  const int connected = CSmtp::connecttoserv(server, port, sock);
  const Fd owner(sock);
  if (connected != kSuccess) return connected;
  return sock < 0 ? kBadSocket : dialog(sock);
}

}  // namespace

int CSmtp::parseauth(char* ehloReply, char& methods) {
  if (ehloReply == nullptr) return kBadArgument;
  methods = 0;
  for (std::string_view rest = ehloReply; !rest.empty();) {
    const std::string_view line = take_line(rest, rest.size());
    if (!begins_with(line, "250-AUTH ")) continue;
    for (const Method& method : kMethods) {
      if (contains(line, method.name)) methods = static_cast<char>(methods | method.bit);
    }
    break;
  }
  return kSuccess;
}

int CSmtp::smtp_auth(int sock, const std::string& user, const std::string& password,
                     const char& methods) {
  int result = kSuccess;
  for (const Method& method : kMethods) {
    if ((methods & method.bit) == 0) continue;
    result = method.authenticate(sock, user, password);
    if (result == kSuccess) break;
  }
  return result;
}

int CSmtp::auth_plain(int sock, std::string user, std::string password) {
  std::string credentials = std::string(1, '\0') + user + '\0' + password;
  if (!fits(credentials.size(), sizeof kPlainCommand - 1)) return kBadArgument;
  Dialogue dialogue(sock);
  if (!dialogue.ready() || !encode(credentials)) return kNoMemory;
  return dialogue.say(kPlainCommand + credentials + "\r\n", kReply235);
}

int CSmtp::auth_login(int sock, std::string user, std::string password) {
  if (!fits(user.size()) || !fits(password.size())) return kBadArgument;
  Dialogue dialogue(sock);
  if (!dialogue.ready() || !encode(user) || !encode(password)) return kNoMemory;
  int result = dialogue.say("AUTH LOGIN\r\n");
  if (result == kSuccess) result = dialogue.say(user + "\r\n");
  if (result == kSuccess) result = dialogue.say(password + "\r\n", kReply235);
  return result;
}

int CSmtp::auth_cram_md5(int sock, std::string user, std::string password) {
  user = before_nul(user);
  if (password.size() >= kSecretRoom || !fits(user.size() + 1 + kDigestText)) return kBadArgument;
  Dialogue dialogue(sock);
  if (!dialogue.ready()) return kNoMemory;
  if (const int sent = dialogue.say("AUTH CRAM-MD5\r\n")) return sent;
  const std::vector<std::string> words = words_of(dialogue.reply());
  if (words.size() < 2) return kNotAuthenticated;

  const std::string challenge = Base64::decode(words[1]);
  char digest[16];
  const int digested =
      CHmacMd5::hmac_md5(challenge.data(), static_cast<int>(challenge.size()), password.data(),
                         static_cast<int>(password.size()), digest);
  ::explicit_bzero(password.data(), password.size());
  if (digested != 0) return digested;
  const std::string sum = CHmacMd5::checksumtostring(digest);
  std::string answer = user + " " + sum;
  if (sum.empty() || !encode(answer)) return kNotEncoded;
  return dialogue.say(answer + "\r\n", kReply235);
}

int CSmtp::formatheader(send_mail_t& mail, std::string& header) {
  const Buffer date = make_buffer(kDateRoom);
  if (!date) return kNoMemory;
  const char* text = CTime::get_local_time_all(std::time(nullptr), date.get(), kDateRoom);
  header = std::string("Date: ") + (text != nullptr ? text : "") + "\r\n";
  header += "From: " + mail.from + "\r\nTo: " + joined(mail.to, ", ") + "\r\n";
  if (!mail.cc.empty()) header += "Cc: " + joined(mail.cc, ", ") + "\r\n";
  header += "Subject: " + mail.subject + "\r\n\r\n";
  return kSuccess;
}

int CSmtp::putmail(int sock, send_mail_t& mail) {
  if (!is_complete(mail)) return kBadArgument;
  std::string header;
  if (const int formatted = formatheader(mail, header)) return formatted;
  // Header, body and a zero byte, put together before the server is waited for.
  const std::size_t size = header.size() + static_cast<std::size_t>(mail.body_len) + 1;
  const Buffer block = make_buffer(size);
  Dialogue dialogue(sock);
  if (!block || !dialogue.ready()) return kNoMemory;
  header.copy(block.get(), header.size());
  std::memcpy(block.get() + header.size(), mail.body, size - 1 - header.size());

  int result = introduce(sock, dialogue, mail);
  if (result == kSuccess) result = offer_address(dialogue, "MAIL From", mail.from);
  if (result == kSuccess) result = offer_recipients(dialogue, mail);
  if (result == kSuccess) result = dialogue.say("DATA\r\n");
  if (result == kSuccess && !send_all(sock, {block.get(), size})) result = kNotSent;
  if (result == kSuccess) result = dialogue.say("\r\n.\r\n", kReply250);
  if (result == kSuccess) result = dialogue.say("QUIT\r\n");
  return result;
}

int CSmtp::test_valid(int sock, test_mail_t& account, char& flags) {
  Dialogue dialogue(sock);
  if (!dialogue.ready()) return kNoMemory;
  int result = introduce(sock, dialogue, account);
  if (result != kSuccess) return result;
  if (account.need_auth != 0) flags |= kAuthenticated;
  result = offer_address(dialogue, "MAIL From", account.from);
  if (result != kSuccess) return result;
  flags |= kSenderAccepted;
  return dialogue.say("QUIT\r\n");
}

int CSmtp::sendmail(send_mail_t& mail) {
  if (!is_complete(mail)) return kBadArgument;
  return run_session(mail.server, mail.port, [&](int sock) { return putmail(sock, mail); });
}

int CSmtp::testmail(test_mail_t& account, char& flags) {
  flags = 0;
  if (account.server.empty() || account.from.empty()) return kBadArgument;
  return run_session(account.server, account.port, [&](int sock) {
    flags |= kConnected;
    return test_valid(sock, account, flags);
  });
}

}  // namespace utility
