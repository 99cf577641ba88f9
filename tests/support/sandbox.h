#pragma once

#include <functional>
#include <string>
#include <vector>

/// A machine of the test's own.
///
/// `run` executes a test body in a child process that has its own mounts, process ids and network
/// (with nothing but loopback), a private copy of /etc and a /proc of its own. The body may change
/// whatever it has made private; when it ends, every process it started is killed and every mount
/// is gone. Expectations that fail inside count as failures of the calling test. As a user other
/// than root, the body runs as the root of a user namespace.
namespace sandbox {

struct Options {
  /// The body is killed, and the test fails, after this long.
  int seconds = 120;
  /// Switch off where the body hides /proc, which the leak check needs.
  bool leak_check = true;
};

void run(const std::function<void()>& body, const Options& options = {});

// What follows is for bodies only.

/// A private directory that vanishes with the sandbox.
const std::string& scratch();

/// Writes a file (the directories on the way are made) and reads one whole.
void write_file(const std::string& path, const std::string& content, unsigned mode = 0644);
std::string read_file(const std::string& path);

/// Puts a fixture file with `content` over the existing file `target`, such as "/proc/meminfo".
void bind_content(const std::string& target, const std::string& content);
/// Puts the file or directory `source` over the existing `target`.
void bind_path(const std::string& source, const std::string& target);
/// Makes the existing directory `dir` private: writes to it are seen by nobody else.
void make_private(const std::string& dir);

/// Replaces the tool at `path` by a stand-in that records its call and ends with `status`. The
/// path's directory must be private unless the tool exists.
void stand_in(const std::string& path, int status = 0);
/// The calls of all stand-ins so far, in order: tool name and arguments joined by single blanks.
std::vector<std::string> recorded_calls();

/// Puts a recorder before /bin/sh that notes the text of every `sh -c`. With `execute` the real
/// shell runs it then; without, the call ends with status 0.
void record_shell(bool execute);
/// The command texts recorded so far, byte for byte.
std::vector<std::string> shell_commands();

}  // namespace sandbox
