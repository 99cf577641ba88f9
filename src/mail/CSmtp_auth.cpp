// The authentication methods of CSmtp.

#include "base/text.h"
#include "mail/CSmtp_dialogue.h"
#include "utility/Base64.h"
#include "utility/CHmacMd5.h"
#include "utility/CSmtp.h"
#include "utility/CStr.h"

namespace utility {
namespace {

using namespace detail;

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
  const int sent = dialogue.say("AUTH CRAM-MD5\r\n");
  if (sent != kSuccess) return sent;
  std::vector<std::string> words;
  CStr::ext_line(words, dialogue.reply());
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

}  // namespace utility
