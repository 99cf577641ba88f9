#include "utility/CBigInt.h"

#include "base/paths.h"
#include "net/decimal_order.h"

namespace utility {
namespace {

// The digit of `number` at `place` (0 is the last), 0 before its first.
int digit_at(std::string_view number, std::size_t place) noexcept {
  return place < number.size() ? number[number.size() - 1 - place] - '0' : 0;
}

// A borrow past the first digit is lost: it only occurs where the result means nothing.
std::string subtract(std::string_view greater, std::string_view smaller, std::size_t digits) {
  std::string difference(digits, '0');
  int borrow = 0;
  for (std::size_t place = 0; place < digits; ++place) {
    int digit = digit_at(greater, place) - digit_at(smaller, place) - borrow;
    borrow = digit < 0 ? 1 : 0;
    if (borrow != 0) digit += 10;
    difference[digits - 1 - place] = static_cast<char>(digit + '0');
  }
  return difference;
}

}  // namespace

int CBigInt::sub(const char* a, const char* b, std::string& difference) {
  std::string_view greater = detail::or_empty(a);
  std::string_view smaller = detail::or_empty(b);
  const int order = detail::compare_decimal(greater, smaller);
  if (order < 0) std::swap(greater, smaller);
  // Built apart, since the operands may lie in `difference`.
  difference = subtract(greater, smaller, greater.size());
  return order;
}

}  // namespace utility
