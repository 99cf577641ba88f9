#include "support/sandbox.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace fs = std::filesystem;

namespace {

const std::string kPrivate = "/run/utility-test/";  // the launcher makes it
const std::string kScratch = kPrivate + "scratch";
const std::string kShellLog = kPrivate + "shell";

// Keeps tests from the machine itself.
struct Guard : ::testing::Environment {
  void SetUp() override {
    if (fs::exists(kPrivate)) return fs::current_path(kScratch);
    std::fputs("These tests change the machine: start them through tests/support/sandbox.\n",
               stderr);
    ::_exit(2);
  }
};
[[maybe_unused]] const auto* const s_guard = ::testing::AddGlobalTestEnvironment(new Guard);

void require(bool done, const std::string& what) {
  if (!done) throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

// The leak check needs /proc, which some tests hide.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the sanitizer's
extern "C" int __lsan_is_turned_off() { return std::ifstream("/proc/self/maps").is_open() ? 0 : 1; }

namespace sandbox {

const std::string& scratch() { return kScratch; }

std::string write_file(const std::string& path, const std::string& content, unsigned mode) {
  fs::create_directories(fs::absolute(path).parent_path());
  std::ofstream stream(path, std::ios::binary);
  stream << content;
  stream.close();
  require(stream.good() && ::chmod(path.c_str(), mode) == 0, path);
  return path;
}

std::string read_file(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  require(stream.is_open(), path);
  return {std::istreambuf_iterator<char>(stream), {}};
}

std::string output_of(const std::string& command, int* status) {
  const std::string script = "exec > " + kPrivate + "output\n" + command;
  const pid_t child = ::fork();
  if (child == 0) ::execlp("bash", "bash", "-c", script.c_str(), nullptr);
  int ended = -1;
  require(::waitpid(child, status != nullptr ? status : &ended, 0) == child, command);
  return read_file(kPrivate + "output");
}

void bind_path(const std::string& source, const std::string& target) {
  require(::mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0, target);
}

void record_shell(bool execute) {
  const std::string shell = fs::canonical("/bin/sh");
  fs::copy_file(shell, kPrivate + "sh");
  // popen and system pass "-c" (and "--" in newer C libraries) before the text.
  write_file(kPrivate + "recorder",
             "#!/bin/bash\n[ \"$1\" = -c ] && printf '%s\\0' \"${@: -1}\" >> " + kShellLog + "\n" +
                 (execute ? "exec -a sh " + kPrivate + "sh \"$@\"\n" : "exit 0\n"),
             0755);
  bind_path(kPrivate + "recorder", shell);
}

std::vector<std::string> shell_commands() {
  std::ifstream stream(kShellLog, std::ios::binary);
  std::vector<std::string> commands;
  for (std::string one; std::getline(stream, one, '\0');) commands.push_back(one);
  fs::remove(kShellLog);
  return commands;
}

}  // namespace sandbox
