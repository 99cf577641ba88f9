// Writes addresses in their forms and looks them up in a list of ranges.

#include <utility/CIPFormat.h>

#include <cstdio>
#include <string>
#include <vector>

int main() {
  utility::CIPFormat& format = *utility::CIPFormat::instance();

  std::string full;
  if (format.format_ip_address("192.168.1.1", full) != 0) return 1;
  std::puts(full.c_str());
  std::puts(format.ipv6_zero_compress("2001:0db8:0000:0000:0000:0000:0000:0001").c_str());

  std::vector<IPRangeExpress> allowed;
  format.add_ip_to_range("10.0.0.1-10.0.0.99", allowed);
  format.add_ip_to_range("2001:db8::1", allowed);
  for (const char* address : {"10.0.0.50", "10.0.0.100", "2001:db8::1"}) {
    std::printf("%s: %s\n", address, format.is_ip_in_range(address, allowed) ? "allowed" : "no");
  }
  return 0;
}
