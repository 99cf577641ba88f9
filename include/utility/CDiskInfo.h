#pragma once

#include <sys/vfs.h>

#include <string>
#include <vector>

#include "utility/Export.h"

namespace utility {

/// The mounted file systems with their sizes.
///
/// All operations may run on any number of threads at once.
///
/// | Code | Meaning |
/// |---|---|
/// | 0 | done |
/// | 1 | the mount table cannot be opened |
/// | 2 | reading failed on the way |
class UTILITY_API CDiskInfo {
 public:
  /// One mounted file system. The texts are as the mount table writes them ("\040" for a blank).
  struct DiskInfo {
    std::string dev;        ///< Device, such as "/dev/sda1".
    std::string mount;      ///< Mount point.
    std::string fstype;     ///< File-system type, such as "ext4".
    struct statfs fs = {};  ///< Figures of the mount point as statfs(2) returns them.
  };

  /// Lists the mounted file systems of every type, pseudo file systems included.
  ///
  /// Left out are lines of fewer than three fields, mount points below "/proc/", and mount points
  /// that do not exist under the name in the table or cannot be measured.
  ///
  /// Hazard: the call waits as long as statfs(2) does, which for a network file system whose server
  /// is gone may be for ever.
  ///
  /// @param infos  receives one record per mount in table order; appended to, never cleared.
  /// @return 0; 1 when the mount table cannot be opened (`infos` is untouched); 2 when reading
  /// failed
  ///         on the way.
  /// On 2 `infos` keeps what was filled before the failing step.
  /// Source: /etc/mtab in lines of at most 4095 bytes; access(2) and statfs(2) of each mount point.
  static int get_disk_info(std::vector<DiskInfo>& infos);
};

}  // namespace utility
