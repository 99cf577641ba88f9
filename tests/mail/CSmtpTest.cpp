#include "utility/CSmtp.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <map>
#include <thread>

#include "support/open_descriptors.h"
#include "support/sandbox.h"

namespace fs = std::filesystem;
using utility::CSmtp;

namespace {

// A letter for every line that a client may send here, so that a dialogue reads as a word.
const std::map<std::string, char> kLetters = {
    {"EHLO 127.0.0.1 \r\n", 'E'},
    {"AUTH CRAM-MD5\r\n", 'C'},
    // "user " and the HMAC-MD5 of <test@test> under "pass", as python's hmac module has it.
    {"dXNlciBlMDk3MDA3ZTE2ZjE4OWIzZWZkMmUzMWRmM2NjZGNhNw==\r\n", 'c'},
    {"AUTH LOGIN\r\n", 'L'},
    {"dXNlcg==\r\n", 'u'},
    {"cGFzcw==\r\n", 'p'},
    {"AUTH PLAIN AHVzZXIAcGFzcw==\r\n", 'P'},
    {"MAIL From:<me@x>\r\n", 'F'},
    {"RCPT To:<a@x>\r\n", '1'},
    {"RCPT To:<b@x>\r\n", '2'},
    {"RCPT To:<c@x>\r\n", '3'},
    {"DATA\r\n", 'D'},
    {".\r\n", 'T'},
    {"QUIT\r\n", 'Q'},
};
// What the server answers to a letter; 'G' is its greeting. Everything else is "250 ok".
using Replies = std::map<char, std::string>;

const std::string kClose = "close";
const std::string kYes = "235 ok\r\n";
const std::string kNo = "550 no\r\n";
const std::string kOffer = "250-there\r\n250-AUTH LOGIN PLAIN CRAM-MD5\r\n250 HELP\r\n";
const std::string kChallenge = "334 PHRlc3RAdGVzdD4=\r\n";  // <test@test>

// The sandbox's network is empty, so every port is free.
constexpr short kPort = 2525;

// Serves one connection after its script.
class Server {
 public:
  explicit Server(Replies replies, short port = kPort)
      : replies_(std::move(replies)), listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    const int on = 1;  // the port's last connection may not be over for the system
    ::setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    EXPECT_EQ(::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::listen(listener_, 1), 0);
    thread_ = std::thread([this] { serve(); });
  }
  ~Server() {
    stop();
    ::close(listener_);
  }
  const std::string& text() const { return text_; }
  /// The client's lines as letters, '?' for any other; waits until the client is gone.
  const std::string& stop() {
    ::shutdown(listener_, SHUT_RDWR);
    if (thread_.joinable()) thread_.join();
    return received_;
  }

 private:
  void serve() {
    peer_ = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (peer_ < 0) return;
    char letter = 'G';
    while (reply(letter) && read_letter(letter)) received_ += letter;
    ::close(peer_);
  }
  bool reply(char letter) const {
    const auto found = replies_.find(letter);
    const std::string text = found == replies_.end() ? "250 ok\r\n" : found->second;
    const auto size = static_cast<ssize_t>(text.size());
    return text != kClose && ::send(peer_, text.data(), text.size(), MSG_NOSIGNAL) == size;
  }
  /// One line, or after DATA all that belongs to the text.
  bool read_letter(char& letter) {
    const bool is_text = letter == 'D';
    std::string line;
    do {
      line.clear();
      for (char byte = 0; byte != '\n'; line += byte) {
        if (::recv(peer_, &byte, 1, 0) != 1) return false;
      }
      if (is_text) text_ += line;
    } while (is_text && line != ".\r\n");
    const auto known = kLetters.find(line);
    letter = known == kLetters.end() ? '?' : known->second;
    return true;
  }

  Replies replies_;
  int listener_;
  int peer_ = -1;
  std::string received_;
  std::string text_;
  std::thread thread_;
};

// What follows a zero byte in a text is no part of a command.
CSmtp::send_mail_t mail_to(short port, bool need_auth = false) {
  using namespace std::string_literals;
  static const std::string body = "line 1\r\nline 2";
  CSmtp::send_mail_t mail{"127.0.0.1\0x"s,
                          "user",
                          "pass",
                          static_cast<char>(need_auth),
                          port,
                          "me@x\0y"s,
                          "subject",
                          {"a@x", "b@x"},
                          {"c@x"},
                          body.data(),
                          0};
  mail.body_len = static_cast<int>(body.size());
  return mail;
}

}  // namespace

TEST(CSmtp, TheDialogueEndsWithTheCodeOfItsFirstFailure) {
  const std::string mail_text = std::string("From: me@x\0y", 12) +
                                std::string(
                                    "\r\nTo: a@x, b@x\r\nCc: c@x\r\nSubject: subject\r\n\r\n"
                                    "line 1\r\nline 2") +
                                '\0' + "\r\n.\r\n";
  const struct {
    const char* sentence;
    bool need_auth;
    Replies replies;
    int result;
    const char* sent;
    int test_flags;  // what a test of the account finds
  } rows[] = {
      {"an offer is not taken unasked", false, {{'E', kOffer}}, 0, "EF123DTQ", 1 | 4},
      {"the greeting is not checked", false, {{'G', kNo}}, 0, "EF123DTQ", 1 | 4},
      {"CRAM-MD5 first", true, {{'E', kOffer}, {'C', kChallenge}, {'c', kYes}}, 0, "ECcF123DTQ", 7},
      {"then LOGIN", true, {{'E', kOffer}, {'C', kChallenge}, {'p', kYes}}, 0, "ECcLupF123DTQ", 7},
      {"then PLAIN", true, {{'E', kOffer}, {'C', "334\r\n"}, {'P', kYes}}, 0, "ECLupPF123DTQ", 7},
      {"all refused", true, {{'E', kOffer}}, 14, "ECLupP", 1},
      {"offered in the last line", true, {{'E', "250-x\r\n250 AUTH PLAIN\r\n"}}, 0, "EF123DTQ", 7},
      {"EHLO refused", false, {{'E', kNo}}, 9, "E", 1},
      {"no reply to EHLO", false, {{'E', kClose}}, 9, "E", 1},
      {"sender refused", false, {{'F', kNo}}, 9, "EF", 1},
      {"251 is a refusal", false, {{'2', "251 ok\r\n"}}, 9, "EF12", 1 | 4},
      {"the copy refused", false, {{'3', kNo}}, 9, "EF123", 1 | 4},
      {"the reply to DATA is not checked", false, {{'D', kNo}}, 0, "EF123DTQ", 1 | 4},
      {"text refused", false, {{'T', kNo}}, 9, "EF123DT", 1 | 4},
      {"a reply of 8 MB", false, {{'E', "250" + std::string(8000000, 'x')}}, 9, "E", 1},
  };
  sandbox::run([&] {
    const std::size_t descriptors = open_descriptors();
    char flags = 99;
    for (const auto& row : rows) {
      SCOPED_TRACE(row.sentence);
      auto mail = mail_to(kPort, row.need_auth);
      Server server(row.replies);
      EXPECT_EQ(CSmtp::sendmail(mail), row.result);
      EXPECT_EQ(server.stop(), row.sent);
      if (row.result == 0) {
        EXPECT_EQ(server.text().substr(0, 6), "Date: ");
        EXPECT_EQ(server.text().substr(server.text().find("\r\n") + 2), mail_text);
      }
      CSmtp::test_mail_t account{mail.server,    mail.user, mail.password,
                                 mail.need_auth, kPort,     mail.from};
      const Server another(row.replies);
      EXPECT_EQ(CSmtp::testmail(account, flags) == 0, (row.test_flags & 4) != 0);
      EXPECT_EQ(flags, row.test_flags);
    }
    EXPECT_EQ(open_descriptors(), descriptors);
    CSmtp::test_mail_t incomplete{"", "", "", 0, 0, "me@x"};
    EXPECT_EQ(CSmtp::testmail(incomplete, flags), 1);
    EXPECT_EQ(flags, 0);
    auto mail = mail_to(kPort);
    mail.to.clear();
    EXPECT_EQ(CSmtp::sendmail(mail), 1);
  });
}

// Runs `action` while a signal interrupts its thread every 20 ms, for 10 s at most. Returns the
// seconds that it took.
template <class Action>
double interrupted(Action action) {
  using std::chrono::steady_clock;
  struct sigaction handler {};
  handler.sa_handler = [](int) {};
  ::sigaction(SIGUSR1, &handler, nullptr);
  const auto begin = steady_clock::now();
  std::atomic<bool> over{false};
  std::thread other([&over, target = ::pthread_self()] {
    for (int count = 0; count < 500 && !over; ++count) {
      ::pthread_kill(target, SIGUSR1);
      ::usleep(20000);
    }
  });
  action();
  const std::chrono::duration<double> passed = steady_clock::now() - begin;
  over = true;
  other.join();
  return passed.count();
}

volatile sig_atomic_t callers_alarms = 0;

// In a thread that has the alarm blocked, while the main thread cannot take it: it waits for the
// end of a child.
TEST(CSmtp, ConnectingLeavesTheCallersAlarmAlone) {
  const struct {
    const char* sentence;
    const char* server;
    short port;
    int result;
  } rows[] = {
      {"refused", "127.0.0.1", kPort, 5},
      {"an unknown name", "no-such-host.invalid", kPort, 4},
      {"the port of the service", "127.0.0.1", 0, 0},
      {"no answer", "127.0.0.1", 4000, 11},
  };
  sandbox::run([&rows] {
    ASSERT_EQ(std::system("iptables -A INPUT -p tcp --dport 4000 -j DROP"), 0);
    const Server at_service_port({}, 25);
    struct sigaction action {};
    struct sigaction after {};
    action.sa_handler = [](int) { callers_alarms = 1; };
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGALRM, &action, nullptr);
    int gate[2];
    ASSERT_EQ(::pipe(gate), 0);
    std::thread sender([&] {
      sigset_t mask;
      sigemptyset(&mask);
      sigaddset(&mask, SIGALRM);
      ::pthread_sigmask(SIG_BLOCK, &mask, nullptr);
      for (const auto& row : rows) {
        SCOPED_TRACE(row.sentence);
        auto mail = mail_to(row.port);
        mail.server = row.server;
        const double passed = interrupted([&] { EXPECT_EQ(CSmtp::sendmail(mail), row.result); });
        EXPECT_LT(passed, 6);
        EXPECT_EQ(passed >= 3, row.result == 11);
        EXPECT_TRUE(CSmtp::m_mutex.try_lock());
        CSmtp::m_mutex.unlock();
      }
      ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
      EXPECT_EQ(sigismember(&mask, SIGALRM), 1);
      EXPECT_EQ(::write(gate[1], "", 1), 1);
    });
    char over = 1;
    if (::vfork() == 0) {  // NOLINT(clang-analyzer-security.insecureAPI.vfork)
      while (::read(gate[0], &over, 1) < 0) continue;  // NOLINT(clang-analyzer-unix.Vfork)
      ::_exit(0);
    }
    sender.join();
    ::sigaction(SIGALRM, nullptr, &after);
    EXPECT_EQ(after.sa_handler, action.sa_handler);
    EXPECT_NE(after.sa_flags & SA_RESTART, 0);
    EXPECT_EQ(callers_alarms, 0);
  });
}

TEST(CSmtp, SessionsWaitForEachOther) {
  sandbox::run([] {
    const Server server({});
    auto mail = mail_to(kPort);
    std::atomic<int> result{-1};
    ASSERT_EQ(CSmtp::init(), 0);
    std::thread other([&] { result = CSmtp::sendmail(mail); });
    EXPECT_FALSE(CSmtp::m_mutex.try_lock());
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(result, -1);
    CSmtp::destroy();
    other.join();
    EXPECT_EQ(result, 0);
  });
}

TEST(CSmtp, MethodsAreReadFromOneLineOnly) {
  const std::pair<std::string, int> rows[] = {
      {"250-x\r\n250-AUTH LOGIN PLAIN CRAM-MD5\r\n250 ok\r\n", 7},
      {"250-AUTH PLAIN\r\n250-AUTH LOGIN\r\n", 2},
      {"250-AUTH CRAM-MD5", 4},
      {"250 AUTH LOGIN\r\n250-AUTH=LOGIN\r\n 250-AUTH LOGIN\r\n", 0},
      {"", 0},
  };
  char methods = 99;
  EXPECT_EQ(CSmtp::parseauth(nullptr, methods), 1);
  EXPECT_EQ(methods, 99);
  for (auto [reply, expected] : rows) {
    EXPECT_EQ(CSmtp::parseauth(reply.data(), methods), 0);
    EXPECT_EQ(methods, expected) << reply;
  }
}

TEST(CSmtp, StepsKeepToTheirBuffersAndTimes) {
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  char command[] = "NOOP\r\n";
  char reply[] = "oldoldo";
  int room = 4;
  EXPECT_EQ(CSmtp::sendcmd(ends[0], nullptr, 6, 1, reply, room), 1);
  EXPECT_EQ(CSmtp::sendcmd(-1, command, 6, 1, reply, room), 1);
  EXPECT_EQ(CSmtp::sendcmd(ends[0], command, 0, 1, reply, room), 1);
  EXPECT_EQ(CSmtp::sendcmd(ends[0], command, 6, 1, nullptr, room), 1);
  const std::string long_text(5000, 'x');
  for (const auto method : {CSmtp::auth_plain, CSmtp::auth_login, CSmtp::auth_cram_md5}) {
    EXPECT_EQ(method(ends[0], long_text, "p"), 1);
    EXPECT_EQ(method(ends[0], "u", long_text), 1);
  }
  EXPECT_EQ(CSmtp::IsReadable(ends[1], 0), 18) << "nothing of what is refused may be sent";
  EXPECT_EQ(CSmtp::IsReadable(-1, 0), 17);

  std::thread peer([&] {
    EXPECT_EQ(::send(ends[1], "123456", 6, 0), 6);
    EXPECT_EQ(CSmtp::IsReadable(ends[1], 3), 0);
    EXPECT_EQ(::send(ends[1], "789", 3, 0), 3);
  });
  char gathered[8] = "";
  EXPECT_EQ(CSmtp::sendcmd(ends[0], command, 6, 1, reply, room), 0);
  peer.join();
  EXPECT_EQ(room, 4);
  EXPECT_STREQ(reply, "1234ldo") << "the rest of the buffer is the caller's";
  EXPECT_EQ(CSmtp::recvex(ends[0], gathered, sizeof gathered - 1, 0), 5);
  EXPECT_STREQ(gathered, "56789");
  EXPECT_EQ(CSmtp::recvex(-1, gathered, 4, 0), -17);
  EXPECT_LT(interrupted([&] { EXPECT_EQ(CSmtp::IsReadable(ends[0], 1), 18); }), 5);

  std::vector<char> block(8000000, 'x');  // more than the socket holds
  std::thread leaver([&] {
    EXPECT_EQ(CSmtp::IsReadable(ends[1], 3), 0);
    ::close(ends[1]);
  });
  EXPECT_EQ(CSmtp::sendcmd(ends[0], block.data(), 8000000, 0, nullptr, room), 7) << "sent in part";
  leaver.join();
  EXPECT_EQ(CSmtp::sendcmd(ends[0], command, 6, 1, reply, room), 7) << "and no SIGPIPE";
  ::close(ends[0]);
}

TEST(CSmtp, ARealServerAuthenticatesAndDelivers) {
  sandbox::run([] {
    const std::string base = sandbox::scratch();
    std::string config = sandbox::read_file(FIXTURES "/exim4.conf");
    for (std::size_t at = 0; (at = config.find("BASE/")) != std::string::npos;)
      config.replace(at, 4, base);
    sandbox::write_file("/etc/exim4/exim4.conf", config);  // the one place that it trusts
    for (const char* dir : {"", "/mail", "/spool"}) {
      fs::create_directory(base + dir);
      fs::permissions(base + dir, fs::perms(0777));
    }
    ASSERT_EQ(std::system("exim4 -bd -odi -oX 127.0.0.1.2525 -oP /etc/exim4/pid"), 0);
    ASSERT_EQ(std::system("timeout 60 bash -c 'until : < /dev/tcp/127.0.0.1/2525; do sleep 0.05; "
                          "done' 2> /dev/null"),
              0);
    auto mail = mail_to(kPort, true);
    mail.user = "alice";
    mail.from = "me@test.local";
    mail.to = {"a@test.local", "b@test.local"};
    mail.cc = {"c@test.local"};
    mail.password = "wrong";
    EXPECT_EQ(CSmtp::sendmail(mail), 14);
    mail.password = "secret";
    EXPECT_EQ(CSmtp::sendmail(mail), 0);
    const std::string sent =
        "To: a@test.local, b@test.local\nCc: c@test.local\nSubject: subject\n\nline 1\nline 2";
    for (const char* name : {"/mail/a", "/mail/b", "/mail/c"}) {
      const std::string delivered = sandbox::read_file(base + name);
      EXPECT_NE(delivered.find(sent + '\0' + '\n'), std::string::npos) << delivered;
    }
    for (const auto method : {CSmtp::auth_cram_md5, CSmtp::auth_login, CSmtp::auth_plain}) {
      int sock = -1;
      char text[4096] = "EHLO x\r\n";
      int room = sizeof text;
      ASSERT_EQ(CSmtp::connecttoserv("127.0.0.1", kPort, sock), 0);
      ASSERT_EQ(CSmtp::IsReadable(sock, 3), 0);
      ASSERT_EQ(CSmtp::sendcmd(sock, text, 8, 2, text, room), 0);
      EXPECT_EQ(method(sock, "alice", "wrong"), 14);
      EXPECT_EQ(method(sock, "alice", "secret"), 0);
      ::close(sock);
    }
  });
}
