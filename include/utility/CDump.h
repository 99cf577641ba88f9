#pragma once

#include <cstdio>

#include "utility/Export.h"

namespace utility {

/// Hex dumps of memory, to a stream or into a buffer.
///
/// A line covers `getmaxline()` bytes: each byte as two upper-case digits and a blank, then a
/// blank, then each byte as itself and a blank ("." for whatever isgraph(3) denies), then a line
/// feed. A last line with the bytes that are left always follows, its missing hex fields filled
/// with blanks; where none are left it has those blanks only:
///
///     41 00 7F                                         A . .
///
/// The line width is one setting for the process and is not guarded: set it before other threads
/// dump.
class UTILITY_API CDump {
 public:
  /// Prints a dump of the `len` bytes at `data` to `stream`.
  ///
  /// Lines of other threads do not mix with a line of the dump. Errors of the stream stay there,
  /// for ferror(3).
  ///
  /// @param stream  stays open and is not flushed.
  /// @param data    only read.
  /// @param len     bytes; with 0 the last line is the only one.
  /// @return 0; 1 when `stream` or `data` is null; 2 when there is no memory for a line. On failure
  ///         nothing is printed.
  static int fdump(FILE* stream, char* data, unsigned long len);

  /// The same to standard output.
  static int dump(char* data, unsigned long len);

  /// Writes the text of `fdump` into `out`, cut to `outSize` - 1 bytes and NUL-terminated.
  ///
  /// @param out      receives the text; nothing is written to it when `outSize` is 0.
  /// @param outSize  the bytes that `out` has room for, the closing NUL included.
  /// @param data     only read.
  /// @param len      bytes.
  /// @return 0, also when the text was cut; 1 when `out` or `data` is null; 2 when there is no
  ///         memory for a line. On failure `out` is untouched.
  static int sndump(char* out, unsigned long outSize, char* data, unsigned long len);

  /// Sets the number of bytes per line, 16 at first. With 0 a dump shows no data: it is a blank and
  /// a line feed.
  static void setmaxline(unsigned long bytes);
  /// The number of bytes per line.
  static unsigned long getmaxline();

  /// Bytes per line of all dumps of the process; 16 at first.
  static unsigned long m_max_line;
};

}  // namespace utility
