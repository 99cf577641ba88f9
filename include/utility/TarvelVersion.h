#pragma once

#include <string>
#include <vector>

#include "utility/Export.h"

namespace utility {

/// A version text such as "3.2.1", "tarvel_3.2.1" or "3.2.1-beta", and its numbers.
///
/// The comparisons look at the numbers alone, one by one up to the first that differs:
///
///     the numbers                          hold            do not hold
///     same numbers, as many of them        ==  <=  >=      !=  <  >
///     first difference: less here          !=  <   <=      ==  >  >=
///     first difference: greater here       !=  >   >=      ==  <  <=
///     one begins the other, or has none    !=  >   >=      ==  <  <=
///
/// That is no total order: "3.2.0" > "3.2.0.0" and "3.2.0.0" > "3.2.0" as well. These values are
/// not for sorting, nor for keys.
class UTILITY_API TarvelVersion {
 public:
  /// Keeps `text` and the numbers that `analyze_version` finds in it; none where it finds fewer
  /// than two dots.
  TarvelVersion(const std::string& text);

  /// True when `text` could be analysed; otherwise there are no numbers.
  bool is_regular_ver() const;

  /// Appends the numbers of the version in `text` to `parts`, as the constructor does.
  ///
  /// The first "(", "_" or "-" divides the text: what stands before it counts when the text begins
  /// with a digit, else what stands after it. That, trimmed, is split at dots; empty pieces are
  /// dropped, and each piece is read as strtol(3) reads decimals: leading digits count, "V3" is 0.
  /// A number beyond `long` is the nearest `long`; of a number beyond `int` the low 32 bits are
  /// kept.
  ///
  /// @param text   the version; a NUL byte ends the piece that it stands in.
  /// @param parts  receives the numbers; appended to, never cleared.
  /// @return false when the whole `text` has fewer than two dots, wherever they stand. On failure
  ///         `parts` is untouched.
  static bool analyze_version(const std::string& text, std::vector<int>& parts);

  /// The same numbers, and as many: "3.2.1" and "tarvel_03.2.1", but not "3.2.1.0".
  bool operator==(const TarvelVersion& other) const;
  /// Another number, or another count of them.
  bool operator!=(const TarvelVersion& other) const;
  /// Equal or greater; also where one value's numbers begin the other's.
  bool operator>=(const TarvelVersion& other) const;
  /// The first number that differs is greater; also where one value's numbers begin the other's.
  bool operator>(const TarvelVersion& other) const;
  /// Equal, or the first number that differs is less.
  bool operator<=(const TarvelVersion& other) const;
  /// The first number that differs is less.
  bool operator<(const TarvelVersion& other) const;

 private:
  std::string m_version;     ///< the text as given
  bool m_regular;            ///< the text could be analysed
  std::vector<int> m_parts;  ///< its numbers in order
};

}  // namespace utility
