#include "utility/CSmtp.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <future>
#include <map>
#include <thread>

#include "support/cases.h"
#include "support/sandbox.h"

using utility::CSmtp;
using namespace std::chrono_literals;
using namespace std::string_literals;

namespace {

// What follows a zero byte is no part of a command.
CSmtp::send_mail_t mail_to(const std::string& server, short port = 0) {
  const std::vector<std::string> to{"a@x", "b@x"}, cc{"c@x"};
  return {server, "user", "pass", 0, port, "me@x\0y"s, "subject", to, cc, "line 1\r\nline 2", 14};
}

// What the server answers to each line of the client, to what is not said here to the liking of all
// methods of authentication; its greeting as "greeting". Where it has no answer, it leaves.
using Answers = std::map<std::string, std::string>;

// Serves one client, and returns what it hears.
std::string serve(int sock, Answers answers) {
  std::string heard, said = "greeting", message(4096, ' ');
  for (bool is_text = false;;) {
    const std::string& answer = answers.emplace(said, "235 PHRlc3RAdGVzdD4=\r\n").first->second;
    if (answer.empty()) break;
    if (!is_text) ::send(sock, answer.data(), answer.size(), MSG_NOSIGNAL);
    const ssize_t size = ::recv(sock, message.data(), message.size(), 0);
    if (size < 1) break;
    said = message.substr(0, static_cast<std::size_t>(size));
    std::replace(said.begin(), said.end(), '\0', '~');
    is_text = said.compare(0, 6, "Date: ") == 0;
    heard += is_text ? said.erase(0, said.find('\n') + 1) : said;
    if (said == "\r\n.\r\n") said.erase(0, 2);
  }
  ::close(sock);
  return heard;
}

// Lets `client` talk to that server, and returns what it hears.
template <class Client>
std::string talk(const Answers& answers, Client client) {
  int ends[2];
  EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
  auto heard = std::async(std::launch::async, serve, ends[1], answers);
  client(ends[0]);
  ::close(ends[0]);
  return heard.get();
}

// A real server; at its port 26 it knows LOGIN only, at 27 PLAIN.
void start_exim() {
  sandbox::write_file("/etc/exim4/exim4.conf", sandbox::read_file(FIXTURES "/exim4.conf"));
  ASSERT_EQ(std::system("exim4 -bd -odi && until ss -tln | grep -q :27; do sleep 0.05; done"), 0);
}

// Interrupts the calling thread every 20 ms until it ends; who does it has the same signal mask.
void be_interrupted() {
  struct sigaction handler {};
  handler.sa_handler = [](int) {};
  ::sigaction(SIGUSR1, &handler, nullptr);
  const auto interrupt = [thread = ::gettid()] {
    while (::tgkill(::getpid(), thread, SIGUSR1) == 0) ::usleep(20000);
  };
  std::thread(interrupt).detach();
}

volatile sig_atomic_t alarms = 0;

}  // namespace

TEST(CSmtp, TheDialogueEndsWithTheCodeOfItsFirstFailure) {
  const std::string big(8000000, 'x');
  Answers answers;
  std::string said, expected;
  const auto line = [&](const std::string& words) {
    const std::string text = words.substr(3) + "\r\n";
    if (words[0] == 'C') expected += said = text;
    answers[said] += words[0] == 'S' ? text : "";
  };
  const auto put = [&](char need_auth, int body_len) {
    auto mail = mail_to("127.0.0.1\0x"s);
    mail.need_auth = static_cast<char>(need_auth - '0');
    if (body_len > 14) mail.body = big.data(), mail.body_len = body_len;
    int result = -1;
    EXPECT_EQ(talk(answers, [&](int sock) { result = CSmtp::putmail(sock, mail); }), expected);
    return result;
  };
  const auto test = [&](char need_auth) {
    CSmtp::test_mail_t account{"127.0.0.1", "user", "pass", 0, 0, "me@x"};
    account.need_auth = static_cast<char>(need_auth - '0');
    int tested = -1;
    char flags = 0;
    talk(answers, [&](int sock) { tested = CSmtp::test_valid(sock, account, flags); });
    EXPECT_EQ(tested == 0, (flags & 4) != 0);
    return int{flags};
  };
  const auto fresh = [&] {
    answers.clear();
    said = "greeting", expected = "";
    return Calls{{"said", call(line)}, {"putmail", call(put)}, {"test_valid", call(test)}};
  };
  run_cases(FIXTURES "/dialogues.txt", fresh);
}

TEST(CSmtp, CredentialsFitIntoACommandOrStayHere) {
  const auto by = [](int (*method)(int sock, std::string user, std::string password)) {
    return call([method](const std::string& user, const std::string& password, std::string& heard) {
      int result = -1;
      heard = talk({}, [&](int sock) { result = method(sock, user, password); }).substr(0, 70);
      return result;
    });
  };
  run_cases(FIXTURES "/credentials.txt", {{"plain", by(CSmtp::auth_plain)},
                                          {"login", by(CSmtp::auth_login)},
                                          {"cram", by(CSmtp::auth_cram_md5)}});
  auto mail = mail_to(std::string(5000, 'h'));
  const auto client = [&](int sock) { EXPECT_EQ(CSmtp::putmail(sock, mail), 9); };
  EXPECT_EQ(talk({}, client).size(), 4095U) << "a longer command is cut";
  mail.to.clear();
  EXPECT_EQ(CSmtp::putmail(-1, mail), 1);
}

// In a thread that has the alarm blocked, while the main thread waits for a child and takes none.
TEST(CSmtp, ConnectingLeavesTheCallersAlarmAlone) {
  start_exim();
  ASSERT_EQ(std::system("iptables -A INPUT -p tcp --dport 4000 -j DROP"), 0);
  struct sigaction action {};
  action.sa_handler = [](int) { alarms = alarms + 1; };
  ::sigaction(SIGALRM, &action, nullptr);
  std::atomic<bool> over{false};
  std::thread sender([&] {
    sigset_t mask{};
    sigaddset(&mask, SIGALRM);
    ::pthread_sigmask(SIG_BLOCK, &mask, nullptr);
    be_interrupted();
    const std::tuple<const char*, short, int> rows[] = {
        {"127.0.0.1", 2525, 5},
        {"no-such-host.invalid", 25, 4},
        {"127.0.0.1", 0, 9},       // who has not authenticated may not send
        {"127.0.0.1", 4000, 11}};  // the last, so that no other takes its alarm
    const int descriptors = sandbox::open_descriptors();
    for (const auto& [server, port, result] : rows) {
      auto mail = mail_to(server, port);
      const auto begin = std::chrono::steady_clock::now();
      EXPECT_EQ(CSmtp::sendmail(mail), result);
      EXPECT_EQ(std::chrono::steady_clock::now() - begin >= 3s, result == 11);
      EXPECT_EQ(::alarm(0), 0U) << "none is left";
    }
    EXPECT_EQ(sandbox::open_descriptors(), descriptors);
    ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGALRM), 1);
    over = true;
  });
  if (::vfork() == 0) {            // NOLINT(clang-analyzer-security.insecureAPI.vfork)
    while (!over) ::usleep(1000);  // NOLINT(clang-analyzer-unix.Vfork)
    ::_exit(0);
  }
  sender.join();
  ::raise(SIGALRM);
  EXPECT_EQ(alarms, 1) << "this one and no other";

  ASSERT_EQ(CSmtp::init(), 0);
  auto mail = mail_to("127.0.0.1", 2525);
  auto other = std::async(std::launch::async, CSmtp::sendmail, std::ref(mail));
  EXPECT_EQ(other.wait_for(100ms), std::future_status::timeout) << "sessions wait for each other";
  CSmtp::destroy();
  EXPECT_EQ(other.get(), 5);
}

TEST(CSmtp, StepsKeepToTheirBuffersAndTimes) {
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  char command[] = "NOOP\r\n", reply[] = "oldoldo", flags = 99;
  int room = 4;
  EXPECT_EQ(CSmtp::sendcmd(ends[0], nullptr, 6, 1, reply, room), 1);
  EXPECT_EQ(CSmtp::sendcmd(-1, command, 6, 1, reply, room), 1);
  EXPECT_EQ(CSmtp::sendcmd(ends[0], command, 0, 1, reply, room), 1);
  EXPECT_EQ(CSmtp::sendcmd(ends[0], command, 6, 1, nullptr, room), 1);
  EXPECT_EQ(CSmtp::IsReadable(ends[1], 0), 18) << "nothing of what is refused may be sent";
  EXPECT_EQ(CSmtp::IsReadable(-1, 0), 17);
  auto mail = mail_to("127.0.0.1");
  EXPECT_EQ(CSmtp::putmail(ends[0], mail), 18) << "there is no greeting";
  EXPECT_EQ(CSmtp::recvex(-1, reply, 4, 0), -17);
  EXPECT_EQ(CSmtp::parseauth(nullptr, flags), 1);

  EXPECT_EQ(::send(ends[1], "123456789", 9, 0), 9);
  EXPECT_EQ(CSmtp::sendcmd(ends[0], command, 6, 1, reply, room), 0);
  EXPECT_EQ(room, 4);
  EXPECT_STREQ(reply, "1234ldo") << "the rest of the buffer is the caller's";
  EXPECT_EQ(CSmtp::recvex(ends[0], reply, 3, 0), 3);
  EXPECT_STREQ(reply, "5674ldo") << "nor is more read than fits";
  be_interrupted();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(CSmtp::recvex(ends[0], reply, 3, 0), 2);
  EXPECT_EQ(CSmtp::IsReadable(ends[0], 1), 18);
  EXPECT_GE((std::chrono::steady_clock::now() - begin) / 1ms, 1800) << "of silence, in all";

  std::vector<char> block(8000000, 'x');  // more than the socket holds
  auto leaver = std::async(std::launch::async, [peer = ends[1], some = block]() mutable {
    EXPECT_EQ(::recv(peer, some.data(), 1000000, MSG_WAITALL), 1000000);
    ::close(peer);
  });
  EXPECT_EQ(CSmtp::sendcmd(ends[0], block.data(), 8000000, 0, nullptr, room), 7) << "sent in part";
  leaver.get();
  EXPECT_EQ(CSmtp::sendcmd(ends[0], command, 6, 1, reply, room), 7) << "and no SIGPIPE";
}

TEST(CSmtp, ARealServerAuthenticatesAndDelivers) {
  start_exim();
  const auto sendmail = [](const char* server) {
    auto mail = mail_to(server);
    mail.need_auth = 1;
    return CSmtp::sendmail(mail);
  };
  const auto testmail = [](short port, const char* password, const char* from, int& flags) {
    CSmtp::test_mail_t account{"127.0.0.1", "user", password, 1, port, from};
    char seen = 99;
    const int result = CSmtp::testmail(account, seen);
    flags = static_cast<unsigned char>(seen);
    return result;
  };
  run_cases(FIXTURES "/server.txt", {{"sendmail", call(sendmail)}, {"testmail", call(testmail)}});
}
