#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>

#include "base/handles.h"

// How every family reads and writes: system calls that a signal may cut short, carried to their
// end; whole files and whole outputs; lines of a fixed greatest length.
namespace utility::detail {

/// Makes a system call, and makes it again as long as a signal interrupts it.
template <class Call>
auto retry(Call call) noexcept {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

/// Opens a file for reading. The agent forks: nothing stays open in its children.
inline Fd open_to_read(const char* path) noexcept {
  return Fd(retry([path] { return ::open(path != nullptr ? path : "", O_RDONLY | O_CLOEXEC); }));
}

/// Reads up to `size` bytes with one call; a negative count means that it failed.
inline ssize_t read_some(int fd, char* bytes, std::size_t size) noexcept {
  return retry([=] { return ::read(fd, bytes, size); });
}

/// Appends what is left to read; false when an error cut it short.
bool read_all(int fd, std::string& text);

/// Writes all of `bytes` by calls of `write(rest)`; false where no more can be written.
template <class Write>
bool write_whole(std::string_view bytes, Write write) noexcept {
  while (!bytes.empty()) {
    const ssize_t written = retry([&] { return write(bytes); });
    if (written <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

/// Writes where the file stands.
inline bool write_all(int fd, std::string_view bytes) noexcept {
  return write_whole(bytes, [fd](auto rest) { return ::write(fd, rest.data(), rest.size()); });
}

/// Writes from `offset` of the file on.
inline bool write_all_at(int fd, std::string_view bytes, off_t offset) noexcept {
  const off_t end = offset + static_cast<off_t>(bytes.size());
  return write_whole(bytes, [fd, end](auto rest) {
    return ::pwrite(fd, rest.data(), rest.size(), end - static_cast<off_t>(rest.size()));
  });
}

/// Gives the file `to` the owner and mode of the file `from`, as far as we may: a new file is made
/// under the process's umask, and what it replaces has rights of its own.
inline void take_over_rights(int from, int to) noexcept {
  struct stat st {};
  if (::fstat(from, &st) != 0) return;
  // The owner first: changing it drops the set-id bits. Only root can, and then nobody gains.
  if (::fchown(to, st.st_uid, st.st_gid) != 0 && st.st_uid != ::geteuid()) return;
  ::fchmod(to, st.st_mode & 07777);
}

/// Waits until `events` of poll(2) come true on `fd`, at most `milliseconds` in all, without limit
/// when negative. Returns 1, 0 when the time is over, or -1 when it cannot wait. Not select(2): the
/// agent may hold more descriptors than a set of those has room for.
int wait_for_events(int fd, short events, int milliseconds) noexcept;

/// Waits for the end of `child`, whose status is not kept; false when there is no such child.
inline bool wait_for(pid_t child) noexcept {
  return retry([child] { return ::waitpid(child, nullptr, 0); }) == child;
}

/// Runs `command` in a shell to its end. True only for an exit with 0: unlike CUnixTools::exec_cmd,
/// this takes a command that a signal ended for a failed one.
inline bool succeeds(const std::string& command) { return std::system(command.c_str()) == 0; }

/// Runs `command` in a shell to its end and appends all that it prints; false when none started.
bool read_command(const char* command, std::string& output);

/// Cuts the next line off `rest`: up to its line feed, which it keeps, but at most `most` bytes.
std::string_view take_line(std::string_view& rest, std::size_t most) noexcept;

/// The lines of a file or of a text, cut as fgets() cuts them.
///
/// Callers promise where lines are cut: a room of N bytes yields pieces of at most N - 1. The room
/// is part of the object (see `Lines`), so that reading lines has no failure of its own.
class LineSource {
 public:
  LineSource(const LineSource&) = delete;
  LineSource& operator=(const LineSource&) = delete;

  /// False when there is no open file to read.
  explicit operator bool() const noexcept { return static_cast<bool>(file_); }
  /// Goes to the next piece; false after the last one and where reading fails (see `failed`).
  bool next() noexcept;

  /// The piece in hand, with its line feed, NUL-terminated; valid until the next call of `next`.
  char* text() noexcept { return piece_; }
  /// The same up to its first NUL byte.
  std::string_view line() const noexcept { return piece_; }
  /// How many bytes of the source the pieces so far were.
  std::size_t consumed() const noexcept { return consumed_; }
  /// True when an error ended the reading, not the end of the file.
  bool failed() const noexcept { return failed_; }

 protected:
  LineSource(Fd file, std::string_view text, char* block, char* piece, std::size_t room) noexcept
      : file_(std::move(file)), rest_(text), block_(block), piece_(piece), room_(room) {}
  ~LineSource() = default;

  static constexpr std::size_t kBlock = 4096;  // what the kernel hands out of /proc at a time

 private:
  bool fill() noexcept;

  Fd file_;
  std::string_view rest_;
  char* block_;
  char* piece_;
  std::size_t room_;
  std::size_t consumed_ = 0;
  bool failed_ = false;
};

/// Lines in a room of `Room` bytes, with the NUL.
template <std::size_t Room>
class Lines final : public LineSource {
 public:
  /// Reads the open `file` from where it stands.
  explicit Lines(Fd file) noexcept : LineSource(std::move(file), {}, block_, piece_, Room) {}
  /// Cuts a text in memory.
  explicit Lines(std::string_view text) noexcept : LineSource(Fd(), text, nullptr, piece_, Room) {}

 private:
  // Not cleared: only what was read is looked at. The base may be told of arrays before they exist.
  char block_[kBlock];
  char piece_[Room];
};

/// Goes to the first line whose first word is exactly `key`, such as "Uid:"; returns what stands
/// after the key, or null when there is no such line.
const char* find_field(LineSource& lines, std::string_view key) noexcept;

}  // namespace utility::detail
