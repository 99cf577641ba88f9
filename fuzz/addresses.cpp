// Addresses and ranges: what is printed parses to the same address, and every form of one address
// lies in the same ranges.
#include "fuzz.h"

namespace {

using Words = std::vector<unsigned>;
utility::CIPFormat& format = *utility::CIPFormat::instance();

// Empty where the text is refused.
Words parse(const std::string& text) {
  Words words(4);
  return format.ipv6_to_i(text.c_str(), 128, words.data()) == 1 ? words : Words();
}

void check_address(const std::string& text) {
  unsigned value = 77, again = 78;
  const bool is_v4 = format.ipv4_to_i(text.c_str(), &value) == 1;
  format.ipv4_to_i(format.ipv4_uint_to_str(value).c_str(), &again);
  check(is_v4 ? again == value : value == 77, "an IPv4 address prints as itself");
  format.ipv6_to_ipv4(text);
  format.ipv6_zero_compress(text.c_str());

  std::string full = "kept";
  if (format.format_ip_address(text.c_str(), full) != 0) {
    check(full == "kept", "a refused text leaves the form");
    return;
  }
  check(parse(format.ipv6_zero_compress(full.c_str())) == parse(full),
        "the short form is the same");
  unsigned char bytes[16];
  format.ipv6_str_to_uint8_array(full.c_str(), bytes);
  check(format.ipv6_uint8_array_to_str(bytes) == full, "the bytes are the same address");
  std::vector<IPRangeExpress> ranges;
  format.add_ip_to_range(full, ranges);
  check(format.is_ip_in_range(full.c_str(), ranges), "an address is in the range of itself");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::string first = input.text('-').c_str(), last = input.text('-').c_str(),
                    ip = input.text('-').c_str();
  for (const std::string& text : {first, last, ip}) check_address(text);
  std::vector<IPRangeExpress> ranges;
  format.add_ip_to_range(first + "-" + last, ranges);
  check(ranges.size() <= 1, "an expression is one range");
  const bool is_in = format.is_ip_in_range(ip.c_str(), ranges);
  const bool is_v6 = first.find(':') < first.size() && ip.find(':') < ip.size() && first != last;
  if (is_v6 && !parse(first).empty() && !parse(last).empty() && !parse(ip).empty()) {
    check(is_in == format.ipv6_in_range(first, last, ip), "the two tests of a range agree");
  }
  return 0;
}
