#pragma once

#include <cstddef>
#include <ctime>
#include <fstream>
#include <mutex>
#include <string>

#include "utility/Export.h"

namespace utility {

/// Writes a log file, one line per call, and starts it afresh at 10 MiB.
///
///     CDiyLog log;
///     log.init("/var/log/agent.log", CDiyLog::kProcessId);
///     log.write_log("%d rules read", count);
///
/// gives "[1234,0] 2026/11/14 17:09:44    7 rules read".
///
/// One object may be used by any number of threads; a line is written in one piece and is
/// with the kernel when `write_log` returns. Objects and processes that append to one file do not
/// mix their lines either, but nothing else is agreed among them: the one that finds the file full
/// deletes it, while the others go on in the deleted file until they find it full in turn.
///
/// Only a failing mutex throws (std::system_error).
class UTILITY_API CDiyLog {
 public:
  /// Option bits of `init`; other bits have no effect.
  enum Flag : unsigned long {
    kTruncate = 2,   ///< empty the file first, instead of appending to it
    kProcessId = 4,  ///< begin every line with "[<process id>,0] "
  };

  CDiyLog();
  /// Closes the file.
  ~CDiyLog();

  /// Opens the log file, making it where there is none. An object is opened once only.
  ///
  /// The file is not passed on to programs that the process starts. Where `path` is a pipe, the
  /// call waits for a reader, as open(2) does.
  ///
  /// @param path   the file; also what is deleted and made again when the file is full.
  /// @param flags  `Flag` bits. With `kProcessId` the id of the process that calls `init` is meant,
  ///               in a later fork as well.
  /// @return true when the file is open; false when it cannot be opened, and for every call after
  ///         the first, even if that failed (the first file stays in use).
  bool init(std::string path, unsigned long flags);

  /// Appends a line: the local date and time, four blanks, the message.
  ///
  /// A message of 511 characters loses its last one; so does, above that, every length that is one
  /// short of a multiple of 512. A message of 1,023,488 characters or more, or one that no memory
  /// can be had for, is cut to its first 510. A NUL character in the message ends it, and so does a
  /// conversion that fails.
  ///
  /// The line that brings the file to 10,485,760 bytes or more is its last: the file is closed,
  /// deleted and made again, empty; nothing is kept of the old one. A crash in between leaves the
  /// full file or none; the next line then starts a new one.
  ///
  /// Failures are not reported. Once writing or opening failed (a full disk), the object drops
  /// every later line; closing tries the line that failed once more. Before `init`, and for a null
  /// `format`, there is no line either.
  ///
  /// Takes a lock and may allocate: not for signal handlers, nor for the child of a fork() that
  /// another thread may have made amid a line.
  ///
  /// @param format  the message, as for printf(3), followed by its arguments; the compiler checks
  ///                them. "%m" is the error of the caller's errno.
  void write_log(const char* format, ...) __attribute__((format(printf, 2, 3)));

 private:
  void open_file(int mode);
  void refresh_prefix(std::time_t now);
  void put_line(std::time_t now, char* message, std::size_t length);

  std::ofstream m_stream;  ///< closed until `init`
  std::mutex m_lock;       ///< guards everything here
  std::string m_path;      ///< as given to `init`
  bool m_inited;           ///< `init` was called, with success or without
  int m_pid;               ///< the process id to print, 0 for none
  unsigned long m_flags;   ///< of the last call of `init`
  /// What all lines of one second begin with, the four blanks included, and that second. Breaking
  /// down and printing the time anew for each line would cost as much as writing it.
  std::time_t m_prefix_time;
  std::size_t m_prefix_size;
  char m_prefix[112];
};

}  // namespace utility
