// CUnixUser::mod_passwd, which feeds a child process of its own.

#include <signal.h>
#include <string.h>

#include "account/CUnixUser_common.h"
#include "base/database_entry.h"
#include "base/io.h"
#include "utility/CUnixUser.h"

namespace utility {

using namespace detail;

namespace {

struct Wiper {
  void operator()(std::string* text) const noexcept {
    ::explicit_bzero(text->data(), text->size());
    delete text;
  }
};
using Secret = std::unique_ptr<std::string, Wiper>;

// What chpasswd reads; wiped before its memory goes back.
Secret password_line(const std::string& name, const std::string& password) {
  Secret line(new std::string);
  // Room for all at once: growing would leave copies behind.
  line->reserve(name.size() + password.size() + 2);
  line->append(name).append(":").append(password).append("\n");
  return line;
}

// The child's part, between fork and exec: async-signal-safe calls only.
[[noreturn]] void become_chpasswd(int input) noexcept {
  // Where the caller has no standard input, the pipe has taken its place and must outlive the exec.
  const bool is_placed = input == STDIN_FILENO ? ::fcntl(input, F_SETFD, 0) == 0
                                               : ::dup2(input, STDIN_FILENO) == STDIN_FILENO;
  char name[] = "chpasswd";
  char* const arguments[] = {name, nullptr};
  if (is_placed) ::execv("/usr/sbin/chpasswd", arguments);
  ::_exit(127);
}

// Keeps SIGPIPE from this thread while it lives. Other threads rely on the process's action for it.
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
    const timespec now{};
    if (!was_pending_) retry([&] { return ::sigtimedwait(&sigpipe_, nullptr, &now); });
    ::pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
  }

 private:
  sigset_t sigpipe_;
  sigset_t previous_;
  bool was_pending_ = false;
};

}  // namespace

int CUnixUser::mod_passwd(const std::string& name, const std::string& password) {
  if (name.empty()) return kNoNameToChange;
  if (!find_user(name.c_str())) return kNoUserForPassword;
  const Secret line = password_line(name, password);

  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return kChildFailed;
  Fd read_end(ends[0]);
  Fd write_end(ends[1]);
  const pid_t child = ::fork();
  if (child < 0) return kChildFailed;
  if (child == 0) become_chpasswd(read_end.get());

  read_end.reset();
  {
    const SigpipeGuard guard;
    // To the end, since half a password must not be set; a reader that goes away is no failure.
    write_all(write_end.get(), *line);
  }
  write_end.reset();
  return wait_for(child) ? kAccountDone : kChildFailed;
}

}  // namespace utility
