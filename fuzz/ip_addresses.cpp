// Addresses: the texts of both kinds, their order as decimal text and lists of ranges, against
// plain models of the rules and against the C library where it takes a text too.
//
// The first line is an address, the others are expressions of ranges.
#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "check.h"
#include "lines.h"
#include "net/decimal_order.h"
#include "utility/CBigInt.h"
#include "utility/CIPFormat.h"

using namespace utility;

namespace {

using Words = std::array<unsigned, 4>;

CIPFormat& format() {
  return *CIPFormat::instance();
}

// Up to four parts of digits and slashes, their numbers up to the slash; missing parts are 0.
std::optional<unsigned> plain_v4(const std::string& text) {
  unsigned value = 0;
  std::vector<std::string> parts = split(text, '.');
  parts.resize(4);
  for (const std::string& part : parts) {
    if (part.find_first_not_of("0123456789/") != std::string::npos) return {};
    unsigned number = 0;
    for (const char c : part.substr(0, part.find('/'))) {
      number = number * 10 + static_cast<unsigned>(c - '0');
      if (number > 255) return {};
    }
    value = value << 8 | number;
  }
  return value;
}

bool is_group(const std::string& field) {
  return field.size() <= 4 &&
         field.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

// Groups between colons; the first and the last field may be empty, and one between them: there the
// zeros go.
std::optional<Words> plain_v6(const std::string& text, std::size_t wanted) {
  std::string packed;
  for (const char c : text) {
    if (std::isspace(static_cast<unsigned char>(c)) == 0) packed += c;
  }
  const std::vector<std::string> fields = split(packed, ':');
  if (text.size() > 127 || fields.size() > wanted + 2) return {};
  std::vector<unsigned> groups;
  std::optional<std::size_t> zeros;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const std::string& field = fields[i];
    if (field.empty()) {
      if (i == 0 || i + 1 == fields.size()) continue;
      if (zeros) return {};
      zeros = groups.size();
    } else if (is_group(field)) {
      groups.push_back(static_cast<unsigned>(std::stoul(field, nullptr, 16)));
    } else {
      const std::optional<unsigned> value = plain_v4(field);
      if (!value || field.size() < 7 || field.size() > 15) return {};
      groups.insert(groups.end(), {*value >> 16, *value & 0xFFFF});
    }
  }
  if (groups.size() > wanted || (groups.size() < wanted && !zeros)) return {};
  if (groups.size() < wanted) {
    groups.insert(groups.begin() + static_cast<std::ptrdiff_t>(*zeros), wanted - groups.size(), 0);
  }
  groups.resize(8);
  Words words{};
  for (std::size_t i = 0; i < 8; ++i) words[i / 2] = words[i / 2] << 16 | groups[i];
  return words;
}

Words words_of_bytes(const unsigned char* bytes) {
  Words words{};
  for (std::size_t i = 0; i < 16; ++i) words[i / 4] = words[i / 4] << 8 | bytes[i];
  return words;
}

void check_v4(const std::string& text) {
  unsigned value = 7;
  const std::optional<unsigned> plain = plain_v4(text);
  FUZZ_CHECK(format().ipv4_to_i(text.c_str(), &value) == (plain ? 1 : 0));
  FUZZ_CHECK(value == plain.value_or(7));
  FUZZ_CHECK(format().ipv4_str_to_uint(text.c_str()) == plain.value_or(0));
  in_addr address{};
  const bool strict = ::inet_pton(AF_INET, text.c_str(), &address) == 1;
  FUZZ_CHECK(!strict || value == ntohl(address.s_addr));

  address.s_addr = htonl(value);
  const std::string dotted = ::inet_ntoa(address);
  std::array<char, 16> buffer{};
  FUZZ_CHECK(format().ipv4_uint_to_str(value) == dotted);
  FUZZ_CHECK(format().ipv4_to_str(buffer.data(), value) == static_cast<int>(dotted.size()));
  FUZZ_CHECK(format().ipv4_str_to_uint(dotted.c_str()) == value);

  const std::string mapped = format().ipv4_to_ipv6(dotted);
  std::string full;
  FUZZ_CHECK(format().format_ip_address(dotted.c_str(), full) == 0);
  FUZZ_CHECK(format().ipv6_to_ipv4(full) == dotted);
  FUZZ_CHECK(plain_v6(mapped, 8) == Words({0, 0, 0xFFFF, value}));
}

// The forms of an address that did parse.
void check_forms(const Words& words) {
  std::array<unsigned char, 16> bytes{};
  std::array<char, 40> full{};
  Words copy = words;
  format().ipv6_to_str(full.data(), copy.data());
  FUZZ_CHECK(copy == words && std::strlen(full.data()) == 39);
  FUZZ_CHECK(::inet_pton(AF_INET6, full.data(), bytes.data()) == 1);
  FUZZ_CHECK(words_of_bytes(bytes.data()) == words);
  FUZZ_CHECK(format().ipv6_uint8_array_to_str(bytes.data()) == full.data());

  std::array<unsigned char, 16> again{};
  format().ipv6_str_to_uint8_array(full.data(), again.data());
  FUZZ_CHECK(again == bytes);
  const std::string brief = format().ipv6_zero_compress(full.data());
  FUZZ_CHECK(brief.size() <= 39 && plain_v6(brief, 8) == words);
  FUZZ_CHECK(::inet_pton(AF_INET6, brief.c_str(), again.data()) == 1 && again == bytes);
}

void check_v6(const std::string& text) {
  for (const int bits : {128, 64, 16, 143, 15, 0, -16}) {
    const std::size_t wanted = bits < 0 ? 0 : static_cast<std::size_t>(bits) / 16;
    Words words{1, 2, 3, 4};
    const std::optional<Words> plain = wanted > 0 ? plain_v6(text, wanted) : std::nullopt;
    FUZZ_CHECK(format().ipv6_to_i(text.c_str(), bits, words.data()) == (plain ? 1 : 0));
    FUZZ_CHECK(words == plain.value_or(Words{1, 2, 3, 4}));
  }
  const std::optional<Words> plain = plain_v6(text, 8);
  std::array<unsigned char, 16> bytes{};
  const bool strict = ::inet_pton(AF_INET6, text.c_str(), bytes.data()) == 1;
  FUZZ_CHECK(!strict || plain == words_of_bytes(bytes.data()));
  if (plain) check_forms(*plain);
  format().ipv6_to_ipv4(text);
  const std::string brief = format().ipv6_zero_compress(text.c_str());
  FUZZ_CHECK(!format().is_not_need_compress_ipv6(text.c_str()) || brief == text);
}

int plain_order(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return a.size() > b.size() ? 1 : -1;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (a[i] != b[i]) return a[i] > b[i] ? 1 : -1;
  }
  return 0;
}

// Any two texts have an order; numbers of at most 38 digits have a difference to compute with.
void check_difference(const std::string& a, const std::string& b) {
  const int order = plain_order(a, b);
  FUZZ_CHECK(detail::compare_decimal(a, b) == order);
  std::string difference = a;
  FUZZ_CHECK(CBigInt::sub(difference.c_str(), b.c_str(), difference) == order);
  FUZZ_CHECK(difference.size() == std::max(a.size(), b.size()));

  const std::string digits = a + b + difference;
  const bool is_number = digits.find_first_not_of("0123456789") == std::string::npos;
  if (!is_number || a.size() > 38 || b.size() > 38) return;
  const auto number = [](const std::string& text) {
    __int128 value = 0;
    for (const char c : text) value = value * 10 + (c - '0');
    return value;
  };
  const __int128 exact = order < 0 ? number(b) - number(a) : number(a) - number(b);
  FUZZ_CHECK(exact < 0 || number(difference) == exact);
}

// An address of either kind, dotted ones mapped.
std::optional<Words> plain_address(const std::string& text, bool dotted) {
  if (!dotted) return plain_v6(text, 8);
  if (text.find('.') == std::string::npos || text.find(':') != std::string::npos) return {};
  return plain_v6("::ffff:" + text, 8);
}

std::string decimal(const Words& words) {
  std::string text;
  for (const unsigned word : words) text += std::to_string(word);
  return text;
}

struct PlainRange {
  bool single;
  std::string first;
  std::string last;
};

std::optional<PlainRange> plain_range(const std::string& expression) {
  const std::size_t dash = expression.find('-');
  const std::string first = expression.substr(0, dash);
  const std::string last = dash < expression.size() ? expression.substr(dash + 1) : first;
  const bool dotted = first.find(':') == std::string::npos;
  const std::optional<Words> a = plain_address(first, dotted);
  const std::optional<Words> b = plain_v6(dotted ? format().ipv4_to_ipv6(last) : last, 8);
  if (!a || (!b && first != last)) return {};
  return PlainRange{first == last, decimal(*a), b ? decimal(*b) : ""};
}

bool plain_match(const PlainRange& range, const std::string& ip) {
  if (range.single) return range.first.compare(0, ip.size(), ip) == 0;
  return plain_order(range.first, ip) <= 0 && plain_order(ip, range.last) <= 0;
}

// Dotted addresses are in the order of their numbers.
void check_v4_range(const std::string& ip, const std::string& expression,
                    std::vector<IPRangeExpress>& ranges) {
  const std::vector<std::string> ends = split(expression, '-');
  in_addr a{};
  in_addr b{};
  in_addr c{};
  if (ends.size() != 2 || ends[0] == ends[1] || ::inet_pton(AF_INET, ends[0].c_str(), &a) != 1 ||
      ::inet_pton(AF_INET, ends[1].c_str(), &b) != 1 || ::inet_pton(AF_INET, ip.c_str(), &c) != 1) {
    return;
  }
  const bool inside = ntohl(a.s_addr) <= ntohl(c.s_addr) && ntohl(c.s_addr) <= ntohl(b.s_addr);
  FUZZ_CHECK(format().is_ip_in_range(ip.c_str(), ranges) == inside);
}

void check_ranges(const std::string& ip, const std::vector<std::string>& expressions) {
  const std::optional<Words> address = plain_address(ip, ip.find(':') == std::string::npos);
  std::vector<IPRangeExpress> all;
  bool any = false;
  for (const std::string& expression : expressions) {
    std::vector<IPRangeExpress> ranges;
    format().add_ip_to_range(expression, ranges);
    format().add_ip_to_range(expression, all);
    const std::optional<PlainRange> plain = plain_range(expression);
    FUZZ_CHECK(ranges.size() == (plain ? 1 : 0));
    if (!plain) continue;
    FUZZ_CHECK(ranges[0].is_single == (plain->single ? 1 : 0));
    FUZZ_CHECK(ranges[0].begin_text == plain->first);
    FUZZ_CHECK(ranges[0].end_text == (plain->single ? "" : plain->last));
    const bool matches = address && plain_match(*plain, decimal(*address));
    FUZZ_CHECK(format().is_ip_in_range(ip.c_str(), ranges) == matches);
    check_v4_range(ip, expression, ranges);
    any = any || matches;
  }
  FUZZ_CHECK(format().is_ip_in_range(ip.c_str(), all) == any);
}

void check_between(const std::string& begin, const std::string& end, const std::string& ip) {
  const auto text = [](const std::string& address) {
    return decimal(plain_v6(address, 8).value_or(Words{}));
  };
  const bool inside =
      plain_order(text(begin), text(ip)) <= 0 && plain_order(text(ip), text(end)) <= 0;
  FUZZ_CHECK(format().ipv6_in_range(begin, end, ip) == inside);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  text.resize(std::strlen(text.c_str()));
  std::vector<std::string> lines = split(text, '\n');
  if (lines.size() > 9) lines.resize(9);
  for (const std::string& line : lines) {
    check_v4(line);
    check_v6(line);
    check_difference(lines[0], line);
    check_difference(line, lines.back());
    check_between(lines[0], lines.back(), line);
  }
  const std::string ip = lines[0];
  lines.erase(lines.begin());
  check_ranges(ip, lines);
  return 0;
}
