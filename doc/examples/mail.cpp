// Sends a mail. Usage: mail SERVER PORT FROM TO

#include <utility/CSmtp.h>
#include <utility/CStr.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
  if (argc != 5) return 2;
  const std::string body = "The disk is full.\r\n";

  utility::CSmtp::send_mail_t mail{};
  mail.server = argv[1];
  mail.port = static_cast<short>(utility::CStr::atol(argv[2]));
  mail.from = argv[3];
  mail.to = {argv[4]};
  mail.subject = "Alert";
  mail.need_auth = 0;
  mail.body = body.data();
  mail.body_len = static_cast<int>(body.size());

  const int code = utility::CSmtp::sendmail(mail);
  std::printf("code %d\n", code);
  return code;
}
