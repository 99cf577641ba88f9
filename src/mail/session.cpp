// The dialogues and whole sessions of CSmtp.

#include <cstring>
#include <ctime>

#include "base/handles.h"
#include "mail/dialogue.h"
#include "utility/CSmtp.h"
#include "utility/CTime.h"

namespace utility {
namespace {

using detail::Dialogue;

constexpr char kDone[] = "250";
constexpr std::size_t kDateRoom = 4096;
constexpr char kConnected = 1;
constexpr char kAuthenticated = 2;
constexpr char kSenderAccepted = 4;

void add_flag(char& flags, char flag) {
  flags = static_cast<char>(flags | flag);
}

bool is_complete(const CSmtp::send_mail_t& mail) {
  return !mail.server.empty() && !mail.from.empty() && !mail.to.empty() && mail.body != nullptr &&
         mail.body_len >= 1;
}

bool is_complete(const CSmtp::test_mail_t& account) {
  return !account.server.empty() && !account.from.empty();
}

std::string joined(const std::vector<std::string>& addresses) {
  std::string text;
  const char* separator = "";
  for (const std::string& address : addresses) {
    text.append(separator).append(address);
    separator = ", ";
  }
  return text;
}

// Greeting, EHLO and, where asked for, authentication.
template <class Account>
int introduce(int sock, Dialogue& dialogue, const Account& account) {
  const int greeted = dialogue.read_greeting();
  if (greeted != 0) return greeted;
  const int answered =
      dialogue.expect(dialogue.command_gathering("EHLO " + account.server + " \r\n"), kDone, 9);
  if (answered != 0 || account.need_auth == 0) return answered;
  char methods = 0;
  CSmtp::parseauth(dialogue.reply(), methods);
  return CSmtp::smtp_auth(sock, account.user, account.password, methods);
}

int offer_address(Dialogue& dialogue, const char* verb, const std::string& address) {
  const std::string command = std::string(verb) + ":<" + address + ">\r\n";
  return dialogue.expect(dialogue.command(command), kDone, 9);
}

int offer_recipients(Dialogue& dialogue, const CSmtp::send_mail_t& mail) {
  for (const auto* list : {&mail.to, &mail.cc}) {
    for (const std::string& address : *list) {
      const int accepted = offer_address(dialogue, "RCPT To", address);
      if (accepted != 0) return accepted;
    }
  }
  return 0;
}

// Header, body and the zero byte that ends the text, in one piece.
int send_text(int sock, const std::string& header, const CSmtp::send_mail_t& mail) {
  const auto body_size = static_cast<std::size_t>(mail.body_len);
  const std::size_t size = header.size() + body_size + 1;
  const detail::Buffer block = detail::make_buffer(size);
  if (!block) return 6;
  header.copy(block.get(), header.size());
  std::memcpy(block.get() + header.size(), mail.body, body_size);
  int unused = 0;
  return CSmtp::sendcmd(sock, block.get(), static_cast<int>(size), 0, nullptr, unused);
}

// One session: the lock and the alarm action, the connection, the dialogue.
template <class Dialog>
int run_session(const std::string& server, short port, const Dialog& dialog) {
  struct Bracket {
    int begun = CSmtp::init();
    Bracket() = default;
    Bracket(const Bracket&) = delete;
    Bracket& operator=(const Bracket&) = delete;
    ~Bracket() {
      if (begun == 0) CSmtp::destroy();
    }
  };
  const Bracket bracket;
  if (bracket.begun != 0) return bracket.begun;
  int sock = -1;
  const int connected = CSmtp::connecttoserv(server, port, sock);
  const detail::Fd owner(sock);
  if (connected != 0) return connected;
  return sock < 0 ? 3 : dialog(sock);
}

}  // namespace

int CSmtp::formatheader(send_mail_t& mail, std::string& header) {
  const detail::Buffer date = detail::make_buffer(kDateRoom);
  if (!date) return 6;
  if (CTime::get_local_time_all(std::time(nullptr), date.get(), kDateRoom) == nullptr) {
    date[0] = '\0';
  }
  header = "Date: " + std::string(date.get()) + "\r\n";
  header += "From: " + mail.from + "\r\n";
  header += "To: " + joined(mail.to) + "\r\n";
  if (!mail.cc.empty()) header += "Cc: " + joined(mail.cc) + "\r\n";
  header += "Subject: " + mail.subject + "\r\n\r\n";
  return 0;
}

int CSmtp::putmail(int sock, send_mail_t& mail) {
  if (!is_complete(mail)) return 1;
  std::string header;
  int result = formatheader(mail, header);
  if (result != 0) return result;
  Dialogue dialogue(sock);
  if (!dialogue.ready()) return 6;

  result = introduce(sock, dialogue, mail);
  if (result == 0) result = offer_address(dialogue, "MAIL From", mail.from);
  if (result == 0) result = offer_recipients(dialogue, mail);
  if (result == 0) result = dialogue.command("DATA\r\n");
  if (result == 0) result = send_text(sock, header, mail);
  if (result == 0) result = dialogue.expect(dialogue.command("\r\n.\r\n"), kDone, 9);
  if (result == 0) result = dialogue.command("QUIT\r\n");
  return result;
}

int CSmtp::test_valid(int sock, test_mail_t& account, char& flags) {
  Dialogue dialogue(sock);
  if (!dialogue.ready()) return 6;
  int result = introduce(sock, dialogue, account);
  if (result != 0) return result;
  if (account.need_auth != 0) add_flag(flags, kAuthenticated);
  result = offer_address(dialogue, "MAIL From", account.from);
  if (result != 0) return result;
  add_flag(flags, kSenderAccepted);
  return dialogue.command("QUIT\r\n");
}

int CSmtp::sendmail(send_mail_t& mail) {
  if (!is_complete(mail)) return 1;
  return run_session(mail.server, mail.port, [&](int sock) { return putmail(sock, mail); });
}

int CSmtp::testmail(test_mail_t& account, char& flags) {
  flags = 0;
  if (!is_complete(account)) return 1;
  return run_session(account.server, account.port, [&](int sock) {
    add_flag(flags, kConnected);
    return test_valid(sock, account, flags);
  });
}

}  // namespace utility
