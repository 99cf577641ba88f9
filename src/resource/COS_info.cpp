#include "utility/COS_info.h"

#include <sys/utsname.h>

#include "base/text.h"
#include "resource/os_version.h"

namespace utility {
namespace {

enum Code : int {
  kDone = 0,
  kNotProvided = 1,
};

constexpr int kSystemShift = 25;
constexpr int kMajorShift = 20;
constexpr int kMinorShift = 15;
constexpr unsigned kFieldMask = 0x1F;

// The byte at `at` as a digit. Other bytes keep what the subtraction gives; after the end is 0.
unsigned digit_at(std::string_view text, std::size_t at) {
  if (at >= text.size()) return 0;
  return (static_cast<unsigned char>(text[at]) - unsigned{'0'}) & kFieldMask;
}

}  // namespace

int detail::pack_os_version(std::string_view system, std::string_view release,
                            std::string_view machine) {
  const unsigned is_linux = contains(system, "Linux") ? 1 : 0;
  const unsigned is_x64 = contains(machine, "x64") ? 1 : 0;
  return static_cast<int>(is_linux << kSystemShift | digit_at(release, 0) << kMajorShift |
                          digit_at(release, 2) << kMinorShift | is_x64);
}

int COS_info::get_os_vesion(int& version) {
  utsname names{};
  ::uname(&names);
  version = detail::pack_os_version(names.sysname, names.release, names.machine);
  return kDone;
}

int COS_info::get_os_vesion_str(std::string& /*text*/) { return kNotProvided; }

}  // namespace utility
