// The authentication methods of CSmtp.

#include <cstring>
#include <string_view>
#include <vector>

#include "mail/dialogue.h"
#include "utility/Base64.h"
#include "utility/CHmacMd5.h"
#include "utility/CSmtp.h"
#include "utility/CStr.h"

namespace utility {
namespace {

using detail::Dialogue;

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

// Key bytes for hmac_md5, which may overwrite them. Zeroed again behind their use.
class Secret {
 public:
  explicit Secret(const std::string& text)
      : buffer_(detail::make_buffer(kSecretRoom)), size_(text.size()) {
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
  detail::Buffer buffer_;
  std::size_t size_;
};

// The answer to a challenge, encoded: 0, 6, 15 or the code of the digest.
int answer_challenge(const std::string& challenge, const std::string& user,
                     const std::string& password, std::string& answer) {
  Secret key(password);
  if (key.bytes() == nullptr) return 6;
  char digest[16];
  const int digested = CHmacMd5::hmac_md5(challenge.data(), static_cast<int>(challenge.size()),
                                          key.bytes(), key.size(), digest);
  if (digested != 0) return digested;
  const std::string text = CHmacMd5::checksumtostring(digest);
  return !text.empty() && encode(user + " " + text, answer) ? 0 : 15;
}

}  // namespace

int CSmtp::parseauth(char* ehloReply, char& methods) {
  if (ehloReply == nullptr) return 1;
  methods = 0;
  constexpr std::string_view kStart = "250-AUTH ";
  std::string_view rest = ehloReply;
  while (!rest.empty()) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    if (line.substr(0, kStart.size()) == kStart) {
      for (const Method& method : kMethods) {
        if (line.find(method.name) != std::string_view::npos) {
          methods = static_cast<char>(methods | method.bit);
        }
      }
      return 0;
    }
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
  }
  return 0;
}

int CSmtp::smtp_auth(int sock, const std::string& user, const std::string& password,
                     const char& methods) {
  int result = 0;
  for (const Method& method : kMethods) {
    if ((methods & method.bit) == 0) continue;
    result = method.authenticate(sock, user, password);
    if (result == 0) return 0;
  }
  return result;
}

int CSmtp::auth_plain(int sock, std::string user, std::string password) {
  const std::string credentials = std::string(1, '\0') + user + std::string(1, '\0') + password;
  if (!fits(credentials.size(), sizeof kPlainCommand - 1)) return 1;
  Dialogue dialogue(sock);
  std::string encoded;
  if (!dialogue.ready() || !encode(credentials, encoded)) return 6;
  return dialogue.expect(dialogue.command(kPlainCommand + encoded + "\r\n"), kAccepted, 14);
}

int CSmtp::auth_login(int sock, std::string user, std::string password) {
  if (!fits(user.size()) || !fits(password.size())) return 1;
  Dialogue dialogue(sock);
  std::string encoded_user;
  std::string encoded_password;
  if (!dialogue.ready() || !encode(user, encoded_user) || !encode(password, encoded_password)) {
    return 6;
  }
  int sent = dialogue.command("AUTH LOGIN\r\n");
  if (sent == 0) sent = dialogue.command(encoded_user + "\r\n");
  if (sent == 0) sent = dialogue.command(encoded_password + "\r\n");
  return dialogue.expect(sent, kAccepted, 14);
}

int CSmtp::auth_cram_md5(int sock, std::string user, std::string password) {
  if (password.size() >= kSecretRoom || !fits(user.size() + 1 + kDigestText)) return 1;
  Dialogue dialogue(sock);
  if (!dialogue.ready()) return 6;
  const int sent = dialogue.command("AUTH CRAM-MD5\r\n");
  if (sent != 0) return sent;
  std::vector<std::string> words;
  CStr::ext_line(words, dialogue.reply());
  if (words.size() < 2) return 14;

  std::string answer;
  const int answered = answer_challenge(Base64::decode(words[1]), user, password, answer);
  if (answered != 0) return answered;
  return dialogue.expect(dialogue.command(answer + "\r\n"), kAccepted, 14);
}

}  // namespace utility
