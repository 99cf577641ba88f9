// The authentication methods of CSmtp.

#include <cstring>
#include <string_view>
#include <vector>

#include "base/io.h"
#include "base/text.h"
#include "mail/CSmtp_code.h"
#include "mail/CSmtp_dialogue.h"
#include "utility/Base64.h"
#include "utility/CHmacMd5.h"
#include "utility/CSmtp.h"
#include "utility/CStr.h"

namespace utility {
namespace {

using namespace detail;

constexpr std::size_t kSecretRoom = 4096;
constexpr std::size_t kDigestText = 32;
constexpr char kPlainCommand[] = "AUTH PLAIN ";
constexpr char kAccepted[] = "235";

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
  return bytes <= kSecretRoom && prefix + (bytes + 2) / 3 * 4 + 2 < Dialogue::kRoom;
}

// False without memory.
bool encode(const std::string& bytes, std::string& text) {
  text = Base64::encode(bytes);
  return !text.empty() || bytes.empty();
}

// Key bytes for hmac_md5, which may overwrite them. Zeroed again after use.
class Secret {
 public:
  explicit Secret(const std::string& text) : buffer_(make_buffer(kSecretRoom)), size_(text.size()) {
    if (buffer_) text.copy(buffer_.get(), kSecretRoom - 1);
  }
  ~Secret() {
    if (buffer_) ::explicit_bzero(buffer_.get(), kSecretRoom);
  }
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;

  char* bytes() { return buffer_.get(); }
  int size() const { return static_cast<int>(size_); }

 private:
  Buffer buffer_;
  std::size_t size_;
};

// The answer to a challenge, encoded: kSuccess, kNoMemory, kNotEncoded or the digest's own code.
int answer_challenge(const std::string& challenge, const std::string& user,
                     const std::string& password, std::string& answer) {
  Secret key(password);
  if (key.bytes() == nullptr) return kNoMemory;
  char digest[16];
  const int digested = CHmacMd5::hmac_md5(challenge.data(), static_cast<int>(challenge.size()),
                                          key.bytes(), key.size(), digest);
  if (digested != 0) return digested;
  const std::string text = CHmacMd5::checksumtostring(digest);
  return !text.empty() && encode(user + " " + text, answer) ? kSuccess : kNotEncoded;
}

}  // namespace

int CSmtp::parseauth(char* ehloReply, char& methods) {
  if (ehloReply == nullptr) return kBadArgument;
  methods = 0;
  constexpr std::string_view kStart = "250-AUTH ";
  std::string_view rest = ehloReply;
  while (!rest.empty()) {
    const std::string_view line = take_line(rest, rest.size());
    if (begins_with(line, kStart)) {
      for (const Method& method : kMethods) {
        if (contains(line, method.name)) methods = static_cast<char>(methods | method.bit);
      }
      break;
    }
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
  const std::string credentials = std::string(1, '\0') + user + std::string(1, '\0') + password;
  if (!fits(credentials.size(), sizeof kPlainCommand - 1)) return kBadArgument;
  Dialogue dialogue(sock);
  std::string encoded;
  if (!dialogue.ready() || !encode(credentials, encoded)) return kNoMemory;
  return dialogue.expect(dialogue.command(kPlainCommand + encoded + "\r\n"), kAccepted,
                         kNotAuthenticated);
}

int CSmtp::auth_login(int sock, std::string user, std::string password) {
  if (!fits(user.size()) || !fits(password.size())) return kBadArgument;
  Dialogue dialogue(sock);
  std::string encoded_user;
  std::string encoded_password;
  if (!dialogue.ready() || !encode(user, encoded_user) || !encode(password, encoded_password)) {
    return kNoMemory;
  }
  int sent = dialogue.command("AUTH LOGIN\r\n");
  if (sent == kSuccess) sent = dialogue.command(encoded_user + "\r\n");
  if (sent == kSuccess) sent = dialogue.command(encoded_password + "\r\n");
  return dialogue.expect(sent, kAccepted, kNotAuthenticated);
}

int CSmtp::auth_cram_md5(int sock, std::string user, std::string password) {
  user.resize(std::strlen(user.c_str()));  // it goes through "%s"
  if (password.size() >= kSecretRoom || !fits(user.size() + 1 + kDigestText)) return kBadArgument;
  Dialogue dialogue(sock);
  if (!dialogue.ready()) return kNoMemory;
  const int sent = dialogue.command("AUTH CRAM-MD5\r\n");
  if (sent != kSuccess) return sent;
  std::vector<std::string> words;
  CStr::ext_line(words, dialogue.reply());
  if (words.size() < 2) return kNotAuthenticated;

  std::string answer;
  const int answered = answer_challenge(Base64::decode(words[1]), user, password, answer);
  if (answered != kSuccess) return answered;
  return dialogue.expect(dialogue.command(answer + "\r\n"), kAccepted, kNotAuthenticated);
}

}  // namespace utility
