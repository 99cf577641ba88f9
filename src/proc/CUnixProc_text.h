#pragma once

#include <string>
#include <vector>

#include "base/text.h"

// The result codes of CUnixProc, and what the texts under /proc mean. Nothing here opens a file.
namespace utility::detail {

enum ProcCode : int {
  kDone = 0,
  kUnusable = 1,
  kNoLimit = 2,
  kNoChild = 3,
  kNotKilled = 4,
  kNoDirectory = 5,
  kNoMemory = 7,
  kNotRead = 9,
  kNoExecutable = 10,
  kNotOpened = 12,
  kStopped = 13,
};

/// How many bytes of a command line and of an environment are looked at.
constexpr int kCmdBytes = 4096;
constexpr int kEnvironBytes = 40960;
/// Lines of status files and of the first argument arrive in pieces of one byte less.
constexpr int kLineCapacity = 4096;

/// Reads from a stat file its 4th field, the parent, and its 22nd, the start in clock ticks.
///
/// Fields are whatever white space separates, so a blank in the process name shifts them. From the
/// first field on that is no number, nothing is found: `ppid` is left alone and the ticks are 0.
/// Returns the negative count of a failed read, where the file reads as an empty one.
ssize_t read_stat(int fd, int& ppid, unsigned long& start_ticks) noexcept;

/// Seconds since the epoch of a start `ticks` after `boot_time`. The rate is taken to be 100 ticks
/// per second, what the kernel shows on x86-64 whatever it runs at.
long start_time(unsigned long ticks, long boot_time);

/// Takes the low 32 bits of the number that `text` begins with; without one, `id` is left alone.
void parse_id(const char* text, unsigned int& id);

/// The fields of a status file that a process record holds.
struct StatusFields {
  std::string name;
  unsigned int uid = 0;
  unsigned int gid = 0;

  /// Looks for a field in `line`. The first line of a key counts, even where it holds no value.
  void parse_line(const char* line);
  /// True when no further line can add anything.
  bool complete() const { return has_name_ && has_uid_ && has_gid_; }

 private:
  bool has_name_ = false;
  bool has_uid_ = false;
  bool has_gid_ = false;
};

/// The first line of `text` with its line feed, cut to 4095 bytes.
std::string_view first_line(const char* text);

/// The first piece of a command line's first line; pieces are separated by "0", "x", tab and blank.
std::string_view first_piece(std::string_view line);

/// True when every byte of `text` is printable.
bool is_printable(std::string_view text);

/// The path in a line of a maps file; empty when the line names no file or a deleted one.
///
/// @param fields  working space, so that its memory serves all lines.
std::string mapped_path(std::string line, std::vector<std::string>& fields);

/// The shell command that runs `executable` with `args`. In the executable's file name every byte
/// but letters and digits is escaped; its directories, and a path without "/", stay as they are.
std::string shell_command(const std::string& executable, const std::string& args);

}  // namespace utility::detail
