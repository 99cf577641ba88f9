#pragma once

#include <string>
#include <vector>

#include "utility/Export.h"

namespace utility {

/// Byte-string helpers: trimming, comment stripping, replacing, decimal conversion and splitting.
///
/// Strings are plain bytes; no character set is assumed. Nothing here fails: bad numeric text reads
/// as 0, and a text without fields appends nothing. Splitters append to the caller's list, never
/// clear it, and never produce an empty field.
///
/// All operations may run on any number of threads at once.
class UTILITY_API CStr {
 public:
  /// Replaces every occurrence of `from` in `text` by `to`, from left to right.
  ///
  /// The replacement is not searched again, so replacing "a" by "aa" ends; hits that overlap an
  /// earlier hit are not found. An empty `from` changes nothing.
  static void string_replace(std::string& text, const std::string& from, const std::string& to);

  /// Cuts out every part of `text` from `open` to the next `close`, markers included.
  ///
  /// `close` is searched from where `open` begins, not from after it, so a close marker can match
  /// inside the open marker. An `open` without a `close` ends the work and stays in the text.
  static void trim_remark(const std::string& open, const std::string& close, std::string& text);

  /// Cuts `text` at the first `marker`; the marker goes too, blanks before it stay.
  static void trim_remark(const std::string& marker, std::string& text);

  /// Removes blanks, tabs, carriage returns and line feeds (these four bytes only) from the end.
  static void right_trim(std::string& text);
  /// The same from the beginning.
  static void left_trim(std::string& text);
  /// The same from both ends.
  static void trim(std::string& text);

  /// Removes every `byte` from the end of `text`.
  static void right_trim_byte(char byte, std::string& text);
  /// The same from the beginning.
  static void left_trim_byte(char byte, std::string& text);
  /// The same from both ends.
  static void trim_byte(char byte, std::string& text);

  /// Removes from the end of `text` every byte that occurs in `set`; an empty set removes nothing.
  static void right_trim_byte(const std::string& set, std::string& text);
  /// The same from the beginning.
  static void left_trim_byte(const std::string& set, std::string& text);
  /// The same from both ends.
  static void trim_byte(const std::string& set, std::string& text);

  /// Writes `value` in decimal.
  static std::string ulltoa(unsigned long long value);
  /// Writes `value` in decimal, with a leading "-" below zero.
  static std::string lltoa(long long value);

  /// Reads a decimal number: white space, an optional sign, digits; what follows is ignored.
  ///
  /// @return the number; 0 when `text` holds none or it does not fit in 64 bits. "-1" wraps to
  ///         the largest value, as a formatted stream has it.
  static unsigned long long atoull(const std::string& text);
  /// The same for signed numbers: 0 when there is none or it does not fit.
  static long long atoll(const std::string& text);
  /// The same as `atoll` for `long`, which has 64 bits here.
  static long atol(const std::string& text);

  // The texts that are split may be elements of the list that receives the pieces.

  /// Splits `text` at every byte that occurs in `separators`, as the C library's tokeniser does.
  ///
  /// Both texts count up to their first NUL byte. An empty text or separator set appends nothing.
  static void ext_line_strtok(const std::string& separators, std::vector<std::string>& fields,
                              const std::string& text);

  /// Splits `text` at every occurrence of the whole string `separator`; empty pieces are dropped.
  ///
  /// An empty separator appends nothing.
  static void ext_line(const std::string& separator, std::vector<std::string>& fields,
                       const std::string& text);

  /// Splits `text` into words at runs of white space (blank, `\t`, `\n`, `\v`, `\f`, `\r`).
  static void ext_line(std::vector<std::string>& fields, const std::string& text);
};

}  // namespace utility
