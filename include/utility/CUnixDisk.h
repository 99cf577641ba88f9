#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "utility/Export.h"

namespace utility {

/// The host's disks in the shape of a logical-volume model.
///
/// No volume manager is asked. The kernel's partition list stands in for it: every whole "sd" or
/// "hd" disk is a volume group and a physical volume, and every partition of it a logical volume.
/// Other devices (vda, nvme0n1, dm-0, ...) do not appear.
///
/// A disk is known by its first three characters only, in all operations: sdaa counts as a
/// partition of sda.
///
/// Callbacks return 0 to go on and anything else to stop; records live only for the call; a null
/// callback is told nothing. All operations may run on any number of threads at once.
///
/// | Code | Meaning |
/// |---|---|
/// | 0 | done, or nothing to report |
/// | 1 | not provided on this system |
/// | 2 | the callback asked to stop |
/// | 10 | the partition list cannot be opened |
class UTILITY_API CUnixDisk {
 public:
  /// A volume group: a whole disk.
  struct UnixDiskVg {
    std::string name;           ///< Disk name, such as "sda".
    std::string path;           ///< "/dev/" and the disk name.
    std::string id;             ///< The disk name again.
    std::int64_t lv_count = 0;  ///< Number of the disk's partitions.
    std::int64_t extra = 0;     ///< Always 0.
    bool active = true;         ///< Always true.
  };

  /// A physical volume: a whole disk.
  struct UnixDiskPv {
    std::string name;     ///< Disk name.
    std::string path;     ///< "/dev/" and the disk name.
    std::string vg_name;  ///< The disk name again: each disk is its own group.
  };

  /// A logical volume: a partition.
  struct UnixDiskLv {
    std::string name;     ///< Partition name, such as "sda1".
    std::string path;     ///< "/dev/" and the partition name.
    std::string vg_name;  ///< The group name as the caller passed it.
  };

  /// Lists the names of "sd" and "hd" disks and their partitions.
  ///
  /// @param names  receives the names in the kernel's order; appended to, never cleared.
  /// @return 0; 10 when the list cannot be opened (`names` is untouched).
  /// Source: /proc/partitions in lines of at most 127 bytes; others than "major minor blocks name"
  /// are skipped.
  static int get_disk_info_from_proc(std::vector<std::string>& names);

  /// Counts the partitions of a disk.
  ///
  /// @param disk   the disk name; fewer than three characters match nothing.
  /// @param names  the names to count in: those longer than three characters that begin with the
  ///               first three of `disk`. Not changed.
  /// @return the number of partitions.
  static int get_disk_partition_total(std::string disk, std::vector<std::string>& names);

  /// Calls `callback` for each volume group: every name of exactly three characters,
  /// in the kernel's order.
  ///
  /// @param callback  told each group; non-zero stops the walk.
  /// @param context   passed on to `callback`.
  /// @return 0; 2 when the callback stopped it; 10 when the partition list cannot be opened.
  /// Source: /proc/partitions.
  static int get_vgs(int (*callback)(const UnixDiskVg&, void*), void* context);

  /// Calls `callback` for each physical volume: every name of exactly three characters,
  /// in the kernel's order.
  ///
  /// @param callback  told each disk; non-zero stops the walk.
  /// @param context   passed on to `callback`.
  /// @return 0; 2 when the callback stopped it; 10 when the partition list cannot be opened.
  /// Source: /proc/partitions.
  static int get_pvs(int (*callback)(const UnixDiskPv&, void*), void* context);

  /// Calls `callback` for each logical volume of a group, having written the volume's path and a
  /// line end to std::cout (flushed).
  ///
  /// @param vg        the group's name; its first three characters count, fewer match nothing.
  /// @param callback  told each partition; non-zero stops the walk.
  /// @param context   passed on to `callback`.
  /// @return 0; 2 when the callback stopped it; 10 when the partition list cannot be opened.
  /// Source: /proc/partitions.
  static int get_lvs_by_vg(const std::string& vg, int (*callback)(const UnixDiskLv&, void*),
                           void* context);

  // The rest exists so that callers written for other systems link and run. These operations look
  // at no argument, call nobody and change nothing: outputs keep what they held.

  /// The physical volumes of a group: none is told to `callback`. @return always 0.
  static int get_pvs_by_vg(const std::string& vg, int (*callback)(const UnixDiskPv&, void*),
                           void* context);
  /// Whether a group is active: not known. @return always 1.
  static int is_active_vg(const std::string& vg, bool& active);
  /// The group of a handle: not known. @return always 1.
  static int get_vg(void* handle, UnixDiskVg& vg);
  /// The name of the group with an id: not known. @return always 1.
  static int get_vgname_by_id(const std::string& id, std::string& name);
  /// The physical volume of a handle: not known. @return always 1.
  static int get_pv(void* group, void* handle, UnixDiskPv& pv);
  /// The name of the physical volume with an id: not known. @return always 1.
  static int get_pvname_by_id(const std::string& id, std::string& name);
  /// The logical volume of a handle: not known. @return always 1.
  static int get_lv(void* handle, UnixDiskLv& lv);
  /// Reads a volume id from text: not done. @return always 1.
  static int string_to_unique_id(const std::string& text, void* id);
  /// Reads hexadecimal text: not done. @return always 0.
  static int HexToDec(const char* hex);
  /// Looks a device's name up: not done. @return always 1.
  static int get_name(const std::string& dir, const std::string& key, std::string& name);
  /// Lists raw devices: there are none; `names` keeps what it held.
  static void get_filenames_from_rdsk(std::vector<std::string>& names);
  /// Writes a volume id as text: not done. @return always the empty text.
  static std::string unique_id_to_string(void* id);
};

}  // namespace utility
