// Addresses and ranges: what is printed parses to the same address, and every form of one address
// lies in the same ranges.
#include <cstring>
#include <vector>

#include "fuzz.h"
#include "utility/CIPFormat.h"

using utility::CIPFormat;

namespace {

CIPFormat& format = *CIPFormat::instance();

void check_v4(const char* text) {
  unsigned value = 77;
  if (format.ipv4_to_i(text, &value) == 0) {
    check(value == 77, "a refused IPv4 text leaves the number");
    return;
  }
  unsigned again = 0;
  check(format.ipv4_to_i(format.ipv4_uint_to_str(value).c_str(), &again) == 1 && again == value,
        "an IPv4 address prints as itself");
}

// Parses; false where the text is refused.
bool parse(const std::string& text, unsigned (&words)[4]) {
  return format.ipv6_to_i(text.c_str(), 128, words) == 1;
}

void check_v6(const std::string& text) {
  std::string full = "kept";
  if (format.format_ip_address(text.c_str(), full) != 0) {
    check(full == "kept", "a refused text leaves the form");
    return;
  }
  unsigned words[4];
  unsigned others[4];
  check(parse(full, words) && parse(format.ipv6_zero_compress(full.c_str()), others) &&
            std::memcmp(words, others, sizeof words) == 0,
        "the short form is the same address");
  unsigned char bytes[16];
  format.ipv6_str_to_uint8_array(full.c_str(), bytes);
  check(format.ipv6_uint8_array_to_str(bytes) == full, "the bytes are the same address");
  std::vector<IPRangeExpress> ranges;
  format.add_ip_to_range(full, ranges);
  check(format.is_ip_in_range(full.c_str(), ranges), "an address is in the range of itself");
  check(format.ipv6_in_range(full, full, full), "an address lies between itself and itself");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::string first = input.c_text('-');
  const std::string last = input.c_text('-');
  const std::string ip = input.c_text('-');
  for (const std::string* text : {&first, &last, &ip}) {
    check_v4(text->c_str());
    check_v6(*text);
    format.ipv6_to_ipv4(*text);
    format.ipv6_zero_compress(text->c_str());
  }
  unsigned words[4];
  std::vector<IPRangeExpress> ranges;
  if (parse(first, words) && parse(last, words) && parse(ip, words) && first != last) {
    format.add_ip_to_range(first + "-" + last, ranges);
    if (first.find(':') != std::string::npos && ip.find(':') != std::string::npos) {
      check(format.is_ip_in_range(ip.c_str(), ranges) == format.ipv6_in_range(first, last, ip),
            "the two tests of a range agree");
    }
  }
  ranges.clear();
  format.add_ip_to_range(first + "-" + last, ranges);
  check(ranges.size() <= 1, "an expression is one range");
  format.is_ip_in_range(ip.c_str(), ranges);
  return 0;
}
