// CUnixUser::mod_passwd, which feeds a child process of its own.

#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <string_view>

#include "base/account_lookup.h"
#include "base/handles.h"
#include "base/io.h"
#include "utility/CUnixUser.h"

namespace utility {
namespace {

// What chpasswd reads; wiped before its memory goes back.
class PasswordLine {
 public:
  PasswordLine(const std::string& name, const std::string& password) {
    // Room for all at once: growing would leave copies behind.
    text_.reserve(name.size() + password.size() + 2);
    text_.append(name).append(1, ':').append(password).append(1, '\n');
  }
  PasswordLine(const PasswordLine&) = delete;
  PasswordLine& operator=(const PasswordLine&) = delete;
  ~PasswordLine() { ::explicit_bzero(text_.data(), text_.size()); }

  std::string_view text() const noexcept { return text_; }

 private:
  std::string text_;
};

// The child's part, between fork and exec: async-signal-safe calls only.
[[noreturn]] void become_chpasswd(int input, int other_end) noexcept {
  ::close(other_end);
  if (input == STDIN_FILENO) {
    // The caller had no standard input, so that the pipe took its place; it must outlive the exec.
    ::fcntl(input, F_SETFD, 0);
  } else {
    if (::dup2(input, STDIN_FILENO) < 0) ::_exit(127);
    ::close(input);
  }
  char name[] = "chpasswd";
  char* const arguments[] = {name, nullptr};
  ::execv("/usr/sbin/chpasswd", arguments);
  ::_exit(127);
}

// Keeps SIGPIPE from this thread while it lives. The process's action for the signal stays as it
// is, since other threads rely on it.
class SigpipeGuard {
 public:
  SigpipeGuard() noexcept {
    sigset_t pending;
    ::sigpending(&pending);
    was_pending_ = ::sigismember(&pending, SIGPIPE) == 1;
    ::sigemptyset(&sigpipe_);
    ::sigaddset(&sigpipe_, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &sigpipe_, &previous_);
  }
  SigpipeGuard(const SigpipeGuard&) = delete;
  SigpipeGuard& operator=(const SigpipeGuard&) = delete;
  ~SigpipeGuard() {
    // Takes back what the write raised; a signal that waited before is the caller's.
    const timespec at_once{};
    while (!was_pending_ && ::sigtimedwait(&sigpipe_, nullptr, &at_once) < 0 && errno == EINTR) {
    }
    ::pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
  }

 private:
  sigset_t sigpipe_;
  sigset_t previous_;
  bool was_pending_ = false;
};

}  // namespace

int CUnixUser::mod_passwd(const std::string& name, const std::string& password) {
  if (name.empty()) return 4;
  if (!detail::find_user(name.c_str())) return 11;
  const PasswordLine line(name, password);

  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return 21;
  detail::Fd read_end(ends[0]);
  detail::Fd write_end(ends[1]);
  const pid_t child = ::fork();
  if (child < 0) return 21;
  if (child == 0) become_chpasswd(read_end.get(), write_end.get());

  read_end.reset();
  {
    const SigpipeGuard guard;
    // To the end, since half a password must not be set; a reader that goes away is no failure.
    detail::write_all(write_end.get(), line.text());
  }
  write_end.reset();
  return detail::wait_for(child) ? 0 : 21;
}

}  // namespace utility
