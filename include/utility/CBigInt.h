#pragma once

#include <string>

#include "utility/Export.h"

namespace utility {

/// Arithmetic on numbers that are held as decimal text.
///
/// All operations may run on any number of threads at once.
class UTILITY_API CBigInt {
 public:
  /// Orders two decimal texts and writes the digits of their absolute difference.
  ///
  /// The longer text is the greater, leading zeros counted ("010" is above "9"); texts of one
  /// length are ordered digit by digit from the left. The difference has as many digits as the
  /// longer text, leading zeros kept: "100" and "99" give "001".
  ///
  /// Texts are not checked to be digits. Where they are not, or where the longer one is numerically
  /// the smaller ("010" and "20"), the order holds as said and the text of the difference means
  /// nothing.
  ///
  /// @param a, b        decimal texts of any length; NULL counts as the empty text.
  /// @param difference  receives the digits; may own the text that `a` or `b` points to.
  /// @return 1 when `a` is the greater, -1 when `b` is, 0 when they are equal (all digits are then
  ///         "0").
  static int sub(const char* a, const char* b, std::string& difference);
};

}  // namespace utility
