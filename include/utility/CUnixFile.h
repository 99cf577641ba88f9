#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>

#include "utility/Export.h"

namespace utility {

/// A small file manager: lists, creates, renames, re-modes and deletes directory entries.
///
/// Item types are single letters: '_' regular file, 'd' directory, 'c' character device, 'b' block
/// device, 'f' FIFO, 'l' symbolic link, 's' socket; 'a' means any type, as a filter only.
///
/// An item "exists" when access(2) finds it, so a dangling link does not exist, but for
/// `delete_item`. Paths count up to their first NUL byte.
///
/// Hazard: each step looks its path up anew. Do not run these operations over a tree that somebody
/// less trusted can change meanwhile, but for `delete_item`, which never leaves the tree.
///
/// | Code | Meaning |
/// |---|---|
/// | 0 | done |
/// | 1 | an empty path |
/// | 2 | the item could not be examined |
/// | 3 | not a directory |
/// | 4 | the directory could not be opened |
/// | 5 | the callback stopped it, or a part of the tree could not be deleted |
/// | 6 | the item exists |
/// | 7 | the file could not be created |
/// | 8 | the directory could not be created |
/// | 9 | the type cannot be created |
/// | 10 | no such item |
/// | 11 | it could not be removed |
/// | 12 | it could not be renamed |
/// | 13 | its permissions could not be set |
/// | 14 | an unknown file type |
/// | 17 | the mount table could not be opened |
///
/// There is no shared state; operations on different trees may run on any number of threads.
class UTILITY_API CUnixFile {
 public:
  /// One directory entry.
  struct UnixFileData {
    std::int64_t size = 0;   ///< KiB: the bytes divided by 1024, rounded down.
    std::uint32_t mode = 0;  ///< The full mode word (st_mode).
    unsigned char type = 0;  ///< Type letter.
    std::int32_t sub = 0;    ///< The `has_subitem` flags of a directory, else 0.
    std::uint32_t uid = 0;   ///< Owner.
    std::uint32_t gid = 0;   ///< Group.
    /// The entry's name, not its path, converted from UTF-8 to GBK. A name that cannot be converted
    /// is cut at the place that cannot be, down to the empty text.
    std::string name;
    std::int64_t mtime = 0;  ///< Last modification, seconds since the epoch.
    std::int64_t atime = 0;  ///< Last access, seconds since the epoch.
    std::int64_t ctime = 0;  ///< Last status change, seconds since the epoch.
  };

  /// Tells whether the file type in `mode` is that of the letter `type`.
  ///
  /// @param mode  a mode word (st_mode).
  /// @param type  the letter.
  /// @return true when it is; false otherwise, for letters that are none and for 'a'.
  static bool is_one_type(unsigned int mode, unsigned char type);

  /// Writes `mode` as ten characters, such as "drwxr-xr-x" or "-rwsr-x--T", and a NUL.
  ///
  /// The first is "-", "d", "c", "b", "f" (not "p"), "l" or "s"; with a file type that is none of
  /// these, the first byte of the buffer keeps what it held.
  ///
  /// @param mode    the mode word.
  /// @param buffer  receives at most `size` - 1 characters and a NUL; 11 bytes hold everything.
  /// @param size    bytes in `buffer`; with 1 it receives the NUL alone.
  /// @return `buffer`; null when that is null or `size` is below 1 (nothing is written).
  static char* mode_2_string(unsigned int mode, char* buffer, int size);

  /// Sets the permission bits of `path`, or of what it links to.
  ///
  /// @param path  the item.
  /// @param mode  permission bits, set-id and sticky bits included.
  /// @return 0; 1 empty path; 10 no such item; 13 chmod(2) failed. On failure nothing has changed.
  static int mod_mode(const std::string& path, const unsigned int& mode);

  /// Renames an item. Nothing that exists is overwritten.
  ///
  /// @param old_path  the item.
  /// @param new_path  its name to be, on the same file system.
  /// @return 0; 1 one of the paths is empty; 10 `old_path` does not exist; 6 `new_path` does (here
  ///         a symbolic link to nothing too); 12 rename(2) failed. On failure nothing has changed.
  static int rename_item(const std::string& old_path, const std::string& new_path);

  /// Creates an empty regular file or directory with exactly the permissions `mode`, whatever the
  /// umask of the process.
  ///
  /// @param path  where; its directory must exist. A symbolic link to nothing is followed for a
  ///              file.
  /// @param type  '_' or 'd'.
  /// @param mode  permission bits.
  /// @return 0; 1 empty path; 6 the item exists; 7 the file, 8 the directory could not be created;
  ///         9 any other type; 13 chmod(2) failed (the item stays, with permissions 0).
  static int create_item(const std::string& path, unsigned char type, unsigned int mode);

  /// Fills a record from a status record; `sub` is not touched.
  ///
  /// @param name    the entry's name in UTF-8, as the directory has it.
  /// @param st      its status.
  /// @param record  receives the entry.
  /// @return 0; 14 when the file type has no letter: `name`, `size` and `mode` are filled, the rest
  ///         is untouched.
  static int stat_2_fd(const std::string& name, struct stat64& st, UnixFileData& record);

  /// Looks for files and directories in a directory, links followed. All entries are looked at.
  ///
  /// @param path  the directory.
  /// @return 1 when it has a subdirectory, plus 2 when it has a regular file; 0 for neither, and
  ///         when `path` cannot be opened.
  static int has_subitem(const std::string& path);

  /// Calls `callback` for each entry of a directory, in listing order, without "." and "..".
  ///
  /// One record is held at a time, however large the directory. The directory stays open during the
  /// calls, and each one below it that a callback lists costs a descriptor more.
  ///
  /// @param path      the directory; a symbolic link to one is not followed.
  /// @param filter    type letter of the entries to report, 'a' for all.
  /// @param callback  returns 0 to go on, anything else to stop; null is told nothing.
  /// @param context   passed on to `callback`.
  /// @return 0; 1 empty path; 2 the path or an entry could not be examined (an entry that vanished
  ///         since it was listed ends the call); 3 not a directory; 4 it could not be opened;
  ///         5 the callback stopped it; 14 an entry has an unknown file type.
  /// Source: readdir(3) and lstat(2) of each entry.
  static int get_sub_item(const std::string& path, unsigned char filter,
                          int (*callback)(const UnixFileData&, void*), void* context);

  /// Deletes an item; of a symbolic link, the link.
  ///
  /// With `recursive`, a directory's contents go first. This goes by the names that `get_sub_item`
  /// reports, so it stops with 5 at an entry whose GBK name is not its name on disk, unless another
  /// entry has that name: then that one is deleted. Any depth is deleted, with a few descriptors at
  /// a time and little stack. No link is followed, also where an entry becomes one meanwhile, nor
  /// where `path` ends with a slash: a link named so is refused with 11.
  ///
  /// @param path       the item.
  /// @param recursive  whether a directory goes with its contents.
  /// @return 0; 1 empty path; 10 no such item; 2 it could not be examined; 11 remove(3) failed (a
  ///         directory with contents, without `recursive`); or the code with which `get_sub_item`
  ///         ended: 5 when anything in the tree could not be deleted. What was not yet deleted
  ///         stays then.
  static int delete_item(const std::string& path, bool recursive);

  /// The callback of `delete_item`: deletes the entry `record` of a directory.
  ///
  /// An empty name, "." and ".." (what is left of a name that could not be converted) are refused:
  /// they would lead back to the directory or out of it.
  ///
  /// @param record   the entry; a directory goes with its contents.
  /// @param context  points to the directory's path, a std::string.
  /// @return 0; -1 when the entry could not be deleted, was refused, or `context` is null.
  static int call_back_del(const UnixFileData& record, void* context);

  /// Calls `callback` with the mount point of each ext2, ext3 and ext4 file system, in table order.
  ///
  /// @param callback  returns 0 to go on, anything else to stop; null is told nothing.
  /// @param context   passed on to `callback`.
  /// @return 0; 5 the callback stopped it; 17 the mount table could not be opened.
  /// Source: /etc/mtab, getmntent(3).
  static int get_quota_disk(int (*callback)(const std::string&, void*), void* context);
};

}  // namespace utility
