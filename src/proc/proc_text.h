#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"

// What the texts under /proc mean. Nothing here opens or reads a file.
namespace utility::detail {

/// Scans a stat file for its 4th field, the parent, and its 22nd, the start in clock ticks.
///
/// Fields are whatever white space separates, so a blank in the process name shifts them. From the
/// first field on that is no number, what was to be found counts as 0.
void scan_stat(FILE* stream, int& ppid, unsigned long& start_ticks);

/// The same over a text.
void parse_stat_line(const char* line, int& ppid, unsigned long& start_ticks);

/// Seconds since the epoch of a start `ticks` after `boot_time`. The rate is taken to be 100 ticks
/// per second, what the kernel shows on x86-64 whatever it runs at.
long start_time(unsigned long ticks, long boot_time);

/// What stands behind `key` in `line`; null unless the first word of `line` is exactly the key.
const char* behind_key(const char* line, std::string_view key);

/// Takes the number at the beginning of `text` as an id (the low 32 bits of what stands there);
/// `id` is left alone when there is none.
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

/// The lines of a text in memory; stands in for a LineReader where no line is longer than it reads.
class TextLines {
 public:
  /// `text` is changed: its line feeds become NUL bytes. The byte behind its `count` bytes is NUL.
  TextLines(char* text, std::size_t count) noexcept : next_(text), end_(text + count) {}

  bool next() noexcept;
  const char* text() const noexcept { return line_; }

 private:
  char* next_;
  char* end_;
  const char* line_ = nullptr;
};

/// Fills `fields` from `lines`, a LineReader or TextLines.
template <typename Lines>
void scan_status(Lines& lines, StatusFields& fields) {
  while (!fields.complete() && lines.next()) fields.parse_line(lines.text());
}

/// The first line of `text` with its line feed, cut to 4095 bytes, as LineReader would have it.
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
