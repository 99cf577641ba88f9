#include <random>
#include <string>
#include <vector>

#include "support/harness.h"
#include "utility/CBigInt.h"
#include "utility/CIPFormat.h"

namespace {

using utility::CBigInt;
using utility::CIPFormat;

// The order of two decimal texts as the sign of their difference, digit by digit.
bool in_range_by_subtraction(const std::string& decimal,
                             const std::vector<IPRangeExpress>& ranges) {
  std::string difference;
  for (const IPRangeExpress& range : ranges) {
    if (CBigInt::sub(decimal.c_str(), range.begin_text, difference) >= 0 &&
        CBigInt::sub(decimal.c_str(), range.end_text, difference) <= 0) {
      return true;
    }
  }
  return false;
}

}  // namespace

void set_up() {
  static CIPFormat& format = *CIPFormat::instance();
  static std::vector<IPRangeExpress> ranges;
  const int count = bench::smoke() ? 1000 : 100000;
  // Blocks of 256 addresses in ascending order, as lists of networks come; the address that is
  // asked for lies between two of them, so that every range is looked at.
  for (int i = 0; i < count; ++i) {
    const unsigned int begin = 0x01000000U + static_cast<unsigned int>(i) *
                                                 (0xE0000000U / static_cast<unsigned int>(count));
    format.add_ip_to_range(
        format.ipv4_uint_to_str(begin) + "-" + format.ipv4_uint_to_str(begin + 0xFF), ranges);
  }

  static const std::string address = "120.0.1.77";
  static std::vector<IPRangeExpress> own;
  format.add_ip_to_range(address + "-120.0.1.78", own);
  static const std::string decimal = own.at(0).begin_text;
  bench::require(
      !format.is_ip_in_range(address.c_str(), ranges) && !in_range_by_subtraction(decimal, ranges),
      "the address lies in a range");
  for (const auto& [text, inside] : {std::pair("1.2.3.4", true), std::pair("1.2.3.5", false)}) {
    std::vector<IPRangeExpress> one;
    format.add_ip_to_range(std::string(text) + "-1.2.3.9", one);
    format.add_ip_to_range("1.2.3.4-1.2.3.4", own);
    bench::require(format.is_ip_in_range("1.2.3.4", one) == inside, "a range is taken wrongly");
  }

  bench::work("ranges/library",
              [] { benchmark::DoNotOptimize(format.is_ip_in_range(address.c_str(), ranges)); });
  bench::work("ranges/subtraction",
              [] { benchmark::DoNotOptimize(in_range_by_subtraction(decimal, ranges)); });
}
