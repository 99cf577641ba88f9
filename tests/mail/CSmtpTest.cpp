#include "utility/CSmtp.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <map>
#include <thread>

#include "support/sandbox.h"

namespace fs = std::filesystem;
using utility::CSmtp;
using Lines = std::vector<std::string>;
using Replies = std::map<std::string, std::string>;

namespace {

constexpr char kClose[] = "close";
const std::string kOffer = "250-there\r\n250-AUTH LOGIN PLAIN CRAM-MD5\r\n250 HELP\r\n";
const std::string kChallenge = "334 PHRlc3RAdGVzdD4=\r\n";  // <test@test>

int listen_on_loopback(short first_port, short& port, int backlog = 8) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  // The family takes ports below 32768 only; the sandbox's network is empty, so any of them is
  // free.
  for (port = first_port; port < first_port + 100; ++port) {
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), size) == 0) break;
  }
  EXPECT_EQ(::listen(fd, backlog), 0);
  return fd;
}

// Serves one connection: every command line gets the reply whose key begins it, or "250 ok".
class ScriptedServer {
 public:
  explicit ScriptedServer(Replies replies, short first_port = 2000)
      : replies_(std::move(replies)),
        listener_(listen_on_loopback(first_port, port_)),
        thread_([this] { serve(); }) {}
  ~ScriptedServer() {
    stop();
    ::close(listener_);
  }
  short port() const { return port_; }
  /// What the client sent, line by line, the text of a mail as one line.
  const Lines& stop() {
    ::shutdown(listener_, SHUT_RDWR);
    if (thread_.joinable()) thread_.join();
    return received_;
  }

 private:
  void serve() {
    peer_ = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (peer_ < 0) return;
    bool open = reply("greeting");
    while (open && read_up_to("\r\n")) {
      open = reply(received_.back());
      if (open && received_.back() == "DATA\r\n") open = read_up_to("\r\n.\r\n") && reply("text");
    }
    ::close(peer_);
  }
  bool read_up_to(const std::string& end) {
    std::string text;
    char byte = 0;
    while (::recv(peer_, &byte, 1, 0) == 1) {
      text += byte;
      if (text.size() < end.size() || text.compare(text.size() - end.size(), end.size(), end) != 0)
        continue;
      received_.push_back(text);
      return true;
    }
    return false;
  }
  bool reply(const std::string& command) {
    std::string text = command == "greeting" ? "220 ready\r\n" : "250 ok\r\n";
    for (const auto& [key, value] : replies_) {
      if (command.rfind(key, 0) == 0) text = value;
    }
    if (text == kClose) return false;
    return ::send(peer_, text.data(), text.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(text.size());
  }

  Replies replies_;
  short port_ = 0;
  int listener_;
  int peer_ = -1;
  Lines received_;
  std::thread thread_;
};

CSmtp::send_mail_t mail_to(short port, bool need_auth) {
  static const std::string body = "line 1\r\nline 2";
  return {
      "127.0.0.1",    "user",  "pass",      static_cast<char>(need_auth), port, "me@x", "subject",
      {"a@x", "b@x"}, {"c@x"}, body.data(), static_cast<int>(body.size())};
}

std::size_t open_descriptors() {
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator{}));
}

}  // namespace

TEST(CSmtp, TheDialogueEndsWithTheCodeOfItsFirstFailure) {
  const Lines login = {"AUTH LOGIN\r\n", "dXNlcg==\r\n", "cGFzcw==\r\n"};
  // "user " and the HMAC-MD5 of <test@test> under "pass", as python's hmac module has it.
  const Lines cram = {"AUTH CRAM-MD5\r\n",
                      "dXNlciBlMDk3MDA3ZTE2ZjE4OWIzZWZkMmUzMWRmM2NjZGNhNw==\r\n"};
  const Lines plain = {"AUTH PLAIN AHVzZXIAcGFzcw==\r\n"};
  const Lines envelope = {"MAIL From:<me@x>\r\n",
                          "RCPT To:<a@x>\r\n",
                          "RCPT To:<b@x>\r\n",
                          "RCPT To:<c@x>\r\n",
                          "DATA\r\n",
                          "TEXT",
                          "QUIT\r\n"};
  const struct {
    const char* sentence;
    bool need_auth;
    Replies replies;
    int result;
    std::vector<Lines> sent;  // behind EHLO
  } rows[] = {
      {"plain delivery", false, {}, 0, {envelope}},
      {"the greeting is not checked", false, {{"greeting", "554 no\r\n"}}, 0, {envelope}},
      {"CRAM-MD5 first",
       true,
       {{"EHLO", kOffer}, {"AUTH CRAM", kChallenge}, {cram[1], "235 ok\r\n"}},
       0,
       {cram, envelope}},
      {"then LOGIN",
       true,
       {{"EHLO", kOffer},
        {"AUTH CRAM", kChallenge},
        {cram[1], "535 no\r\n"},
        {"cGFzcw==", "235 ok\r\n"}},
       0,
       {cram, login, envelope}},
      {"then PLAIN",
       true,
       {{"EHLO", kOffer},
        {"AUTH CRAM", "334\r\n"},
        {"cGFzcw==", "535 no\r\n"},
        {"AUTH PLAIN", "235 ok\r\n"}},
       0,
       {{cram[0]}, login, plain, envelope}},
      {"all refused", true, {{"EHLO", kOffer}}, 14, {{cram[0]}, login, plain}},
      {"offered in the last line only",
       true,
       {{"EHLO", "250-x\r\n250 AUTH PLAIN\r\n"}},
       0,
       {envelope}},
      {"EHLO refused", false, {{"EHLO", "550 no\r\n"}}, 9, {}},
      {"no reply to EHLO", false, {{"EHLO", kClose}}, 9, {}},
      {"sender refused", false, {{"MAIL", "550 no\r\n"}}, 9, {{envelope[0]}}},
      {"251 is a refusal",
       false,
       {{"RCPT To:<b", "251 ok\r\n"}},
       9,
       {{envelope[0], envelope[1], envelope[2]}}},
      {"the copy refused",
       false,
       {{"RCPT To:<c", "550 no\r\n"}},
       9,
       {{envelope[0], envelope[1], envelope[2], envelope[3]}}},
      {"the reply to DATA is not checked", false, {{"DATA", "550 no\r\n"}}, 0, {envelope}},
      {"text refused",
       false,
       {{"text", "554 no\r\n"}},
       9,
       {{envelope[0], envelope[1], envelope[2], envelope[3], envelope[4], "TEXT"}}},
      {"closed before QUIT is answered", false, {{"QUIT", kClose}}, 0, {envelope}},
      {"a reply of 10 MB", false, {{"EHLO", "250" + std::string(10000000, 'x')}}, 9, {}},
  };
  sandbox::run([&rows] {
    const std::size_t descriptors = open_descriptors();
    for (const auto& row : rows) {
      SCOPED_TRACE(row.sentence);
      ScriptedServer server(row.replies);
      auto mail = mail_to(server.port(), row.need_auth);
      EXPECT_EQ(CSmtp::sendmail(mail), row.result);
      Lines expected = {"EHLO 127.0.0.1 \r\n"};
      for (const Lines& lines : row.sent)
        expected.insert(expected.end(), lines.begin(), lines.end());
      Lines sent = server.stop();
      for (std::string& line : sent) {
        if (line.rfind("Date: ", 0) != 0) continue;
        EXPECT_EQ(
            line.substr(line.find("\r\n")),
            std::string("\r\nFrom: me@x\r\nTo: a@x, b@x\r\nCc: c@x\r\nSubject: subject\r\n\r\n"
                        "line 1\r\nline 2") +
                '\0' + "\r\n.\r\n");
        line = "TEXT";
      }
      EXPECT_EQ(sent, expected);
    }
    EXPECT_EQ(open_descriptors(), descriptors);
  });
}

TEST(CSmtp, TestingAnAccountTellsHowFarItCame) {
  const struct {
    const char* sentence;
    bool need_auth;
    Replies replies;
    int result, flags;
  } rows[] = {
      {"without authentication", false, {}, 0, 1 | 4},
      {"with",
       true,
       {{"EHLO", kOffer}, {"AUTH CRAM", "235 x\r\n"}, {"cGFzcw==", "235 x\r\n"}},
       0,
       1 | 2 | 4},
      {"refused", true, {{"EHLO", kOffer}}, 14, 1},
      {"sender refused", false, {{"MAIL", "550 no\r\n"}}, 9, 1},
      {"closed at once", false, {{"greeting", kClose}}, 9, 1},
  };
  sandbox::run([&rows] {
    for (const auto& row : rows) {
      ScriptedServer server(row.replies);
      CSmtp::test_mail_t account{"127.0.0.1",   "user", "pass", static_cast<char>(row.need_auth),
                                 server.port(), "me@x"};
      char flags = 99;
      const int result = CSmtp::testmail(account, flags);
      // A peer that is gone shows as a failed send or as an empty reply, as the packets have it.
      EXPECT_TRUE(result == row.result || (result == 7 && row.replies.count("greeting") == 1))
          << row.sentence;
      EXPECT_EQ(flags, row.flags) << row.sentence;
    }
    CSmtp::test_mail_t incomplete{"", "", "", 0, 0, "me@x"};
    char flags = 99;
    EXPECT_EQ(CSmtp::testmail(incomplete, flags), 1);
    EXPECT_EQ(flags, 0);
  });
}

TEST(CSmtp, ConnectingLeavesTheCallersAlarmAlone) {
  sandbox::run([] {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGALRM, &action, nullptr);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGALRM);
    ::pthread_sigmask(SIG_BLOCK, &blocked, nullptr);

    short full_port = 0;
    const int full = listen_on_loopback(3000, full_port, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(full_port));
    const int filler = ::socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(::connect(filler, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);

    ScriptedServer at_service_port({}, 25);
    const struct {
      const char* sentence;
      const char* server;
      short port;
      int result;
    } rows[] = {
        {"refused", "127.0.0.1", 4000, 5},
        {"an unknown name", "no-such-host.invalid", 4000, 4},
        {"the port of the service", "127.0.0.1", 0, 0},
        {"no answer, and the alarm is blocked", "127.0.0.1", full_port, 11},
    };
    for (const auto& row : rows) {
      auto mail = mail_to(row.port, false);
      mail.server = row.server;
      const auto begin = std::chrono::steady_clock::now();
      EXPECT_EQ(CSmtp::sendmail(mail), row.result) << row.sentence;
      EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(6)) << row.sentence;
      EXPECT_TRUE(CSmtp::m_mutex.try_lock()) << row.sentence;
      CSmtp::m_mutex.unlock();
    }
    struct sigaction after {};
    ::sigaction(SIGALRM, nullptr, &after);
    EXPECT_EQ(after.sa_handler, action.sa_handler);
    EXPECT_NE(after.sa_flags & SA_RESTART, 0);
    sigset_t mask;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGALRM), 1);
    ::close(full);
    ::close(filler);
  });
}

TEST(CSmtp, SessionsWaitForEachOther) {
  sandbox::run([] {
    ScriptedServer server({});
    auto mail = mail_to(server.port(), false);
    mail.to.clear();
    EXPECT_EQ(CSmtp::sendmail(mail), 1);
    mail.to = {"a@x"};
    ASSERT_EQ(CSmtp::init(), 0);
    std::atomic<int> result{-1};
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
  const struct {
    const char* reply;
    int methods;
  } rows[] = {
      {"250-x\r\n250-AUTH LOGIN PLAIN CRAM-MD5\r\n250 ok\r\n", 7},
      {"250-AUTH PLAIN\r\n250-AUTH LOGIN\r\n", 2},
      {"250-AUTH CRAM-MD5", 4},
      {"250 AUTH LOGIN\r\n250-AUTH=LOGIN\r\n 250-AUTH LOGIN\r\n", 0},
      {"", 0},
  };
  for (const auto& row : rows) {
    std::string reply = row.reply;
    char methods = 99;
    EXPECT_EQ(CSmtp::parseauth(reply.data(), methods), 0);
    EXPECT_EQ(methods, row.methods) << row.reply;
  }
  char methods = 99;
  EXPECT_EQ(CSmtp::parseauth(nullptr, methods), 1);
  EXPECT_EQ(methods, 99);
}

TEST(CSmtp, StepsKeepToTheirBuffersAndTimes) {
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  char command[] = "NOOP\r\n";
  char reply[8] = "old";
  int room = 4;
  const auto send = [&](int sock, char* text, int length, int mode, char* buffer) {
    room = 4;
    return CSmtp::sendcmd(sock, text, length, mode, buffer, room);
  };
  EXPECT_EQ(send(ends[0], nullptr, 6, 1, reply), 1);
  EXPECT_EQ(send(-1, command, 6, 1, reply), 1);
  EXPECT_EQ(send(ends[0], command, 0, 1, reply), 1);
  EXPECT_EQ(send(ends[0], command, 6, 1, nullptr), 1);

  // Nothing of credentials that do not fit may have been sent.
  const std::string long_text(5000, 'x');
  for (const auto method : {CSmtp::auth_plain, CSmtp::auth_login, CSmtp::auth_cram_md5}) {
    EXPECT_EQ(method(ends[0], long_text, "p"), 1);
    EXPECT_EQ(method(ends[0], "u", long_text), 1);
  }
  EXPECT_EQ(CSmtp::IsReadable(ends[1], 0), 18);
  EXPECT_EQ(CSmtp::IsReadable(-1, 0), 17);

  std::thread peer([&] {
    EXPECT_EQ(::send(ends[1], "123456", 6, 0), 6);
    EXPECT_EQ(CSmtp::IsReadable(ends[1], 3), 0);
    EXPECT_EQ(::send(ends[1], "789", 3, 0), 3);
  });
  char gathered[8] = "";
  EXPECT_EQ(send(ends[0], command, 6, 1, reply), 0);
  peer.join();
  EXPECT_EQ(room, 4);
  EXPECT_STREQ(reply, "1234") << "the rest of the buffer is the caller's";
  EXPECT_EQ(CSmtp::recvex(ends[0], gathered, sizeof gathered - 1, 0), 5);
  EXPECT_STREQ(gathered, "56789");
  EXPECT_EQ(CSmtp::recvex(-1, gathered, 4, 0), -17);
  ::close(ends[1]);
  EXPECT_EQ(send(ends[0], command, 6, 1, reply), 7) << "and no SIGPIPE";
  ::close(ends[0]);
}

namespace {

// A mail server that knows one account and delivers into files named after recipients; BASE stands
// for its directory. The authenticators follow.
constexpr char kServerConfig[] = R"(
primary_hostname = test.local
spool_directory = BASE/spool
log_file_path = BASE/log-%s
helo_accept_junk_hosts = *
keep_environment =
tls_advertise_hosts =
auth_advertise_hosts = *
host_lookup =
rfc1413_hosts =
acl_smtp_rcpt = rcpt
begin acl
rcpt:
  accept authenticated = *
  deny
begin routers
all:
  driver = accept
  transport = file
begin transports
file:
  driver = appendfile
  user = mail
  use_lockfile = false
  file = BASE/mail/${if eq{$local_part}{a}{a}{${if eq{$local_part}{b}{b}{c}}}}
begin authenticators
)";
const std::map<std::string, std::string> kAuthenticators = {
    {"CRAM-MD5", R"(
cram:
  driver = cram_md5
  public_name = CRAM-MD5
  server_secret = ${if eq{$auth1}{alice}{secret}fail}
)"},
    {"LOGIN", R"(
login:
  driver = plaintext
  public_name = LOGIN
  server_prompts = Username:: : Password::
  server_condition = ${if and{{eq{$auth1}{alice}}{eq{$auth2}{secret}}}}
)"},
    {"PLAIN", R"(
plain:
  driver = plaintext
  public_name = PLAIN
  server_prompts = :
  server_condition = ${if and{{eq{$auth2}{alice}}{eq{$auth3}{secret}}}}
)"},
};

// The real server for one connection, as inetd starts it; gone when the object is.
class MailServer {
 public:
  MailServer() : listener_(listen_on_loopback(2525, port_)), thread_([this] { serve(); }) {}
  ~MailServer() {
    thread_.join();
    ::close(listener_);
  }
  short port() const { return port_; }

 private:
  void serve() {
    const int peer = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    const pid_t child = ::fork();
    if (child == 0) {
      ::dup2(peer, 0);
      ::dup2(peer, 1);
      ::execl("/usr/sbin/exim4", "exim4", "-odi", "-bs", nullptr);
      ::_exit(127);
    }
    ::close(peer);
    ::waitpid(child, nullptr, 0);
  }

  short port_ = 0;
  int listener_;
  std::thread thread_;
};

}  // namespace

TEST(CSmtp, ARealServerDeliversWhatWasSent) {
  for (const auto& [method, authenticator] : kAuthenticators) {
    SCOPED_TRACE(method);
    sandbox::run([&text = authenticator] {
      const std::string base = sandbox::scratch();
      std::string config = kServerConfig + text;
      for (std::size_t at = 0; (at = config.find("BASE")) != std::string::npos;)
        config.replace(at, 4, base);
      sandbox::write_file("/etc/exim4/exim4.conf", config);  // the one place it trusts
      for (const char* dir : {"", "/mail", "/spool"}) {
        fs::create_directory(base + dir);
        fs::permissions(base + dir, fs::perms(0777));
      }
      auto mail = mail_to(0, true);
      mail.user = "alice";
      mail.from = "me@test.local";
      mail.to = {"a@test.local", "b@test.local"};
      mail.cc = {"c@test.local"};
      const auto send_with = [&](const char* password) {
        const MailServer server;
        mail.port = server.port();
        mail.password = password;
        return CSmtp::sendmail(mail);
      };
      EXPECT_EQ(send_with("wrong"), 14);
      ASSERT_EQ(send_with("secret"), 0);
      const std::string sent =
          "To: a@test.local, b@test.local\nCc: c@test.local\nSubject: subject\n\nline 1\nline 2";
      for (const char* name : {"/mail/a", "/mail/b", "/mail/c"}) {
        const std::string delivered = sandbox::read_file(base + name);
        EXPECT_NE(delivered.find(sent + '\0' + '\n'), std::string::npos) << delivered;
      }
    });
  }
}
