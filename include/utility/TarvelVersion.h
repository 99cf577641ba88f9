#pragma once

#include <string>
#include <vector>

#include "utility/Export.h"

namespace utility {

/// A version text such as "3.2.1", "tarvel_3.2.1" or "3.2.1-beta", and its numbers.
///
/// The comparisons look at the numbers alone, one by one up to the first that differs, and are no
/// total order. Values are equal when they have the same numbers and as many of them. Where one
/// value's numbers only begin the other's (or one has none), `>` and `>=` hold both ways round, and
/// `<` and `<=` neither way: "3.2.0" > "3.2.0.0" and "3.2.0.0" > "3.2.0". Hence these values are
/// not for sorting.
class UTILITY_API TarvelVersion {
 public:
  /// Keeps `text` and its numbers, as `analyze_version` finds them.
  TarvelVersion(const std::string& text);

  /// True when `text` could be analysed; otherwise there are no numbers.
  bool is_regular_ver() const;

  /// Appends the numbers of the version in `text` to `parts`.
  ///
  /// The first "(", "_" or "-" divides the text: what stands before it counts when the text begins
  /// with a digit, else what stands behind it. That, trimmed, is split at dots; empty pieces are
  /// dropped, and each piece is read as strtol(3) reads decimals: leading digits count, "V3" is 0.
  /// A number beyond `long` is the nearest `long`; of a number beyond `int` the low 32 bits are
  /// kept.
  ///
  /// @param parts  receives the numbers; appended to, never cleared.
  /// @return false when the whole `text` has fewer than two dots, wherever they stand. On failure
  ///         `parts` is untouched.
  static bool analyze_version(const std::string& text, std::vector<int>& parts);

  /// The same numbers, and as many.
  bool operator==(const TarvelVersion& other) const;
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
  std::string m_version;
  bool m_regular;
  std::vector<int> m_parts;
};

}  // namespace utility
