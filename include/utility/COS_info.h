#pragma once

#include <string>

#include "utility/Export.h"

namespace utility {

/// The version of the operating system as one number.
///
/// All operations may run on any number of threads at once.
///
/// | Code | Meaning |
/// |---|---|
/// | 0 | done |
/// | 1 | not provided on this system |
class UTILITY_API COS_info {
 public:
  /// Packs what uname(2) says into one number.
  ///
  /// | Bits      | Meaning                                                                      |
  /// |-----------|------------------------------------------------------------------------------|
  /// | 25 and up | 1 when the system name contains "Linux", else 0                              |
  /// | 20 to 24  | first byte of the kernel release less '0', low 5 bits: the major version     |
  /// | 15 to 19  | third byte of the release less '0', low 5 bits: the minor's first digit      |
  /// | 5 to 14   | 0                                                                            |
  /// | 0 to 4    | 1 when the machine name contains "x64", else 0 (so 0 on "x86_64")            |
  ///
  /// A place after the end of the release counts as 0. "4.18.0" on Linux, x86_64, gives
  /// 0x2000000 + (4 << 20) + (1 << 15).
  ///
  /// @param version  receives the number.
  /// @return always 0.
  static int get_os_vesion(int& version);

  /// Not provided on this system.
  ///
  /// @param text  untouched.
  /// @return always 1.
  static int get_os_vesion_str(std::string& text);
};

}  // namespace utility
