// Versions: two texts, parted by a newline, against the table of comparisons in the header.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "check.h"
#include "utility/TarvelVersion.h"

using utility::TarvelVersion;

namespace {

// What stands in one row of the table, for the numbers that the two texts hold.
int first_difference(const std::vector<int>& mine, const std::vector<int>& theirs) {
  for (std::size_t i = 0; i < mine.size() && i < theirs.size(); ++i) {
    if (mine[i] != theirs[i]) return mine[i] < theirs[i] ? -1 : 1;
  }
  return mine.size() == theirs.size() ? 0 : 1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::size_t end = text.find('\n');
  const std::string left = text.substr(0, end);
  const std::string right = end == std::string::npos ? left : text.substr(end + 1);

  std::vector<int> mine{7};
  std::vector<int> theirs{7};
  const TarvelVersion a(left);
  const TarvelVersion b(right);
  FUZZ_CHECK(TarvelVersion::analyze_version(left, mine) == a.is_regular_ver());
  FUZZ_CHECK(TarvelVersion::analyze_version(right, theirs) == b.is_regular_ver());
  FUZZ_CHECK(mine[0] == 7 && (a.is_regular_ver() || mine.size() == 1));

  const int order = first_difference(mine, theirs);
  FUZZ_CHECK((a == b) == (order == 0));
  FUZZ_CHECK((a != b) == (order != 0));
  FUZZ_CHECK((a < b) == (order < 0));
  FUZZ_CHECK((a <= b) == (order <= 0));
  FUZZ_CHECK((a > b) == (order > 0));
  FUZZ_CHECK((a >= b) == (order >= 0));
  return 0;
}
