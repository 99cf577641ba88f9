// Connecting, waiting and reading: the part of CSmtp that knows sockets.

#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "base/database_entry.h"
#include "mail/receive.h"
#include "utility/CSmtp.h"

namespace utility {
namespace {

constexpr int kConnectSeconds = 3;
constexpr int kSendSeconds = 15;
constexpr int kReplySeconds = 300;

constexpr int kFirstReplyMs = 3000;
constexpr int kSilenceMs = 100;
constexpr int kIdleRounds = 5;

enum class Wait { kReadable, kTimedOut, kFailed };

// poll() rather than select(): the agent may hold more descriptors than an fd_set has room for. A
// signal only makes the wait begin again.
Wait wait_readable(int sock, int milliseconds) {
  pollfd entry{sock, POLLIN, 0};
  int ready = 0;
  do {
    ready = ::poll(&entry, 1, milliseconds);
  } while (ready < 0 && errno == EINTR);
  if (sock < 0 || ready < 0 || (entry.revents & POLLNVAL) != 0) return Wait::kFailed;
  return ready > 0 ? Wait::kReadable : Wait::kTimedOut;
}

// False when nothing at all could be sent.
bool send_all(int sock, const char* data, std::size_t size) {
  const char* const begin = data;
  while (size > 0) {
    const ssize_t sent = ::send(sock, data, size, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent < 1) break;
    data += sent;
    size -= static_cast<std::size_t>(sent);
  }
  return data > begin;
}

void set_timeout(int sock, int option, timeval limit) {
  ::setsockopt(sock, SOL_SOCKET, option, &limit, sizeof limit);
}

bool resolve_host(const std::string& host, in_addr& address) {
  const detail::DatabaseEntry<hostent> entry([&](auto... out) {
    int reason = 0;
    return ::gethostbyname_r(host.c_str(), out..., &reason);
  });
  if (!entry || entry->h_addrtype != AF_INET || entry->h_addr_list[0] == nullptr) return false;
  std::memcpy(&address, entry->h_addr_list[0], sizeof address);
  return true;
}

// In network order.
bool resolve_port(short port, in_port_t& number) {
  if (port >= 1) {
    number = htons(static_cast<std::uint16_t>(port));
    return true;
  }
  const detail::DatabaseEntry<servent> entry(
      [](auto... out) { return ::getservbyname_r("smtp", nullptr, out...); });
  if (entry) number = static_cast<in_port_t>(entry->s_port);
  return static_cast<bool>(entry);
}

}  // namespace

std::mutex CSmtp::m_mutex;
struct sigaction CSmtp::m_oact;

void CSmtp::handle_alarm(int /*signal*/) {}

int CSmtp::init() {
  m_mutex.lock();
  struct sigaction action {};
  action.sa_handler = handle_alarm;
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0x20000000;  // SA_INTERRUPT: connect() must not be restarted
  if (::sigaction(SIGALRM, &action, &m_oact) == 0) return 0;
  m_mutex.unlock();
  return 13;
}

void CSmtp::destroy() {
  ::sigaction(SIGALRM, &m_oact, nullptr);
  m_mutex.unlock();
}

int CSmtp::connecttoserv(std::string host, short port, int& sock) {
  const int created = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (created < 0) return 2;
  sock = created;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  if (!resolve_host(host, address.sin_addr)) return 4;
  if (!resolve_port(port, address.sin_port)) return 4;
  const int connected =
      connect_timeout(sock, reinterpret_cast<sockaddr*>(&address), sizeof address, kConnectSeconds);
  if (connected != 0) return connected;
  set_timeout(sock, SO_SNDTIMEO, {kSendSeconds, 0});
  set_timeout(sock, SO_RCVTIMEO, {kReplySeconds, 0});
  return 0;
}

int CSmtp::connect_timeout(int sock, sockaddr* address, unsigned int len, int seconds) {
  // The alarm goes to the process and may be taken by another thread, and this one may have it
  // blocked: the send limit, a second later, ends connect() where the alarm does not.
  timeval caller_limit{};
  socklen_t size = sizeof caller_limit;
  const bool limited =
      seconds > 0 && ::getsockopt(sock, SOL_SOCKET, SO_SNDTIMEO, &caller_limit, &size) == 0;
  if (limited) set_timeout(sock, SO_SNDTIMEO, {seconds + 1, 0});
  sigset_t alarm_only;
  sigset_t caller_mask;
  sigemptyset(&alarm_only);
  sigaddset(&alarm_only, SIGALRM);
  ::pthread_sigmask(SIG_UNBLOCK, &alarm_only, &caller_mask);

  ::alarm(static_cast<unsigned>(seconds));
  const int connected = ::connect(sock, address, len);
  const unsigned left = ::alarm(0);

  ::pthread_sigmask(SIG_SETMASK, &caller_mask, nullptr);
  if (limited) set_timeout(sock, SO_SNDTIMEO, caller_limit);
  if (connected == 0) return 0;
  return left > 0 ? 5 : 11;
}

int CSmtp::IsReadable(int sock, long seconds) {
  constexpr int kFurtherWaits = 3;
  constexpr long kLongest = 1000000;  // poll() counts milliseconds in an int
  int milliseconds = seconds < 0 ? -1 : static_cast<int>(std::min(seconds, kLongest)) * 1000;
  for (int waits = 0; waits <= kFurtherWaits; ++waits) {
    const Wait outcome = wait_readable(sock, milliseconds);
    if (outcome == Wait::kFailed) return 17;
    if (outcome == Wait::kReadable) return 0;
    milliseconds = kSilenceMs;
  }
  return 18;
}

int CSmtp::recvex(int sock, char* buf, unsigned long size, int flags) {
  std::size_t filled = 0;
  for (int idle = 0; idle < kIdleRounds;) {
    const Wait outcome = wait_readable(sock, filled == 0 ? kFirstReplyMs : kSilenceMs);
    if (outcome == Wait::kFailed) return -17;
    ssize_t count = 0;
    if (outcome == Wait::kReadable)
      count = detail::receive(sock, buf + filled, size - filled, flags);
    if (count < 0) return -8;
    idle = count > 0 ? 0 : idle + 1;
    filled += static_cast<std::size_t>(count);
  }
  return static_cast<int>(filled);
}

int CSmtp::sendcmd(int sock, char* cmd, int cmdLen, int replyMode, char* reply, int& replyLen) {
  if (cmd == nullptr || sock < 0 || cmdLen < 1) return 1;
  if (replyMode != 0 && (reply == nullptr || replyLen < 0)) return 1;
  if (!send_all(sock, cmd, static_cast<std::size_t>(cmdLen))) return 7;
  if (replyMode == 0) return 0;

  const auto room = static_cast<std::size_t>(replyLen);
  std::memset(reply, 0, room);
  const int count = replyMode == 1 ? static_cast<int>(detail::receive(sock, reply, room, 0))
                                   : recvex(sock, reply, room, 0);
  if (count < 0) return -count;
  replyLen = count;
  return 0;
}

}  // namespace utility
