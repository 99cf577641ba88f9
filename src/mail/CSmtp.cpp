// The dialogues and whole sessions of CSmtp.

#include <cstring>
#include <ctime>
#include <string_view>

#include "base/handles.h"
#include "mail/CSmtp_code.h"
#include "mail/CSmtp_dialogue.h"
#include "mail/CSmtp_transport.h"
#include "utility/CSmtp.h"
#include "utility/CTime.h"

namespace utility {
namespace {

using namespace detail;

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
  int result = dialogue.read_greeting();
  if (result != kSuccess) return result;
  const std::string command = std::string("EHLO ") + account.server.c_str() + " \r\n";
  result = dialogue.expect(dialogue.command_gathering(command), kDone, kRefused);
  if (result != kSuccess || account.need_auth == 0) return result;
  char methods = 0;
  CSmtp::parseauth(dialogue.reply(), methods);
  return CSmtp::smtp_auth(sock, account.user, account.password, methods);
}

int offer_address(Dialogue& dialogue, const char* verb, const std::string& address) {
  const std::string command = std::string(verb) + ":<" + address.c_str() + ">\r\n";
  return dialogue.expect(dialogue.command(command), kDone, kRefused);
}

int offer_recipients(Dialogue& dialogue, const CSmtp::send_mail_t& mail) {
  for (const auto* list : {&mail.to, &mail.cc}) {
    for (const std::string& address : *list) {
      const int accepted = offer_address(dialogue, "RCPT To", address);
      if (accepted != kSuccess) return accepted;
    }
  }
  return kSuccess;
}

// The bytes of a mail: header, body and the zero byte that ends the text.
class DataBlock {
 public:
  DataBlock(const std::string& header, const CSmtp::send_mail_t& mail)
      : size_(header.size() + static_cast<std::size_t>(mail.body_len) + 1),
        bytes_(make_buffer(size_)) {
    if (!bytes_) return;
    header.copy(bytes_.get(), header.size());
    std::memcpy(bytes_.get() + header.size(), mail.body, size_ - 1 - header.size());
  }

  explicit operator bool() const { return bytes_ != nullptr; }
  std::string_view bytes() const { return {bytes_.get(), size_}; }

 private:
  std::size_t size_;
  Buffer bytes_;
};

// One session: the lock and the alarm action, the connection, the dialogue.
template <class Dialog>
int run_session(const std::string& server, short port, const Dialog& dialog) {
  struct Bracket {
    int begun = CSmtp::init();
    Bracket() = default;
    Bracket(const Bracket&) = delete;
    Bracket& operator=(const Bracket&) = delete;
    ~Bracket() {
      if (begun == kSuccess) CSmtp::destroy();
    }
  };
  const Bracket bracket;
  if (bracket.begun != kSuccess) return bracket.begun;
  int sock = -1;
  const int connected = CSmtp::connecttoserv(server, port, sock);
  const Fd owner(sock);
  if (connected != kSuccess) return connected;
  return sock < 0 ? kBadSocket : dialog(sock);
}

}  // namespace

int CSmtp::formatheader(send_mail_t& mail, std::string& header) {
  const Buffer date = make_buffer(kDateRoom);
  if (!date) return kNoMemory;
  if (CTime::get_local_time_all(std::time(nullptr), date.get(), kDateRoom) == nullptr) {
    date[0] = '\0';
  }
  header = "Date: " + std::string(date.get()) + "\r\n";
  header += "From: " + mail.from + "\r\n";
  header += "To: " + joined(mail.to) + "\r\n";
  if (!mail.cc.empty()) header += "Cc: " + joined(mail.cc) + "\r\n";
  header += "Subject: " + mail.subject + "\r\n\r\n";
  return kSuccess;
}

int CSmtp::putmail(int sock, send_mail_t& mail) {
  if (!is_complete(mail)) return kBadArgument;
  std::string header;
  int result = formatheader(mail, header);
  if (result != kSuccess) return result;
  const DataBlock block(header, mail);
  Dialogue dialogue(sock);
  if (!block || !dialogue.ready()) return kNoMemory;

  result = introduce(sock, dialogue, mail);
  if (result == kSuccess) result = offer_address(dialogue, "MAIL From", mail.from);
  if (result == kSuccess) result = offer_recipients(dialogue, mail);
  if (result == kSuccess) result = dialogue.command("DATA\r\n");
  if (result == kSuccess && !send_all(sock, block.bytes())) result = kNotSent;
  if (result == kSuccess) result = dialogue.expect(dialogue.command("\r\n.\r\n"), kDone, kRefused);
  if (result == kSuccess) result = dialogue.command("QUIT\r\n");
  return result;
}

int CSmtp::test_valid(int sock, test_mail_t& account, char& flags) {
  Dialogue dialogue(sock);
  if (!dialogue.ready()) return kNoMemory;
  int result = introduce(sock, dialogue, account);
  if (result != kSuccess) return result;
  if (account.need_auth != 0) add_flag(flags, kAuthenticated);
  result = offer_address(dialogue, "MAIL From", account.from);
  if (result != kSuccess) return result;
  add_flag(flags, kSenderAccepted);
  return dialogue.command("QUIT\r\n");
}

int CSmtp::sendmail(send_mail_t& mail) {
  if (!is_complete(mail)) return kBadArgument;
  return run_session(mail.server, mail.port, [&](int sock) { return putmail(sock, mail); });
}

int CSmtp::testmail(test_mail_t& account, char& flags) {
  flags = 0;
  if (!is_complete(account)) return kBadArgument;
  return run_session(account.server, account.port, [&](int sock) {
    add_flag(flags, kConnected);
    return test_valid(sock, account, flags);
  });
}

}  // namespace utility
