#include <signal.h>
#include <sys/resource.h>

#include <cctype>
#include <climits>

#include "base/database_entry.h"
#include "base/dir_walk.h"
#include "base/io.h"
#include "base/paths.h"
#include "proc/ProcessReader.h"

namespace utility {

using namespace detail;

namespace {

constexpr int kFailedChild = 255;

struct Account {
  uid_t uid;
  gid_t gid;
};

// All that the daemon needs, made ready before the fork: after it, where another thread may have
// held any lock, the child makes bare system calls only.
struct Daemon {
  const char* command;
  const char* dir;
  std::optional<Account> account;
  unsigned int open_files;
  char** envp;
};

// The link that is read is always `dir` itself: a link to a link never leads anywhere.
bool leads_to_directory(const std::string& dir) {
  constexpr int kMaxReadings = 40;  // as many as the kernel follows
  constexpr std::size_t kMaxTarget = 260;
  std::string path = dir;
  for (int readings = 0;; ++readings) {
    const FileStatus status(path.c_str(), AT_SYMLINK_NOFOLLOW);
    if (status.is(S_IFDIR)) return true;
    if (!status.is(S_IFLNK) || readings == kMaxReadings) return false;
    if (!read_link_at(AT_FDCWD, dir.c_str(), kMaxTarget, path)) return false;
  }
}

// Looked up before the fork: the account databases take locks that a child may find held for ever.
// False when that failed: a command that is meant to lose the caller's rights must not keep them.
bool find_account(const std::string& user, std::optional<Account>& account) {
  if (user.empty()) return true;
  const UserEntry entry = find_user(user.c_str());
  if (entry) account = Account{entry->pw_uid, entry->pw_gid};
  return entry.answered();
}

// The soft limit of open files; empty when it cannot be read.
std::optional<unsigned int> open_file_limit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return std::nullopt;
  if (limit.rlim_cur == RLIM_INFINITY) return 1024;
  return static_cast<unsigned int>(std::min<rlim_t>(limit.rlim_cur, UINT_MAX));
}

// Limits of a million are common: the kernel closes the range, or (before Linux 5.9) says which
// descriptors there are; only without either are all numbers tried.
void close_below(unsigned int limit) {
  if (limit == 0 || ::close_range(0, limit - 1, 0) == 0) return;
  DirWalk open_ones("/proc/self/fd");
  if (open_ones) {
    while (const char* name = open_ones.next()) {
      const int fd = static_cast<int>(std::strtol(name, nullptr, 10));
      if (fd != open_ones.fd() && static_cast<unsigned int>(fd) < limit) ::close(fd);
    }
    return;
  }
  for (unsigned int fd = 0; fd < limit; ++fd) ::close(static_cast<int>(fd));
}

// The shell command that runs `executable` with `args`. In the executable's file name every byte
// but letters and digits is escaped; its directories, and a path without "/", stay as they are.
std::string shell_command(const std::string& executable, const std::string& args) {
  const std::size_t slash = std::min(executable.rfind('/'), executable.size() - 1);
  std::string command = executable.substr(0, slash + 1);
  for (const char c : executable.substr(slash + 1)) {
    if (std::isalnum(static_cast<unsigned char>(c)) == 0) command += '\\';
    command += c;
  }
  return command.append(" ").append(args);
}

[[noreturn]] void run_daemon(const Daemon& daemon) {
  ::setsid();
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  if (::chdir(daemon.dir) != 0) ::_exit(kFailedChild);
  if (daemon.account) {
    // Not checked: a caller without the right to change goes on as it is.
    [[maybe_unused]] int ignored = ::setgid(daemon.account->gid);
    ignored = ::setuid(daemon.account->uid);
  }
  close_below(daemon.open_files);
  // Not close-on-exec: this is the daemon's standard input.
  const int null_device = ::open("/dev/null", O_RDWR);
  if (null_device < 0) ::_exit(kFailedChild);
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::dup2(null_device, fd);
  ::execle("/bin/sh", "sh", "-c", daemon.command, static_cast<char*>(nullptr), daemon.envp);
  ::_exit(0);
}

}  // namespace

int CUnixProc::create_proc(const std::string& executable, const std::string& args,
                           const std::string& dir, const std::string& user, char** envp) {
  if (executable.empty() || !FileStatus(executable.c_str()).is(S_IFREG)) return kUnusable;
  if (!leads_to_directory(dir)) return kUnusable;
  const std::optional<unsigned int> open_files = open_file_limit();
  if (!open_files) return kNoLimit;
  std::optional<Account> account;
  if (!find_account(user, account)) return kUnusable;
  const std::string command = shell_command(executable, args);
  const Daemon daemon{command.c_str(), dir.c_str(), account, *open_files, envp};

  const pid_t child = ::fork();
  if (child < 0) return kNoChild;
  if (child == 0) {
    // The child ends at once, so that init inherits the daemon.
    if (::fork() != 0) ::_exit(kFailedChild);
    run_daemon(daemon);
  }
  return wait_for(child) ? kDone : kNoChild;
}

}  // namespace utility
