#include "utility/CStr.h"

#include <charconv>
#include <limits>

#include "base/text.h"

namespace utility {

using namespace detail;

namespace {

// What a formatted stream skips before a number and between words.
constexpr std::string_view kStreamSpace = kWhiteSpace;

// Reads [white space][sign]digits: the magnitude, 0 without a digit or beyond 64 bits.
unsigned long long read_decimal(const std::string& text, bool& negative) {
  const char* at = text.c_str() + std::strspn(text.c_str(), kWhiteSpace);
  negative = *at == '-';
  if (negative || *at == '+') ++at;
  unsigned long long magnitude = 0;
  const auto result = std::from_chars(at, text.c_str() + text.size(), magnitude);
  return result.ec == std::errc() ? magnitude : 0;
}

// In the end, not one by one: an argument may be an element of the list, which moves as it grows.
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
  if (close.empty()) return;  // nothing would ever be cut
  std::size_t begin = 0;
  while ((begin = text.find(open)) != std::string::npos) {
    const std::size_t end = text.find(close, begin);
    if (end == std::string::npos) return;
    text.erase(begin, end + close.size() - begin);
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
  bool negative = false;
  const unsigned long long magnitude = read_decimal(text, negative);
  return negative ? 0 - magnitude : magnitude;
}

long long CStr::atoll(const std::string& text) {
  bool negative = false;
  const unsigned long long magnitude = read_decimal(text, negative);
  constexpr unsigned long long kMax = std::numeric_limits<long long>::max();
  if (magnitude > kMax + (negative ? 1U : 0U)) return 0;
  return static_cast<long long>(negative ? 0 - magnitude : magnitude);
}

long CStr::atol(const std::string& text) { return atoll(text); }

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
  std::size_t end = 0;
  for (std::size_t begin = 0; begin < text.size(); begin = end + separator.size()) {
    end = std::min(text.find(separator, begin), text.size());
    if (end > begin) found.emplace_back(text, begin, end - begin);
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
