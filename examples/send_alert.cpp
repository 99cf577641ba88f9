// Sends an alert mail whose body comes from standard input, or tries an account with --test.

#include <unistd.h>
#include <utility/CSmtp.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

namespace {

using utility::CSmtp;

const char* in_words(int code) {
  switch (code) {
    case 0:
      return "done";
    case 1:
      return "an argument is missing, or a reply could not be read";
    case 2:
      return "no socket could be created";
    case 3:
      return "the connection has no socket";
    case 4:
      return "the server's name, or the service smtp, is unknown";
    case 5:
      return "the server refused the connection or cannot be reached";
    case 6:
      return "out of memory";
    case 7:
      return "nothing could be sent: the server has closed the connection";
    case 8:
      return "reading from the server failed";
    case 9:
      return "the server did not accept a command, an address or the text";
    case 11:
      return "the server did not answer within 3 seconds";
    case 13:
      return "the alarm handler could not be installed";
    case 14:
      return "the server refused the account";
    case 15:
      return "the answer to the server's challenge could not be encoded";
    case 17:
      return "waiting for the server failed";
    case 18:
      return "the server sent no greeting";
    default:
      return "unknown";
  }
}

int usage() {
  std::fprintf(stderr,
               "Usage: send_alert [-p PORT] [-u USER] [-s SUBJECT] [-c COPY]... SERVER FROM TO...\n"
               "       send_alert --test [-p PORT] [-u USER] SERVER FROM\n"
               "The body is read from standard input. With -u the password is taken from the\n"
               "environment variable SMTP_PASSWORD. Everything travels unencrypted.\n");
  return 2;
}

std::string read_body() {
  std::string body;
  char block[4096];
  while (const std::size_t count = std::fread(block, 1, sizeof block, stdin)) {
    body.append(block, count);
  }
  return body;
}

int test_account(const CSmtp::send_mail_t& mail) {
  CSmtp::test_mail_t account{mail.server,    mail.user, mail.password,
                             mail.need_auth, mail.port, mail.from};
  char found = 0;
  const int result = CSmtp::testmail(account, found);
  std::printf("connected: %s\nauthenticated: %s\nsender accepted: %s\n", (found & 1) ? "yes" : "no",
              (found & 2) ? "yes" : "no", (found & 4) ? "yes" : "no");
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  CSmtp::send_mail_t mail{};
  const bool test_only = argc > 1 && std::strcmp(argv[1], "--test") == 0;
  if (test_only) ++optind;
  for (int option = 0; (option = ::getopt(argc, argv, "p:u:s:c:")) != -1;) {
    switch (option) {
      case 'p':
        mail.port = static_cast<short>(std::strtol(optarg, nullptr, 10));
        break;
      case 'u':
        mail.user = optarg;
        break;
      case 's':
        mail.subject = optarg;
        break;
      case 'c':
        mail.cc.emplace_back(optarg);
        break;
      default:
        return usage();
    }
  }
  const std::vector<std::string> words(argv + optind, argv + argc);
  if (words.size() < (test_only ? 2U : 3U)) return usage();
  mail.server = words[0];
  mail.from = words[1];
  mail.to.assign(words.begin() + 2, words.end());
  const char* password = std::getenv("SMTP_PASSWORD");
  mail.password = password != nullptr ? password : "";
  mail.need_auth = mail.user.empty() ? 0 : 1;

  int result = 0;
  if (test_only) {
    result = test_account(mail);
  } else {
    const std::string body = read_body();
    mail.body = body.data();
    mail.body_len = static_cast<int>(body.size());
    result = CSmtp::sendmail(mail);
  }
  std::fprintf(stderr, "send_alert: %s\n", in_words(result));
  return result == 0 ? 0 : 1;
}
