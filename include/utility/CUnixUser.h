#pragma once

#include <grp.h>
#include <pwd.h>

#include <string>
#include <vector>

#include "utility/Export.h"

namespace utility {

/// The users and groups of the host: listed from the C library's databases, changed through the
/// system's own administration tools, group members by rewriting /etc/group.
///
/// **Names and texts go to a shell as they stand**, and the tools run with the caller's rights.
/// What reaches an operation that changes something must have been checked before: user and group
/// names are plain ("a-z", "0-9", "_", "-", "."; no "-" in front, no blank), homes and shells are
/// paths without blanks or bytes that mean something to a shell, comments hold no double quote,
/// "$", backquote, backslash, ":" or line feed. Existence is no such check: a database can hold any
/// name.
///
/// | Code | Meaning |
/// |---|---|
/// | 0 | done |
/// | 1 | an empty name was asked for |
/// | 2 | no such user |
/// | 3 | no such group, or the group database reported an error |
/// | 4 | an empty name was to be changed |
/// | 5 | the new uid belongs to another account |
/// | 7 | the tool failed |
/// | 8 | the new gid belongs to another group |
/// | 9 | the group already exists |
/// | 10 | the user already exists |
/// | 11 | no such user (`mod_passwd`) |
/// | 20 | the callback asked to stop |
/// | 21 | the pipe, the child process or the wait for it failed |
/// | 22 | the file could not be read, or its working copy not be opened |
/// | 23 | a user of the same name exists |
///
/// A tool has failed when its exit code is not 0, as `CUnixTools::exec_cmd` reports it; a signal
/// that ends the shell itself counts as done there. Look-ups take an unreadable database for empty.
///
/// Threads: the two walks share the C library's cursor and must not run at the same time, nor may
/// two operations that change something. Single look-ups may run on any number of threads.
class UTILITY_API CUnixUser {
 public:
  /// One account; its password is never copied.
  struct UnixUserData {
    std::string name;      ///< login name
    unsigned int uid = 0;  ///< user id
    unsigned int gid = 0;  ///< primary group id
    std::string gecos;     ///< comment, most often the full name
    std::string home;      ///< home directory
    std::string shell;     ///< login shell
  };

  /// One group.
  struct UnixGroupData {
    std::string name;                  ///< group name
    unsigned int gid = 0;              ///< group id
    std::vector<std::string> members;  ///< supplementary members, in database order
  };

  // Users.

  /// Copies an entry of the user database into `record`; a null text reads as empty.
  static void pw_2_ud(const passwd& entry, UnixUserData& record);

  /// Looks a user up.
  ///
  /// @return 0; 1 for an empty `name`; 2 when there is none. On failure `record` is untouched.
  /// Source: getpwnam_r(3).
  static int get_user_data(const std::string& name, UnixUserData& record);

  /// Passes every account to `callback`, in database order.
  ///
  /// @param callback  called with the record, which lives for that call only, and `context`;
  ///                  anything but 0 stops the walk. A null callback is not called.
  /// @param context   handed to the callback as it is.
  /// @return 0 when the entries ran out; 20 when the callback stopped the walk.
  /// Source: setpwent, getpwent, endpwent(3).
  static int get_all_user_data(int (*callback)(const UnixUserData&, void*), void* context);

  /// Returns the login name of `uid`, or `uid` in decimal when nobody has it.
  static std::string getusernamebyid(unsigned int uid);

  /// Tells whether /etc/passwd itself has a line for `name`; accounts from elsewhere do not count.
  ///
  /// @param name   compared byte for byte.
  /// @param found  receives 1 or 0.
  /// @return 0; 22 when the file cannot be read. On failure `found` is untouched.
  static int is_user_exist(const std::string& name, int& found);

  /// Creates a user with the tool's defaults; a group of the same name becomes the primary group.
  ///
  /// `name` goes to a shell as it stands.
  ///
  /// @return 0 when the account is there afterwards, whatever the tool's exit code; 4 for an empty
  ///         `name`; 10 when the user exists; 22 when /etc/group cannot be read (nothing is run);
  ///         7 when the account is missing afterwards.
  /// Runs: /usr/sbin/useradd, see useradd(8).
  static int create_user(const std::string& name);

  /// Changes the account `record.name` to match `record`.
  ///
  /// Only fields that differ are passed on; when none does, nothing is run. `name`, `home` and
  /// `shell` go to a shell as they stand, `gecos` inside double quotes; a home or shell with blanks
  /// is not supported, nor is an empty shell, whose place the name would take.
  ///
  /// **A new home renames the old directory to the new path**, after the tool succeeded. That fails
  /// silently across file systems or onto a directory that is not empty, and it takes the directory
  /// away from other accounts: system accounts have homes such as /bin, so the caller must know
  /// that the old home is the account's alone.
  ///
  /// @return 0; 4 for an empty name; 2 when there is no such user; 5 when another account has the
  ///         new uid (nothing is run); 7 when the tool failed (the account is as the tool left it).
  /// Runs: /usr/sbin/usermod, see usermod(8).
  static int mod_user_data(const UnixUserData& record);

  /// Sets a user's password; no command line ever shows it.
  ///
  /// `name` must not hold ":", and neither text a line feed: the rest would set another account's
  /// password. No shell is involved. The calling thread takes no SIGPIPE meanwhile, and the copy of
  /// the password that was made here is wiped.
  ///
  /// @param name      login name.
  /// @param password  in clear text.
  /// @return 0 when the tool was fed and has ended, **whether or not it set the password** or could
  ///         be run at all; 4 for an empty `name`; 11 when there is no such user; 21 when the pipe,
  ///         the child process or the wait for it failed (a caller that ignores SIGCHLD gets 21
  ///         after the tool has ended).
  /// Runs: /usr/sbin/chpasswd with "name:password" on its standard input, see chpasswd(8).
  static int mod_passwd(const std::string& name, const std::string& password);

  /// Deletes a user; the home directory stays.
  ///
  /// `name` goes to a shell as it stands, except that "*" is escaped.
  ///
  /// @return 0; 4 for an empty `name`; 2 when there is no such user; 7 when the tool failed.
  /// Runs: /usr/sbin/userdel, see userdel(8).
  static int delete_user(const std::string& name);

  // Groups.

  /// Copies an entry of the group database into `record`, whose member list is replaced.
  static void gr_2_gd(const group& entry, UnixGroupData& record);

  /// Looks a group up.
  ///
  /// @return 0; 1 for an empty `name`; 3 when there is none. On failure `record` is untouched.
  /// Source: getgrnam_r(3).
  static int get_group_data(const std::string& name, UnixGroupData& record);

  /// Passes every group to `callback`, in database order.
  ///
  /// @param callback  called with the record, which lives for that call only, and `context`;
  ///                  anything but 0 stops the walk. A null callback is not called.
  /// @param context   handed to the callback as it is.
  /// @return 0 when the entries ran out; 3 when the database reported an error (the callback has
  ///         seen the groups before it); 20 when the callback stopped the walk.
  /// Source: setgrent, getgrent, endgrent(3).
  static int get_all_group_data(int (*callback)(const UnixGroupData&, void*), void* context);

  /// Returns the name of group `gid`, or `gid` in decimal when there is none.
  static std::string getgrpnamebyid(unsigned int gid);

  /// Tells whether /etc/group itself has a line for `name`; groups from elsewhere do not count.
  ///
  /// @param name   compared byte for byte.
  /// @param found  receives 1 or 0.
  /// @return 0; 22 when the file cannot be read. On failure `found` is untouched.
  static int is_group_exist(const std::string& name, int& found);

  /// Creates a group with the tool's defaults.
  ///
  /// `name` goes to a shell as it stands.
  ///
  /// @return 0; 4 for an empty `name`; 9 when the group exists; 22 when /etc/group cannot be read
  ///         (nothing is run in these cases); 7 when the tool failed.
  /// Runs: /usr/sbin/groupadd, see groupadd(8).
  static int create_group(const std::string& name);

  /// Deletes a group, but never one that shares its name with a user.
  ///
  /// `name` goes to a shell as it stands, except that "*" is escaped.
  ///
  /// @return 0; 4 for an empty `name`; 23 when a user of that name exists, after the line
  ///         "have same of username" went to standard output; 3 when there is no such group; 7 when
  ///         the tool failed.
  /// Runs: /usr/sbin/groupdel, see groupdel(8).
  static int delete_group(const std::string& name);

  /// Changes the group `record.name` to match `record`: the gid by the tool, which is run even when
  /// the gid stays, and then the members by `mod_group_member`, **whose dangers it shares**.
  ///
  /// `name` goes to a shell as it stands.
  ///
  /// @return 4 for an empty name; 3 when there is no such group; 8 when another group has the new
  ///         gid (nothing is run); 7 when the tool failed (the members are as they were); otherwise
  ///         what `mod_group_member` returns.
  /// Runs: /usr/sbin/groupmod, see groupmod(8).
  static int mod_grp_data(const UnixGroupData& record);

  /// Replaces the members of a group in /etc/group, without a tool.
  ///
  /// **Danger: a call that fails can leave the host without /etc/group.** The last steps, putting
  /// the working copy /etc/group.temp in the place of /etc/group, are taken on every path, also
  /// when no working copy was written: after 3 or 22 the group file is gone, or is a working copy
  /// that an earlier run left behind, unless the directory itself refuses changes. Call this only
  /// for groups for which `is_group_exist` has just found a line. Nor is there anything to fall
  /// back on: the backup is removed at once.
  ///
  /// - There is no lock: nothing else may edit the file meanwhile, the system's tools included.
  /// - The result is 0 also when the copy could not be written in full, as on a full disk.
  /// - A crash before the last steps leaves a working copy, empty or whole; one between them leaves
  ///   no group file, but the new one in /etc/group.temp and the old one in /etc/group.bak. The
  ///   next call then returns 22 and puts the working copy in place.
  /// - A working copy left over from an interrupted run is appended to: its lines stay in front.
  /// - Where /etc/group is a mount point, as in containers, it cannot be replaced: it stays as it
  ///   was, the result is 0 all the same, and the new text stands in /etc/group.temp, to which each
  ///   further call appends another.
  /// - Lines are taken in pieces of 1,023 bytes, each judged as a line; a NUL byte ends a piece. Of
  ///   a longer line of the group only the first piece is replaced; the others stay after it as a
  ///   line of their own.
  /// - The new file takes over mode and owner.
  ///
  /// @param name     group name.
  /// @param members  the new list; names without ",", ":" or line feed, none of which is checked.
  /// @return 0; 3 when /etc/group has no line for `name`; 22 when /etc/group cannot be read or the
  ///         working copy not be opened.
  /// Source: /etc/group, rewritten by way of /etc/group.temp and /etc/group.bak.
  static int mod_group_member(const std::string& name, const std::vector<std::string>& members);

  /// Appends `members`, joined with ",", to `text`; an empty list empties it instead.
  static void get_new_grp_mem_list(const std::vector<std::string>& members, std::string& text);
};

}  // namespace utility
