#include "support/sandbox.h"

#include <fcntl.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <linux/if.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <tuple>

// NOLINTNEXTLINE(bugprone-reserved-identifier): the sanitizer's
extern "C" int __lsan_do_recoverable_leak_check() __attribute__((weak));

namespace sandbox {
namespace {

namespace fs = std::filesystem;

constexpr int kPassed = 0;
constexpr int kSetupFailed = 90;
constexpr int kTestFailed = 91;
constexpr int kLeaked = 92;
constexpr int kTimedOut = 93;

std::string g_scratch;

void require(bool done, const std::string& what) {
  if (!done) throw std::runtime_error(what + ": " + std::strerror(errno));
}

void write_text(const std::string& path, const std::string& text) {
  std::ofstream(path) << text;
}

// Starts namespaces; where we are nobody special, as the root of a user namespace.
void enter_namespaces() {
  const int spaces = CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWNET;
  if (::geteuid() == 0) {
    require(::unshare(spaces) == 0, "unshare");
  } else {
    const std::string uid = std::to_string(::geteuid());
    const std::string gid = std::to_string(::getegid());
    require(::unshare(spaces | CLONE_NEWUSER) == 0, "unshare");
    write_text("/proc/self/setgroups", "deny");
    write_text("/proc/self/uid_map", "0 " + uid + " 1");
    write_text("/proc/self/gid_map", "0 " + gid + " 1");
  }
  require(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
}

void start_loopback() {
  const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  require(::ioctl(fd, SIOCSIFFLAGS, &request) == 0, "loopback");
  ::close(fd);
}

void prepare_files() {
  require(::mount("tmpfs", g_scratch.c_str(), "tmpfs", 0, "mode=0755") == 0, "scratch");
  // What runs on the machine (systemd, daemons' sockets) must not be reachable from inside.
  require(::mount("tmpfs", "/run", "tmpfs", 0, "mode=0755") == 0, "/run");
  require(::mount("proc", "/proc", "proc", 0, nullptr) == 0, "/proc");
  // With its owners, which matter to the account tools; those that a user namespace lacks stay out.
  std::ignore = std::system(("cp -a /etc " + g_scratch + " 2>/dev/null").c_str());
  require(fs::exists(g_scratch + "/etc/passwd"), "copy of /etc");
  bind_path(g_scratch + "/etc", "/etc");
}

// Sends each failure as three NUL-terminated texts: file, line, message. True if there was one.
bool send_failures(const ::testing::TestPartResultArray& results, int fd) {
  bool any = false;
  for (int i = 0; i < results.size(); ++i) {
    const auto& part = results.GetTestPartResult(i);
    if (!part.failed()) continue;
    any = true;
    std::string text = part.file_name() != nullptr ? part.file_name() : "";
    text.append(1, '\0').append(std::to_string(part.line_number()));
    text.append(1, '\0').append(part.message()).append(1, '\0');
    if (::write(fd, text.data(), text.size()) < 0) break;
  }
  return any;
}

// Reports as failures of the test what `send_failures` sent.
void report(const std::string& failures) {
  std::istringstream stream(failures);
  std::string file;
  std::string line;
  std::string message;
  while (std::getline(stream, file, '\0') && std::getline(stream, line, '\0') &&
         std::getline(stream, message, '\0')) {
    ADD_FAILURE_AT(file.c_str(), std::stoi(line)) << message;
  }
}

// The body proper. Leaves without running exit handlers, which belong to the parent.
[[noreturn]] void run_body(const std::function<void()>& body, const Options& options, int fd) {
  ::testing::TestPartResultArray results;
  using Reporter = ::testing::ScopedFakeTestPartResultReporter;
  const Reporter other_threads(Reporter::INTERCEPT_ALL_THREADS, &results);
  const Reporter this_thread(Reporter::INTERCEPT_ONLY_CURRENT_THREAD, &results);
  try {
    prepare_files();
    start_loopback();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "sandbox: %s\n", error.what());
    ::_exit(kSetupFailed);
  }
  try {
    body();
  } catch (const std::exception& error) {
    ADD_FAILURE() << "exception out of the sandbox body: " << error.what();
  }
  std::fflush(nullptr);
  if (send_failures(results, fd)) ::_exit(kTestFailed);
  const bool leak_check = options.leak_check && __lsan_do_recoverable_leak_check != nullptr;
  ::_exit(leak_check && __lsan_do_recoverable_leak_check() != 0 ? kLeaked : kPassed);
}

// Waits for `child`, and for whatever else is left to this process; then ends as it ended.
[[noreturn]] void end_with(pid_t child) {
  int status = 0;
  while (::waitpid(-1, &status, 0) != child) {
  }
  ::_exit(WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status));
}

// Process 1 of the sandbox, with which everything in it ends. Goes with its parent, so that nothing
// stays behind where the whole test program is killed.
[[noreturn]] void run_init(const std::function<void()>& body, const Options& options, int fd) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  const pid_t child = ::fork();
  if (child == 0) run_body(body, options, fd);
  ::signal(SIGALRM, [](int) { ::_exit(kTimedOut); });
  ::alarm(static_cast<unsigned>(options.seconds));
  end_with(child);
}

[[noreturn]] void run_child(const std::function<void()>& body, const Options& options, int fd) {
  try {
    enter_namespaces();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "sandbox: %s\n", error.what());
    ::_exit(kSetupFailed);
  }
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // behind a new user namespace, which would undo it
  const pid_t init = ::fork();
  if (init == 0) run_init(body, options, fd);
  end_with(init);
}

std::string call_log() {
  return g_scratch + "/calls";
}
std::string shell_log() {
  return g_scratch + "/shell";
}

std::vector<std::string> split(const std::string& text, char end) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, end);) parts.push_back(part);
  return parts;
}

}  // namespace

void run(const std::function<void()>& body, const Options& options) {
  std::string name = (fs::temp_directory_path() / "utility-test-").string() + std::string(6, 'X');
  ASSERT_NE(::mkdtemp(name.data()), nullptr);
  g_scratch = name;
  int fds[2];
  ASSERT_EQ(::pipe2(fds, O_CLOEXEC), 0);
  std::fflush(nullptr);

  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::close(fds[0]);
    run_child(body, options, fds[1]);
  }
  ::close(fds[1]);
  std::string failures;
  char block[4096];
  for (ssize_t count = 0; (count = ::read(fds[0], block, sizeof block)) > 0;) {
    failures.append(block, static_cast<std::size_t>(count));
  }
  ::close(fds[0]);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ::rmdir(name.c_str());
  report(failures);
  const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  EXPECT_NE(code, kSetupFailed) << "the sandbox could not be set up";
  EXPECT_NE(code, kLeaked) << "memory leaked in the sandbox";
  EXPECT_NE(code, kTimedOut) << "the sandbox body did not end in time";
  const bool told = code >= kSetupFailed && code <= kTimedOut;
  EXPECT_TRUE(code == kPassed || told)
      << "the sandbox body died (100 + signal, or exit status): " << code;
}

const std::string& scratch() {
  return g_scratch;
}

void write_file(const std::string& path, const std::string& content, unsigned mode) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream stream(path, std::ios::binary);
  stream << content;
  stream.close();
  require(stream.good() && ::chmod(path.c_str(), mode) == 0, path);
}

std::string read_file(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  require(stream.is_open(), path);
  return {std::istreambuf_iterator<char>(stream), {}};
}

void bind_path(const std::string& source, const std::string& target) {
  require(::mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0,
          "bind over " + target);
}

void bind_content(const std::string& target, const std::string& content) {
  static int count = 0;
  const std::string file = g_scratch + "/fixtures/" + std::to_string(++count);
  write_file(file, content);
  bind_path(file, target);
}

void make_private(const std::string& dir) {
  static int count = 0;
  const std::string base = g_scratch + "/private/" + std::to_string(++count);
  fs::create_directories(base + "/upper");
  fs::create_directories(base + "/work");
  const std::string layers =
      "lowerdir=" + dir + ",upperdir=" + base + "/upper,workdir=" + base + "/work";
  require(::mount("overlay", dir.c_str(), "overlay", 0, layers.c_str()) == 0, "overlay " + dir);
}

void stand_in(const std::string& path, int status) {
  const std::string name = fs::path(path).filename().string();
  const std::string script = "#!/bin/bash\nprintf '%s\\n' \"" + name + "${*:+ $*}\" >> " +
                             call_log() + "\nexit " + std::to_string(status) + "\n";
  if (!fs::exists(path)) {
    write_file(path, script, 0755);
    return;
  }
  const std::string file = g_scratch + "/stand-ins" + fs::canonical(path).string();
  write_file(file, script, 0755);
  bind_path(file, fs::canonical(path).string());
}

std::vector<std::string> recorded_calls() {
  return fs::exists(call_log()) ? split(read_file(call_log()), '\n') : std::vector<std::string>{};
}

void record_shell(bool execute) {
  const std::string shell = fs::canonical("/bin/sh").string();
  const std::string real = g_scratch + "/real-sh";
  fs::copy_file(shell, real);
  const std::string tail = execute ? "exec -a sh " + real + " \"$@\"\n" : "exit 0\n";
  // popen and system pass "-c" (and "--" in newer C libraries) before the text.
  write_file(
      g_scratch + "/recorder",
      "#!/bin/bash\n[ \"$1\" = -c ] && printf '%s\\0' \"${@: -1}\" >> " + shell_log() + "\n" + tail,
      0755);
  bind_path(g_scratch + "/recorder", shell);
}

std::vector<std::string> shell_commands() {
  return fs::exists(shell_log()) ? split(read_file(shell_log()), '\0') : std::vector<std::string>{};
}

}  // namespace sandbox
