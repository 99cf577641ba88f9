// Connecting, waiting and reading: the part of CSmtp that knows sockets.

#include <netdb.h>
#include <poll.h>

#include "base/database_entry.h"
#include "base/text.h"
#include "mail/CSmtp_dialogue.h"
#include "utility/CSmtp.h"

namespace utility {
namespace {

using namespace detail;

constexpr int kConnectSeconds = 3;
constexpr int kSendMs = 15000;
constexpr int kReplyMs = 300000;
constexpr int kFirstReplyMs = 3000;
constexpr int kSilenceMs = 100;
constexpr int kIdleRounds = 5;

bool resolve_host(const std::string& host, in_addr& address) {
  const DatabaseEntry<hostent> entry([&](auto... out) {
    int reason = 0;
    return ::gethostbyname_r(host.c_str(), out..., &reason);
  });
  if (!entry || entry->h_addrtype != AF_INET || entry->h_addr_list[0] == nullptr) return false;
  std::memcpy(&address, entry->h_addr_list[0], sizeof address);
  return true;
}

// In network order.
bool resolve_port(short port, in_port_t& number) {
  number = htons(static_cast<in_port_t>(port));
  if (port >= 1) return true;
  const DatabaseEntry<servent> entry(
      [](auto... out) { return ::getservbyname_r("smtp", nullptr, out...); });
  if (entry) number = static_cast<in_port_t>(entry->s_port);
  return static_cast<bool>(entry);
}

// poll() counts milliseconds in an int; without limit when negative.
int milliseconds(long seconds) {
  constexpr long kLongest = 1000000;
  return seconds < 0 ? -1 : static_cast<int>(std::min(seconds, kLongest)) * 1000;
}

// Connects a socket that does not block; gives up `seconds` from now, never when that is below 1.
int connect_within(int sock, const sockaddr* address, socklen_t len, int seconds) {
  if (::connect(sock, address, len) == 0) return kSuccess;
  if (errno != EINPROGRESS) return kNotConnected;
  const int ready = wait_for_events(sock, POLLOUT, milliseconds(seconds < 1 ? -1 : seconds));
  if (ready == 0) return kConnectTimedOut;
  int error = 0;
  socklen_t size = sizeof error;
  const bool is_known = ready > 0 && ::getsockopt(sock, SOL_SOCKET, SO_ERROR, &error, &size) == 0;
  return is_known && error == 0 ? kSuccess : kNotConnected;
}

// One recv(2), for which the server has 5 minutes; a negative count means that it failed.
ssize_t receive(int sock, char* buffer, std::size_t size) {
  if (wait_for_events(sock, POLLIN, kReplyMs) < 1) return -1;
  return retry([=] { return ::recv(sock, buffer, size, MSG_DONTWAIT); });
}

}  // namespace

bool detail::send_all(int sock, std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const ssize_t sent = retry(
        [&] { return ::send(sock, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT); });
    if (sent > 0) {
      bytes.remove_prefix(static_cast<std::size_t>(sent));
    } else if (sent == 0 || errno != EAGAIN || wait_for_events(sock, POLLOUT, kSendMs) < 1) {
      return false;
    }
  }
  return true;
}

int detail::Dialogue::read_greeting() {
  if (const int readable = CSmtp::IsReadable(sock_, 3)) return readable;
  const ssize_t count = retry([this] { return ::recv(sock_, buffer_.get(), kRoom, MSG_DONTWAIT); });
  return count < 0 ? kNotReceived : kSuccess;
}

int detail::Dialogue::say(const std::string& command, const Wanted& wanted, int reply_mode) {
  const auto length = static_cast<int>(command.copy(buffer_.get(), kRoom - 1));
  int room = kRoom;
  if (const int result = CSmtp::sendcmd(sock_, buffer_.get(), length, reply_mode, reply(), room))
    return result;
  return begins_with(reply(), wanted.code) ? kSuccess : wanted.refusal;
}

std::mutex CSmtp::m_mutex;
struct sigaction CSmtp::m_oact;

void CSmtp::handle_alarm(int /*signal*/) {}

int CSmtp::init() {
  m_mutex.lock();
  struct sigaction action {};
  action.sa_handler = handle_alarm;
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0x20000000;  // SA_INTERRUPT: connect() must not be restarted
  if (::sigaction(SIGALRM, &action, &m_oact) == 0) return kSuccess;
  m_mutex.unlock();
  return kNoAlarmHandler;
}

void CSmtp::destroy() {
  ::sigaction(SIGALRM, &m_oact, nullptr);
  m_mutex.unlock();
}

int CSmtp::connecttoserv(std::string host, short port, int& sock) {
  const int created = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (created < 0) return kNoSocket;
  sock = created;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  if (!resolve_host(host, address.sin_addr) || !resolve_port(port, address.sin_port))
    return kNotResolved;
  return connect_timeout(sock, reinterpret_cast<sockaddr*>(&address), sizeof address,
                         kConnectSeconds);
}

int CSmtp::connect_timeout(int sock, sockaddr* address, unsigned int len, int seconds) {
  // The alarm goes to the process: any thread may take it, and so may any handler of the caller's
  // interrupt this one. What ends the wait is therefore its own deadline.
  sigset_t alarm_only, caller_mask;
  sigemptyset(&alarm_only);
  sigaddset(&alarm_only, SIGALRM);
  ::pthread_sigmask(SIG_UNBLOCK, &alarm_only, &caller_mask);
  ::alarm(static_cast<unsigned>(seconds));
  const int flags = ::fcntl(sock, F_GETFL);
  ::fcntl(sock, F_SETFL, flags | O_NONBLOCK);

  const int result = connect_within(sock, address, len, seconds);

  ::fcntl(sock, F_SETFL, flags);
  // An alarm that no thread has taken yet must not reach the action that the session restores,
  // which may be to end the process.
  ::pthread_sigmask(SIG_BLOCK, &alarm_only, nullptr);
  ::alarm(0);
  const timespec at_once{};
  ::sigtimedwait(&alarm_only, nullptr, &at_once);
  ::pthread_sigmask(SIG_SETMASK, &caller_mask, nullptr);
  // Without a limit no time is ever left.
  return result == kNotConnected && seconds == 0 ? kConnectTimedOut : result;
}

int CSmtp::IsReadable(int sock, long seconds) {
  constexpr int kFurtherWaits = 3;
  int limit = milliseconds(seconds);
  for (int waits = 0; waits <= kFurtherWaits; ++waits) {
    const int ready = wait_for_events(sock, POLLIN, limit);
    if (ready != 0) return ready > 0 ? kSuccess : kWaitFailed;
    limit = kSilenceMs;
  }
  return kNothingReadable;
}

int CSmtp::recvex(int sock, char* buf, unsigned long size, int flags) {
  std::size_t filled = 0;
  for (int idle = 0; idle < kIdleRounds;) {
    const int ready = wait_for_events(sock, POLLIN, filled == 0 ? kFirstReplyMs : kSilenceMs);
    if (ready < 0) return -kWaitFailed;
    ssize_t count = 0;
    if (ready > 0) count = retry([&] { return ::recv(sock, buf + filled, size - filled, flags); });
    if (count < 0) return -kNotReceived;
    idle = count > 0 ? 0 : idle + 1;
    filled += static_cast<std::size_t>(count);
  }
  return static_cast<int>(filled);
}

int CSmtp::sendcmd(int sock, char* cmd, int cmdLen, int replyMode, char* reply, int& replyLen) {
  if (cmd == nullptr || sock < 0 || cmdLen < 1) return kBadArgument;
  if (replyMode != 0 && (reply == nullptr || replyLen < 0)) return kBadArgument;
  if (!send_all(sock, {cmd, static_cast<std::size_t>(cmdLen)})) return kNotSent;
  if (replyMode == 0) return kSuccess;

  const auto room = static_cast<std::size_t>(replyLen);
  std::memset(reply, 0, room);
  const int count =
      replyMode == 1 ? static_cast<int>(receive(sock, reply, room)) : recvex(sock, reply, room, 0);
  if (count < 0) return -count;
  replyLen = count;
  return kSuccess;
}

}  // namespace utility
