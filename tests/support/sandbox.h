#pragma once

#include <poll.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

/// A machine of the test's own.
///
/// The launcher `tests/support/sandbox` gives each test mounts, process ids and a network of its
/// own (with nothing but loopback), a private /etc, /usr and /var, an empty /run and a /proc of its
/// own. ctest starts every test through it; by hand that is
///
///     tests/support/sandbox build/debug/bin/sockets_test --gtest_filter='ProcNet.*'
///
/// A test may change whatever is private; when it ends, every process it started is killed and
/// every mount is gone. Each test has a process and a machine to itself, so nothing has to be put
/// back. As a user other than root, a test runs as the root of a user name space. A program that
/// uses what follows refuses to run its tests anywhere else.
namespace sandbox {

/// A private directory that vanishes with the sandbox; tests begin in it.
const std::string& scratch();

/// Writes a file (the directories on the way are made), returning its path, and reads one whole.
std::string write_file(const std::string& path, const std::string& content, unsigned mode = 0644);
std::string read_file(const std::string& path);
/// What a command prints to its standard output; bash runs it, unseen by record_shell.
std::string output_of(const std::string& command, int* status = nullptr);

/// How many descriptors this process holds, of the 1,024 that it usually may. It asks by a single
/// system call, which is none that the library makes: tests count and disturb those.
inline int open_descriptors() {
  pollfd all[1024];
  for (int fd = 0; fd < 1024; ++fd) all[fd] = {fd, 0, 0};
  const timespec now{0, 0};
  if (::ppoll(all, std::size(all), &now, nullptr) < 0) std::abort();
  return static_cast<int>(std::count_if(std::begin(all), std::end(all),
                                        [](const pollfd& one) { return one.revents != POLLNVAL; }));
}

/// Puts the file or directory `source` over the existing `target`.
void bind_path(const std::string& source, const std::string& target);

/// Puts a recorder before /bin/sh that notes the text of every `sh -c`. With `execute` the real
/// shell runs it then; without, the call ends with status 0.
void record_shell(bool execute);
/// The command texts recorded since the last call, byte for byte.
std::vector<std::string> shell_commands();

}  // namespace sandbox
