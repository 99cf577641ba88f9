// The operation's thread has the kernel report its system calls here (seccomp user notification)
// instead of making them. Nothing has to be put before the C library's functions, those that it
// calls itself are seen as well, and a sanitizer's own are not in the way.

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/magic.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <future>
#include <iterator>
#include <new>
#include <stdexcept>
#include <thread>

#include "faults/faults.h"

namespace faults {
namespace {

constexpr int kLongestPauseMs = 30000;

// What a signal can do to a call: nothing, end its waiting, or also cut short what it transfers.
enum Manner { kAtomic, kWaits, kTransfers };

struct Calls {
  const char* kind;
  int error;
  Manner manner;
  std::vector<unsigned> numbers;
};
const std::vector<Calls> kCalls = {
    {"open", EMFILE, kAtomic, {SYS_openat}},
    {"read", EIO, kTransfers, {SYS_read, SYS_pread64}},
    {"write", ENOSPC, kTransfers, {SYS_write, SYS_pwrite64, SYS_writev}},
    {"close", EIO, kAtomic, {SYS_close}},
    {"list", EIO, kAtomic, {SYS_getdents64}},
    {"stat", EACCES, kAtomic, {SYS_newfstatat, SYS_fstat}},
    {"access", EACCES, kAtomic, {SYS_access, SYS_faccessat, SYS_faccessat2}},
    {"readlink", EIO, kAtomic, {SYS_readlink, SYS_readlinkat}},
    {"seek", EINVAL, kAtomic, {SYS_lseek}},
    {"truncate", EIO, kAtomic, {SYS_ftruncate, SYS_fallocate}},
    {"rename", EXDEV, kAtomic, {SYS_rename, SYS_renameat2}},
    {"unlink", EROFS, kAtomic, {SYS_unlink, SYS_unlinkat, SYS_rmdir}},
    {"mkdir", ENOSPC, kAtomic, {SYS_mkdir}},
    {"rights", EPERM, kAtomic, {SYS_chmod, SYS_fchmod, SYS_fchown}},
    {"statfs", EIO, kAtomic, {SYS_statfs}},
    {"fork", EAGAIN, kAtomic, {SYS_clone, SYS_clone3, SYS_vfork}},
    {"wait", ECHILD, kWaits, {SYS_wait4}},
    {"kill", EPERM, kAtomic, {SYS_kill}},
    {"pipe", EMFILE, kAtomic, {SYS_pipe2}},
    {"limit", EPERM, kAtomic, {SYS_prlimit64}},
    {"signal", EINVAL, kAtomic, {SYS_rt_sigaction}},
    {"socket", EMFILE, kAtomic, {SYS_socket}},
    {"connect", ECONNREFUSED, kWaits, {SYS_connect}},
    {"send", EPIPE, kTransfers, {SYS_sendto}},
    {"receive", ECONNRESET, kTransfers, {SYS_recvfrom}},
    {"poll", ENOMEM, kWaits, {SYS_poll}},
    {"option", ENOMEM, kAtomic, {SYS_setsockopt, SYS_getsockopt}},
    {"request", ENODEV, kAtomic, {SYS_ioctl}},
};

std::size_t calls_of(int number) {
  const auto holds = [number](const Calls& calls) {
    return std::count(calls.numbers.begin(), calls.numbers.end(), number) != 0;
  };
  const auto found = std::find_if(kCalls.begin(), kCalls.end(), holds);
  return static_cast<std::size_t>(found - kCalls.begin());
}

// Reports the calls that this thread, and what it forks, makes through our C library. What other
// programs do that are started is no step of the operation: theirs lies elsewhere.
int report_calls() {
  const auto high_half = [](std::ptrdiff_t distance) {
    return static_cast<std::uint32_t>((reinterpret_cast<std::intptr_t>(&::getpid) + distance) >>
                                      32);
  };
  constexpr std::ptrdiff_t kLibrary = 4 << 20;
  std::vector<sock_filter> program = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, instruction_pointer) + 4),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, high_half(-kLibrary), 2, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, high_half(kLibrary), 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  for (const Calls& calls : kCalls) {
    for (const unsigned number : calls.numbers) {
      program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 1));
      program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
    }
  }
  program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
  return static_cast<int>(
      ::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &filter));
}

// Closing fails, and signals interrupt a transfer, depending on what it is: files lose data late
// and are never waited for. /proc answers in one piece, and actions other than that of alarms are
// safe.
bool can_go_wrong(const seccomp_data& call, Manner manner, Mode mode) {
  if (mode == kFail && call.nr == SYS_rt_sigaction) return call.args[0] == SIGALRM;
  if (mode == kFail && call.nr != SYS_close) return true;
  if (mode == kInterrupt && manner != kTransfers) return manner == kWaits;
  if (mode == kShorten && (manner != kTransfers || call.args[2] < 2)) return false;
  const int fd = static_cast<int>(call.args[0]);
  struct stat st {};
  struct statfs fs {};
  const bool is_file = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
  if (mode == kShorten) return ::fstatfs(fd, &fs) != 0 || fs.f_type != PROC_SUPER_MAGIC;
  return is_file == (mode == kFail);
}

class Supervisor {
 public:
  Supervisor(const Plan& plan, Run& run) : plan_(plan), run_(run) {}
  Supervisor(const Supervisor&) = delete;
  Supervisor& operator=(const Supervisor&) = delete;
  ~Supervisor() {
    if (helper_.joinable()) helper_.join();
    ::close(listener_);
  }

  // Around the operation, in its thread.
  void begin() {
    thread_ = static_cast<unsigned>(::syscall(SYS_gettid));
    ready_.set_value(report_calls());
    is_watched_ = true;
  }
  void end() { is_watched_ = false; }

  // Answers until the last of the processes has ended.
  void serve() {
    listener_ = ready_.get_future().get();
    if (listener_ < 0) throw std::runtime_error("system calls cannot be watched here");
    for (pollfd entry{listener_, POLLIN, 0}; (entry.revents & POLLHUP) == 0;) {
      if (::poll(&entry, 1, kLongestPauseMs) == 0) throw std::runtime_error("the operation hangs");
      if ((entry.revents & POLLIN) != 0) answer();
    }
  }

 private:
  void answer() {
    seccomp_notif asked{};
    if (::ioctl(listener_, SECCOMP_IOCTL_NOTIF_RECV, &asked) != 0) return;
    constexpr std::uint32_t kPass = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    if (!is_watched_ || asked.pid != thread_) return reply(asked.id, 0, kPass);
    const std::size_t index = calls_of(asked.data.nr);
    if (is_due(asked.data, index)) {
      run_.delivered = true;
      if (plan_.mode == kShorten) return make(asked, 1);
      if (plan_.mode == kInterrupt) return reply(asked.id, -EINTR);
      const int error = kCalls[index].error;
      const bool has_effect = asked.data.nr == SYS_close || asked.data.nr == SYS_wait4;
      return has_effect ? make(asked, asked.data.args[2], -error) : reply(asked.id, -error);
    }
    // The silence that ends a mail server's reply need not be awaited here.
    if (asked.data.nr == SYS_poll && asked.data.args[2] == 100) return make(asked, 0);
    reply(asked.id, 0, kPass);
  }

  // Counts a step, and tells whether it is the one that goes wrong.
  bool is_due(const seccomp_data& call, std::size_t index) {
    const int kind = kFirstCall + static_cast<int>(index);
    bool due = false;
    for (const Mode mode : {kFail, kInterrupt, kShorten}) {
      if (!can_go_wrong(call, kCalls[index].manner, mode)) continue;
      const int nth = run_.steps.of[mode][kind]++;
      due = due || (kind == plan_.kind && mode == plan_.mode && nth == plan_.nth);
    }
    return due;
  }

  // Makes the call in the operation's stead, with another third argument and, if there is an
  // `error`, that result. In a thread of its own: what it waits for may need us.
  void make(const seccomp_notif& asked, std::uint64_t third, long error = 0) {
    if (helper_.joinable()) helper_.join();
    helper_ = std::thread([this, asked, third, error] {
      const auto& args = asked.data.args;
      const long result =
          ::syscall(asked.data.nr, args[0], args[1], third, args[3], args[4], args[5]);
      reply(asked.id, error != 0 ? error : result < 0 ? -errno : result);
    });
  }

  void reply(std::uint64_t id, long result, std::uint32_t flags = 0) const {
    seccomp_notif_resp response{id, std::max(result, 0L), static_cast<int>(std::min(result, 0L)),
                                flags};
    ::ioctl(listener_, SECCOMP_IOCTL_NOTIF_SEND, &response);
  }

  const Plan& plan_;
  Run& run_;
  std::promise<int> ready_;
  std::atomic<bool> is_watched_{false};
  unsigned thread_ = 0;
  int listener_ = -1;
  std::thread helper_;
};

}  // namespace

const char* kind_name(int kind) {
  constexpr const char* kAllocations[] = {"new", "nothrow", "malloc"};
  if (kind < kFirstCall) return kAllocations[kind];
  return kCalls.at(static_cast<std::size_t>(kind - kFirstCall)).kind;
}

Run run(const std::function<void()>& operation, const Plan& plan) {
  Run run;
  Supervisor supervisor(plan, run);
  std::thread worker([&] {
    supervisor.begin();
    watch_allocations(&run, plan);
    try {
      operation();
    } catch (const std::bad_alloc&) {
      run.threw = true;
    }
    watch_allocations(nullptr, {});
    supervisor.end();
  });
  try {
    supervisor.serve();
  } catch (...) {
    worker.detach();
    throw;
  }
  worker.join();
  return run;
}

}  // namespace faults
