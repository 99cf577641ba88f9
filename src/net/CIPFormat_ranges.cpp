#include <algorithm>
#include <cstdio>

#include "net/decimal_order.h"
#include "utility/CIPFormat.h"

namespace utility {
namespace {

using detail::compare_decimal;

/// The decimal text by which an address is compared: its four words, one after the other.
struct DecimalText {
  char text[sizeof(IPRangeExpress::begin_text)] = {};  // forty digits at most

  explicit DecimalText(const unsigned int* words) noexcept {
    std::snprintf(text, sizeof text, "%u%u%u%u", words[0], words[1], words[2], words[3]);
  }
  std::string_view view() const noexcept { return text; }
};

// What does not parse counts as "::".
DecimalText decimal_of(const std::string& ip) {
  unsigned int words[4] = {};
  CIPFormat::instance()->ipv6_to_i(ip.c_str(), 128, words);
  return DecimalText(words);
}

// Writes the decimal text of `ip` into a field of a record; false when it does not parse.
bool write_decimal(const std::string& ip, char (&field)[sizeof(IPRangeExpress::begin_text)]) {
  unsigned int words[4] = {};
  if (CIPFormat::instance()->ipv6_to_i(ip.c_str(), 128, words) == 0) return false;
  std::memcpy(field, DecimalText(words).text, sizeof field);
  return true;
}

bool has_colon(const std::string& text) { return text.find(':') != std::string::npos; }

template <std::size_t kSize>
std::string_view view_of(const char (&field)[kSize]) noexcept {
  return {field, ::strnlen(field, kSize)};
}

bool between(std::string_view ip, std::string_view begin, std::string_view end) noexcept {
  return compare_decimal(ip, begin) >= 0 && compare_decimal(ip, end) <= 0;
}

bool matches(const IPRangeExpress& range, std::string_view ip) noexcept {
  if (range.is_single != 0) return view_of(range.begin_text).substr(0, ip.size()) == ip;
  return between(ip, view_of(range.begin_text), view_of(range.end_text));
}

}  // namespace

void CIPFormat::add_ip_to_range(const std::string& expression,
                                std::vector<IPRangeExpress>& ranges) {
  if (expression.empty()) return;
  const std::size_t dash = expression.find('-');
  std::string first = expression.substr(0, dash);
  std::string last = dash == std::string::npos ? first : expression.substr(dash + 1);

  IPRangeExpress range;
  range.is_single = first == last ? 1 : 0;
  // The last address follows the first: after an IPv6 one it stays as it is.
  if (!has_colon(first)) {
    first = ipv4_to_ipv6(first);
    last = ipv4_to_ipv6(last);
  }
  if (!write_decimal(first, range.begin_text)) return;
  if (range.is_single == 0 && !write_decimal(last, range.end_text)) return;
  ranges.push_back(range);
}

bool CIPFormat::is_ip_in_range(const char* ip, std::vector<IPRangeExpress>& ranges) {
  if (ip == nullptr || ranges.empty()) return false;
  const std::string address = has_colon(ip) ? ip : ipv4_to_ipv6(ip);
  unsigned int words[4] = {};
  if (ipv6_to_i(address.c_str(), 128, words) == 0) return false;
  const DecimalText decimal(words);
  return std::any_of(ranges.begin(), ranges.end(),
                     [view = decimal.view()](const auto& range) { return matches(range, view); });
}

bool CIPFormat::ipv6_in_range(const std::string& begin, const std::string& end,
                              const std::string& ip) {
  return between(decimal_of(ip).view(), decimal_of(begin).view(), decimal_of(end).view());
}

}  // namespace utility
