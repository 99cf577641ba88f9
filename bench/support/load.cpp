#include "support/load.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <vector>

#include "support/harness.h"

namespace bench {
namespace {

// The starter's end of the line to the program: each process reports there that it is ready, and
// the end of the line is the end of the load.
constexpr int kControl = 3;

void report(bool ready) {
  const char byte = ready ? 1 : 0;
  if (::write(kControl, &byte, 1) != 1) ::_exit(1);
}

// An address of loopback with any free port.
struct Address {
  sockaddr_storage storage{};
  socklen_t size = 0;

  explicit Address(int family) {
    storage.ss_family = static_cast<sa_family_t>(family);
    if (family == AF_INET) {
      size = sizeof(sockaddr_in);
      reinterpret_cast<sockaddr_in*>(&storage)->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    } else {
      size = sizeof(sockaddr_in6);
      reinterpret_cast<sockaddr_in6*>(&storage)->sin6_addr = in6addr_loopback;
    }
  }
  sockaddr* get() noexcept { return reinterpret_cast<sockaddr*>(&storage); }
};

// A socket on an address of its own; `address` receives it.
int bound_socket(int type, Address& address) {
  const int fd = ::socket(address.storage.ss_family, type, 0);
  if (fd < 0 || ::bind(fd, address.get(), address.size) != 0) return -1;
  return ::getsockname(fd, address.get(), &address.size) == 0 ? fd : -1;
}

bool open_sockets(int family, int count) {
  Address listening(family);
  if (count >= 3) {
    const int listener = bound_socket(SOCK_STREAM, listening);
    if (listener < 0 || ::listen(listener, 8) != 0) return false;
    --count;
    // Four of five are connections, as on a server.
    for (int pairs = count * 2 / 5; pairs > 0; --pairs, count -= 2) {
      const int client = ::socket(family, SOCK_STREAM, 0);
      if (client < 0 || ::connect(client, listening.get(), listening.size) != 0) return false;
      if (::accept(listener, nullptr, nullptr) < 0) return false;
    }
  }
  for (; count > 0; --count) {
    Address address(family);
    if (bound_socket(SOCK_DGRAM, address) < 0) return false;
  }
  return true;
}

[[noreturn]] void be_process(int number, int files, int sockets) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ::close_range(kControl + 1, ~0U, 0);  // what this program was started with
  bool ready = open_sockets(number % 2 == 0 ? AF_INET : AF_INET6, sockets);
  for (int i = 0; i < files; ++i) ready = ::open("/proc/self/exe", O_RDONLY) >= 0 && ready;
  report(ready);
  ::close(kControl);
  while (ready) ::pause();  // NOLINT(bugprone-infinite-loop): until it is killed
  ::_exit(1);
}

}  // namespace

Load::Load(const LoadShape& shape) : control_(-1), pid_(-1) {
  std::array<int, 2> ends{-1, -1};
  require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0, "no socket pair");
  control_ = ends[0];
  std::array<char, 4096> self{};
  require(::readlink("/proc/self/exe", self.data(), self.size() - 1) > 0,
          "no path of this program");
  std::vector<std::string> arguments{self.data(), "--load"};
  for (const int count : {shape.processes, shape.files, shape.sockets}) {
    arguments.push_back(std::to_string(count));
  }
  std::vector<std::string> variables;
  constexpr int kVariable = 64;
  for (int left = shape.environ_bytes; left > 0; left -= kVariable) {
    std::string name = "VARIABLE_" + std::to_string(variables.size()) + "=";
    name.resize(kVariable - 1, 'v');
    variables.push_back(std::move(name));
  }
  const std::vector<char*> argv = c_array(arguments);
  const std::vector<char*> envp = c_array(variables);

  pid_ = ::fork();
  require(pid_ >= 0, "cannot fork");
  if (pid_ == 0) {
    ::dup2(ends[1], kControl);
    if (ends[1] == kControl) ::fcntl(kControl, F_SETFD, 0);
    ::execve(argv[0], argv.data(), envp.data());
    ::_exit(127);
  }
  ::close(ends[1]);
  // One call, since the calls of this program are counted.
  std::string reports(static_cast<std::size_t>(shape.processes), '\0');
  const ssize_t got = ::recv(control_, reports.data(), reports.size(), MSG_WAITALL);
  require(got == shape.processes && reports.find('\0') == std::string::npos,
          "a process of the load could not be made ready");
}

Load::~Load() {
  ::close(control_);
  ::waitpid(pid_, nullptr, 0);
}

int serve_load(int argc, char** argv) {
  if (argc != 5) return 1;
  std::vector<pid_t> pids;
  for (int i = 0; i < std::atoi(argv[2]); ++i) {
    const pid_t pid = ::fork();
    if (pid < 0) report(false);
    if (pid == 0) be_process(i, std::atoi(argv[3]), std::atoi(argv[4]));
    if (pid > 0) pids.push_back(pid);
  }
  char end = 0;
  while (::read(kControl, &end, 1) > 0) continue;
  for (const pid_t pid : pids) ::kill(pid, SIGKILL);
  for (const pid_t pid : pids) ::waitpid(pid, nullptr, 0);
  return 0;
}

}  // namespace bench
