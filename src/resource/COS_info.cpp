#include "utility/COS_info.h"

#include <sys/utsname.h>

#include "base/text.h"
#include "resource/os_version.h"

namespace utility {

using namespace detail;

namespace {

enum Code : int { kDone = 0, kNotProvided = 1 };

// The byte at `at` less '0', in 5 bits, whatever it is; 0 after the end.
unsigned digit_at(std::string_view text, std::size_t at) {
  return at < text.size() ? (static_cast<unsigned char>(text[at]) - unsigned{'0'}) & 0x1F : 0;
}

}  // namespace

int detail::pack_os_version(std::string_view system, std::string_view release,
                            std::string_view machine) {
  const unsigned is_linux = contains(system, "Linux") ? 1 : 0;
  const unsigned is_x64 = contains(machine, "x64") ? 1 : 0;
  return static_cast<int>(is_linux << 25 | digit_at(release, 0) << 20 | digit_at(release, 2) << 15 |
                          is_x64);
}

int COS_info::get_os_vesion(int& version) {
  utsname names{};
  ::uname(&names);
  version = pack_os_version(names.sysname, names.release, names.machine);
  return kDone;
}

int COS_info::get_os_vesion_str(std::string& /*text*/) { return kNotProvided; }

}  // namespace utility
