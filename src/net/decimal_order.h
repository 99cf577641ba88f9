#pragma once

#include <algorithm>
#include <string_view>

namespace utility::detail {

/// The order of decimal texts: 1 when `a` is the greater, -1 when `b` is, 0 when they are equal.
///
/// Length decides first, leading zeros counted; then the first character that differs. Characters
/// are compared as `char`, the value from which a digit is computed, so texts that are not digits
/// keep the order that their "digits" have.
inline int compare_decimal(std::string_view a, std::string_view b) noexcept {
  if (a.size() != b.size()) return a.size() > b.size() ? 1 : -1;
  const auto [digit_a, digit_b] = std::mismatch(a.begin(), a.end(), b.begin());
  if (digit_a == a.end()) return 0;
  return *digit_a > *digit_b ? 1 : -1;
}

}  // namespace utility::detail
