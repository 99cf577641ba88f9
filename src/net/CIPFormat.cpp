#include "utility/CIPFormat.h"

#include <cstdlib>

#include "base/handles.h"
#include "base/hex.h"
#include "base/paths.h"
#include "base/text.h"
#include "net/decimal_order.h"

unsigned int ipv6_ntohl(unsigned int value) { return __builtin_bswap32(value); }

namespace utility {

using namespace detail;

namespace {

constexpr int kGroups = 8;
constexpr int kGroupBits = 16;
constexpr int kWords = 4;
constexpr std::size_t kGroupDigits = 4;
constexpr std::size_t kDottedMin = sizeof "0.0.0.0" - 1;
constexpr std::size_t kDottedMax = sizeof "255.255.255.255" - 1;
constexpr std::size_t kFullForm = kGroups * (kGroupDigits + 1);  // colons and the NUL

// Room to spare for white space. The longest text that parses without any has 66 characters: four
// dotted fields of fifteen, the colons between them, one of these doubled, and one at either end.
constexpr std::size_t kTextMax = 127;

constexpr char kHexDigits[] = "0123456789ABCDEFabcdef";

enum Field { kInvalid = -1, kHexGroup = 0, kEmpty = 1, kDotted = 2 };

// A field as "%x" reads it: blanks, sign and "0x" are taken, what is no number is 0.
unsigned int hex_value(const char* field) noexcept {
  return field != nullptr ? static_cast<unsigned int>(std::strtoul(field, nullptr, 16)) : 0;
}

// The groups of an IPv6 text while its fields are read from left to right.
class Groups {
 public:
  explicit Groups(int wanted) noexcept : wanted_(wanted) {}

  // Takes one field that is not an empty one at either end.
  bool take(CIPFormat& format, const char* field) {
    const int type = format.ipv6_address_field_type_get(field);
    if (type == kHexGroup) return add(hex_value(field));
    if (type == kDotted) {
      const unsigned int value = format.ipv4_str_to_uint(field);
      return count_ <= wanted_ - 2 && add(value >> 16) && add(value);
    }
    // A "::"; a text may hold one.
    return type == kEmpty && std::exchange(zeros_at_, count_) < 0;
  }

  // Fills up with zeros where the "::" stood; false when groups are missing and there was none.
  bool complete() noexcept {
    if (count_ == wanted_) return true;
    if (zeros_at_ < 0) return false;
    std::rotate(groups_ + zeros_at_, groups_ + count_, groups_ + wanted_);
    return true;
  }

  void pack(unsigned int* words) const noexcept {
    for (int i = 0; i < kGroups; i += 2) *words++ = unsigned{groups_[i]} << 16 | groups_[i + 1];
  }

 private:
  bool add(unsigned int group) noexcept {
    if (count_ >= wanted_) return false;
    groups_[count_++] = static_cast<std::uint16_t>(group);
    return true;
  }

  int wanted_;
  int count_ = 0;
  int zeros_at_ = -1;
  std::uint16_t groups_[kGroups] = {};
};

// A run of zero groups; it begins at -1 while there is none.
struct ZeroRun {
  int begin = -1;
  int length = 0;
};

// Splits `text` into `slots`, fields cut to the slot's four characters, and returns the run of
// zeros to shorten. A run counts only when another field follows it.
ZeroRun fill_slots(CIPFormat& format, char* text, char (&slots)[kGroups][kGroupDigits + 1]) {
  ZeroRun best{0, 0};
  ZeroRun run;
  char* rest = nullptr;
  char* field = ::strtok_r(text, ":", &rest);
  for (int k = 0; k < kGroups && field != nullptr; ++k) {
    if (format.is_zero_area(field)) {
      slots[k][0] = '0';
      if (run.begin < 0) run.begin = k;
      ++run.length;
    } else {
      std::memcpy(slots[k], field, ::strnlen(field, kGroupDigits));
      if (best.length == 0 || run.length > best.length) best = run;
      run = ZeroRun{};
    }
    field = ::strtok_r(nullptr, ":", &rest);
  }
  return best;
}

using DecimalText = char[sizeof(IPRangeExpress::begin_text)];  // forty digits at most are used

// Writes the decimal text by which an address is compared: its four words, one after the other.
// False when `ip` does not parse, which counts as "::".
bool write_decimal(const std::string& ip, DecimalText& text) {
  unsigned int words[4] = {};
  const int parsed = CIPFormat::instance()->ipv6_to_i(ip.c_str(), 128, words);
  std::snprintf(text, sizeof text, "%u%u%u%u", words[0], words[1], words[2], words[3]);
  return parsed != 0;
}

std::string_view view_of(const DecimalText& text) noexcept {
  return {text, ::strnlen(text, sizeof text)};
}

bool between(std::string_view ip, std::string_view begin, std::string_view end) noexcept {
  return compare_decimal(ip, begin) >= 0 && compare_decimal(ip, end) <= 0;
}

bool matches(const IPRangeExpress& range, std::string_view ip) noexcept {
  if (range.is_single != 0) return view_of(range.begin_text).substr(0, ip.size()) == ip;
  return between(ip, view_of(range.begin_text), view_of(range.end_text));
}

}  // namespace

CIPFormat* CIPFormat::instance() {
  static CIPFormat ins;
  return &ins;
}

int CIPFormat::ipv4_to_i(const char* text, unsigned int* value) {
  if (text == nullptr || value == nullptr) return 0;
  unsigned int address = 0;
  int shift = 24;
  const char* part = text;
  for (const char* at = text; shift >= 0; ++at) {
    if (*at >= '/' && *at <= '9') continue;  // "/" comes before "0" in ASCII
    if (*at != '.' && *at != '\0') return 0;
    // A long, so that a part of any length is too great rather than wrapped.
    const long number = std::strtol(part, nullptr, 10);
    if (number > 255) return 0;
    address |= static_cast<unsigned int>(number) << shift;
    if (*at == '\0') break;
    shift -= 8;
    part = at + 1;
  }
  *value = address;
  return 1;
}

unsigned int CIPFormat::ipv4_str_to_uint(const char* text) {
  unsigned int value = 0;
  ipv4_to_i(text, &value);
  return value;
}

int CIPFormat::ipv4_to_str(char* buffer, unsigned int value) {
  if (buffer == nullptr) return 0;
  return std::snprintf(buffer, kDottedMax + 1, "%u.%u.%u.%u", value >> 24, value >> 16 & 0xFF,
                       value >> 8 & 0xFF, value & 0xFF);
}

std::string CIPFormat::ipv4_uint_to_str(const unsigned int& value) {
  char buffer[kDottedMax + 1] = {};
  ipv4_to_str(buffer, value);
  return buffer;
}

int CIPFormat::ipv6_address_field_type_get(const char* field) {
  if (field == nullptr) return kInvalid;
  const std::size_t length = ::strnlen(field, kDottedMax + 1);
  if (length == 0) return kEmpty;
  if (length <= kGroupDigits) {
    return std::strspn(field, kHexDigits) == length ? kHexGroup : kInvalid;
  }
  unsigned int ignored = 0;
  const bool fits = length >= kDottedMin && length <= kDottedMax;
  return fits && ipv4_to_i(field, &ignored) == 1 ? kDotted : kInvalid;
}

int CIPFormat::ipv6_to_i(const char* text, int bits, unsigned int* words) {
  const int wanted = bits / kGroupBits;
  if (text == nullptr || words == nullptr || wanted < 1 || wanted > kGroups) return 0;
  const std::size_t length = ::strnlen(text, kTextMax + 1);
  if (length > kTextMax) return 0;
  char copy[kTextMax + 1];
  std::memcpy(copy, text, length);
  copy[length] = '\0';
  string_white_space_trim(copy);
  if (string_char_count(copy, ':') + 1 > wanted + 2) return 0;

  Groups groups(wanted);
  for (char* field = copy; field != nullptr;) {
    char* colon = std::strchr(field, ':');
    if (colon != nullptr) *colon = '\0';
    const bool skipped = *field == '\0' && (field == copy || colon == nullptr);
    if (!skipped && !groups.take(*this, field)) return 0;
    field = colon != nullptr ? colon + 1 : nullptr;
  }
  if (!groups.complete()) return 0;
  groups.pack(words);
  return 1;
}

void CIPFormat::ipv6_to_str(char* buffer, unsigned int* words) {
  if (buffer == nullptr || words == nullptr) return;
  unsigned int groups[kGroups];
  for (int i = 0; i < kGroups; ++i) groups[i] = words[i / 2] >> (i % 2 == 0 ? 16 : 0) & 0xFFFF;
  std::snprintf(buffer, kFullForm, "%04X:%04X:%04X:%04X:%04X:%04X:%04X:%04X", groups[0], groups[1],
                groups[2], groups[3], groups[4], groups[5], groups[6], groups[7]);
}

void CIPFormat::ipv6_str_to_uint8_array(const char* text, unsigned char* bytes) {
  if (bytes == nullptr) return;
  unsigned int words[kWords] = {};
  ipv6_to_i(text, kGroups * kGroupBits, words);
  for (unsigned int& word : words) word = ipv6_ntohl(word);
  std::memcpy(bytes, words, sizeof words);
}

std::string CIPFormat::ipv6_uint8_array_to_str(const unsigned char* bytes) {
  if (bytes == nullptr) return {};
  unsigned int words[kWords];
  std::memcpy(words, bytes, sizeof words);
  for (unsigned int& word : words) word = ipv6_ntohl(word);
  char buffer[kFullForm] = {};
  ipv6_to_str(buffer, words);
  return buffer;
}

std::string CIPFormat::ipv6_zero_compress(const char* text) {
  if (text == nullptr) return {};
  if (is_not_need_compress_ipv6(text)) return text;
  const std::size_t length = std::strlen(text);
  const Buffer copy = make_buffer(length + 1);
  if (copy == nullptr) return text;
  std::memcpy(copy.get(), text, length);

  char slots[kGroups][kGroupDigits + 1] = {};
  const ZeroRun best = fill_slots(*this, copy.get(), slots);
  // No field but zeros: no run was ever closed, and the rules below would go nowhere.
  if (best.begin == 0 && best.length == 0) return "::";
  std::string result;
  for (int i = 0; i < kGroups;) {
    if (i == best.begin) {
      result += !result.empty() && result.back() == ':' ? ":" : "::";
      i += best.length;
    } else {
      result += delete_leading_zero(slots[i]);
      if (++i < kGroups) result += ':';
    }
  }
  return result;
}

bool CIPFormat::is_not_need_compress_ipv6(const char* text) {
  return text == nullptr || std::strstr(text, "::") != nullptr ||
         string_char_count(text, ':') != kGroups - 1;
}

bool CIPFormat::is_zero_area(const char* field) { return hex_value(field) == 0; }

std::string CIPFormat::delete_leading_zero(const char* field) {
  char buffer[16] = {};
  std::snprintf(buffer, sizeof buffer, "%X", hex_value(field));
  return buffer;
}

char* CIPFormat::string_white_space_trim(char* text) {
  if (text == nullptr) return nullptr;
  const auto is_blank = [](char c) { return contains(kWhiteSpace, {&c, 1}); };
  *std::remove_if(text, text + std::strlen(text), is_blank) = '\0';
  return text;
}

int CIPFormat::string_char_count(const char* text, char c) {
  const std::string_view view = or_empty(text);
  return static_cast<int>(std::count(view.begin(), view.end(), c));
}

std::string CIPFormat::ipv4_to_ipv6(const std::string& text) {
  if (!contains(text, ".") || contains(text, ":")) return {};
  return "::ffff:" + text;
}

std::string CIPFormat::ipv6_to_ipv4(const std::string& text) {
  std::string lower = text;
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  if (!contains(lower, "0000:0000:0000:0000:0000:ffff:") && !contains(lower, "::ffff:")) return {};
  const std::string tail = lower.substr(lower.find("ffff:") + sizeof "ffff:" - 1);
  unsigned int parts[4] = {};
  // NOLINTNEXTLINE(cert-err34-c): two characters cannot overflow, and what is not read stays 0
  std::sscanf(tail.c_str(), "%2X%2X:%2X%2X", &parts[0], &parts[1], &parts[2], &parts[3]);
  char buffer[64] = {};
  std::snprintf(buffer, sizeof buffer, "%d.%d.%d.%d", static_cast<int>(parts[0]),
                static_cast<int>(parts[1]), static_cast<int>(parts[2]), static_cast<int>(parts[3]));
  return buffer;
}

int CIPFormat::format_ip_address(const char* text, std::string& out) {
  if (text == nullptr) return 1;
  const std::string mapped = ipv4_to_ipv6(text);
  unsigned int words[kWords] = {};
  if (ipv6_to_i(mapped.empty() ? text : mapped.c_str(), kGroups * kGroupBits, words) == 0) return 1;
  char buffer[kFullForm] = {};
  ipv6_to_str(buffer, words);
  out = buffer;
  return 0;
}

void CIPFormat::add_ip_to_range(const std::string& expression,
                                std::vector<IPRangeExpress>& ranges) {
  if (expression.empty()) return;
  const std::size_t dash = expression.find('-');
  std::string first = expression.substr(0, dash);
  std::string last = dash == std::string::npos ? first : expression.substr(dash + 1);

  IPRangeExpress range;
  range.is_single = first == last ? 1 : 0;
  // The last address follows the first: after an IPv6 one it stays as it is.
  if (!contains(first, ":")) {
    first = ipv4_to_ipv6(first);
    last = ipv4_to_ipv6(last);
  }
  if (!write_decimal(first, range.begin_text)) return;
  if (range.is_single == 0 && !write_decimal(last, range.end_text)) return;
  ranges.push_back(range);
}

bool CIPFormat::is_ip_in_range(const char* ip, std::vector<IPRangeExpress>& ranges) {
  if (ip == nullptr || ranges.empty()) return false;
  const std::string address = contains(ip, ":") ? ip : ipv4_to_ipv6(ip);
  DecimalText text;
  if (!write_decimal(address, text)) return false;
  const std::string_view view = text;
  for (const IPRangeExpress& range : ranges) {
    if (matches(range, view)) return true;
  }
  return false;
}

bool CIPFormat::ipv6_in_range(const std::string& begin, const std::string& end,
                              const std::string& ip) {
  DecimalText ip_text, begin_text, end_text;
  write_decimal(ip, ip_text);
  write_decimal(begin, begin_text);
  write_decimal(end, end_text);
  return between(ip_text, begin_text, end_text);
}

}  // namespace utility
