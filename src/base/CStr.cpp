#include "utility/CStr.h"

#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <string_view>
#include <utility>

#include "base/text.h"

namespace utility {
namespace {

// Not isspace(): form feed and vertical tab are content to the trimming operations.
constexpr char kTrimSet[] = " \t\r\n";

// What a formatted stream skips before a number and between words.
constexpr std::string_view kStreamSpace = detail::kWhiteSpace;

struct Decimal {
  std::uint64_t magnitude = 0;
  bool negative = false;
  bool valid = false;
};

// Reads [white space][sign]digits; `valid` stays false without a digit or beyond 64 bits.
Decimal read_decimal(const std::string& text) {
  Decimal number;
  std::size_t at = text.find_first_not_of(kStreamSpace);
  if (at == std::string::npos) return number;
  if (text[at] == '+' || text[at] == '-') number.negative = text[at++] == '-';

  constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();
  const std::size_t first_digit = at;
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
    const auto digit = static_cast<std::uint64_t>(text[at] - '0');
    if (number.magnitude > (kMax - digit) / 10) return number;
    number.magnitude = number.magnitude * 10 + digit;
  }
  number.valid = at > first_digit;
  return number;
}

// At the end and not one by one: an argument may be an element of the list, which moves as it
// grows.
void append(std::vector<std::string>& fields, std::vector<std::string>&& found) {
  fields.insert(fields.end(), std::move_iterator(found.begin()), std::move_iterator(found.end()));
}

}  // namespace

void CStr::string_replace(std::string& text, const std::string& from, const std::string& to) {
  if (from.empty()) return;
  std::size_t hit = text.find(from);
  if (hit == std::string::npos) return;

  std::string result;
  std::size_t rest = 0;
  for (; hit != std::string::npos; hit = text.find(from, rest)) {
    result.append(text, rest, hit - rest).append(to);
    rest = hit + from.size();
  }
  text = result.append(text, rest, std::string::npos);
}

void CStr::trim_remark(const std::string& open, const std::string& close, std::string& text) {
  for (;;) {
    const std::size_t begin = text.find(open);
    if (begin == std::string::npos) return;
    const std::size_t end = text.find(close, begin);
    if (end == std::string::npos) return;
    const std::size_t length = end + close.size() - begin;
    if (length == 0) return;  // both markers empty: nothing would ever be cut
    text.erase(begin, length);
  }
}

void CStr::trim_remark(const std::string& marker, std::string& text) {
  const std::size_t at = text.find(marker);
  if (at != std::string::npos) text.erase(at);
}

void CStr::right_trim(std::string& text) { right_trim_byte(kTrimSet, text); }

void CStr::left_trim(std::string& text) { left_trim_byte(kTrimSet, text); }

void CStr::trim(std::string& text) {
  left_trim(text);
  right_trim(text);
}

void CStr::right_trim_byte(char byte, std::string& text) {
  text.erase(text.find_last_not_of(byte) + 1);
}

void CStr::left_trim_byte(char byte, std::string& text) {
  text.erase(0, text.find_first_not_of(byte));
}

void CStr::trim_byte(char byte, std::string& text) {
  left_trim_byte(byte, text);
  right_trim_byte(byte, text);
}

void CStr::right_trim_byte(const std::string& set, std::string& text) {
  text.erase(text.find_last_not_of(set) + 1);
}

void CStr::left_trim_byte(const std::string& set, std::string& text) {
  text.erase(0, text.find_first_not_of(set));
}

void CStr::trim_byte(const std::string& set, std::string& text) {
  left_trim_byte(set, text);
  right_trim_byte(set, text);
}

std::string CStr::ulltoa(unsigned long long value) { return std::to_string(value); }

std::string CStr::lltoa(long long value) { return std::to_string(value); }

unsigned long long CStr::atoull(const std::string& text) {
  const Decimal number = read_decimal(text);
  if (!number.valid) return 0;
  return number.negative ? 0 - number.magnitude : number.magnitude;
}

long long CStr::atoll(const std::string& text) {
  const Decimal number = read_decimal(text);
  const std::uint64_t limit =
      std::uint64_t{std::numeric_limits<std::int64_t>::max()} + (number.negative ? 1U : 0U);
  if (!number.valid || number.magnitude > limit) return 0;
  return static_cast<long long>(number.negative ? 0 - number.magnitude : number.magnitude);
}

long CStr::atol(const std::string& text) {
  static_assert(sizeof(long) == sizeof(long long));
  return static_cast<long>(atoll(text));
}

void CStr::ext_line_strtok(const std::string& separators, std::vector<std::string>& fields,
                           const std::string& text) {
  if (text.empty() || separators.empty()) return;
  std::vector<std::string> found;
  std::string copy(text.c_str());  // NOLINT(readability-redundant-string-cstr): up to its NUL
  char* state = nullptr;
  for (const char* token = strtok_r(copy.data(), separators.c_str(), &state); token != nullptr;
       token = strtok_r(nullptr, separators.c_str(), &state)) {
    found.emplace_back(token);
  }
  append(fields, std::move(found));
}

void CStr::ext_line(const std::string& separator, std::vector<std::string>& fields,
                    const std::string& text) {
  if (separator.empty()) return;
  std::vector<std::string> found;
  std::size_t begin = 0;
  for (std::size_t end = 0; end != std::string::npos; begin = end + separator.size()) {
    end = text.find(separator, begin);
    const std::size_t length = (end == std::string::npos ? text.size() : end) - begin;
    if (length > 0) found.emplace_back(text, begin, length);
    if (end == std::string::npos) break;
  }
  append(fields, std::move(found));
}

void CStr::ext_line(std::vector<std::string>& fields, const std::string& text) {
  std::vector<std::string> found;
  std::size_t begin = text.find_first_not_of(kStreamSpace);
  while (begin != std::string::npos) {
    const std::size_t end = text.find_first_of(kStreamSpace, begin);
    found.emplace_back(text, begin, end - begin);
    begin = text.find_first_not_of(kStreamSpace, end);
  }
  append(fields, std::move(found));
}

}  // namespace utility
