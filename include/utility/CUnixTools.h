#pragma once

#include <string>
#include <vector>

#include "utility/Export.h"

namespace utility {

/// File, directory and command operations; the host's firewall; the agent's own installation.
///
/// "Exists" means what access(2) says: links are followed, so a dangling link does not exist. No
/// operation prints, and none throws but `get_agent_names` and, through it,
/// `operate_agent_service`. A null path is the empty one, which never exists. All may run on any
/// number of threads at once, but edits of the firewall's rules only one at a time.
///
/// | Code | Meaning |
/// |---|---|
/// | 0 | done |
/// | 1 | a source could not be opened, or the copy could not be written |
/// | 2 | a command's output pipe could not be had |
/// | 3 | the target already exists |
/// | 4 | the source does not exist |
/// | 7 | the file could not be created |
/// | 9 | no command was given |
/// | 10 | the file's status could not be read |
/// | 11 | a file or directory could not be removed |
/// | 12 | a directory of the chain could not be made |
/// | 13 | the entry is neither a directory, a regular file nor a link |
class UTILITY_API CUnixTools {
 public:
  /// True when `path` exists, whether or not the caller may use it.
  static bool file_is_exist(const char* path);

  /// True when `path` is a directory; a link to a directory is none.
  static bool is_exist_dir(const char* path);

  /// Tells what `path` is, links not followed.
  ///
  /// @return 1 a directory, 2 a regular file, 3 a symbolic link, 255 anything else or not
  ///         examinable.
  static int file_type(const char* path);

  /// Returns the whole mode word of `path` (type bits included), links followed; 0 when it cannot
  /// be examined.
  static unsigned long read_file_permission(const char* path);

  /// Creates an empty file.
  ///
  /// @param path  the file.
  /// @param mode  the permission bits, subject to the process's umask.
  /// @return 0; 3 when `path` exists (it is untouched); 7 when it cannot be created.
  static int create_file(const char* path, const unsigned long& mode);

  /// Copies a regular file, or the regular file that a link points to, with its mode.
  ///
  /// The source is opened, then an existing target is unlinked: links to it keep the old content,
  /// and a target that is a link to the source, symbolic or hard, becomes a copy of it. A target
  /// that cannot be unlinked, such as a mount point, is appended to. Nobody but its owner may read
  /// a new target before it is complete. Where another process holds a lease on the source, it is
  /// waited for, at most 60 seconds. A source that stops being readable is copied
  /// as far as it went, and one that is no regular file (a link to a directory, a FIFO or a device)
  /// gives an empty target; both count as done.
  ///
  /// @return 0; 1 when either file cannot be opened, when the target cannot be written to its end
  ///         (a full disk; what was written stays) or when both paths name one directory entry,
  ///         which is then untouched.
  static int copy_regular_file(const char* source, const char* target);

  /// Copies the entries of directory `source` into directory `target`, directories with all below.
  ///
  /// `target` is made with the mode of `source` when it is no directory. Links are copied as the
  /// files they point to. Paths are formed in 1023 bytes; longer ones are cut. A directory that
  /// becomes a link meanwhile is not followed. Where `target` is below `source`, it is not copied
  /// into itself: that entry counts as 1.
  ///
  /// @return the status of the last entry in listing order (0 for none), so a failure before it is
  ///         not reported: 1 a file or directory could not be opened, 13 the entry is of a kind
  ///         that is not copied. 1 also when `source` itself cannot be listed, when it is `target`,
  ///         and when either is null; nothing is touched then.
  static int copy_directory(const char* source, const char* target);

  /// Copies a directory, a regular file or the file behind a link.
  ///
  /// @param source     what is copied.
  /// @param target     the copy's path, its own name included.
  /// @param overwrite  whether an existing target may be replaced.
  /// @return 4 when `source` does not exist; 3 when `target` exists and `overwrite` is false; 13
  ///         when `source` is of a kind that is not copied; otherwise what the copy returns.
  static int copy_file(const char* source, const char* target, const bool& overwrite);

  /// Copies as `copy_file` does and then removes the source; never renames, so file systems may
  /// differ.
  ///
  /// The copy's own result is ignored: **a source that could not be copied is removed all the same
  /// and is lost**, on a full disk, for want of a right, or where `target` is below `source`.
  /// Callers that cannot afford this use `copy_file` and `rm_file`.
  ///
  /// @return 4 and 3 as for `copy_file`, and 4 when both paths name one directory entry (nothing is
  ///         touched then); otherwise what `rm_file` returns.
  static int move_file(const char* source, const char* target, const bool& overwrite);

  /// Removes a directory with everything in it; links in it are removed, not followed.
  ///
  /// Paths below are formed in 255 bytes; longer ones are cut. An entry that becomes a link
  /// meanwhile is not followed. The first failure ends the work and
  /// leaves the rest in place.
  ///
  /// @return 0 or 11.
  static int rm_dir(const char* path);

  /// Removes a file, or a directory with everything in it.
  ///
  /// The path is followed to decide, but removed as it stands: a link to a directory is taken for a
  /// directory, which removing it as one refuses, and stays with 11.
  ///
  /// @return 0; 4 `path` does not exist; 10 its status cannot be read; 11 a removal failed.
  static int rm_file(const char* path);

  /// Makes a directory and those above it that are missing.
  ///
  /// @param path  relative to the working directory unless it begins with "/"; doubled slashes are
  ///              harmless.
  /// @param mode  the permission bits of each new directory, subject to the process's umask.
  /// @return 0 (also for directories that exist, and links to such); 12 at the first that cannot be
  ///         made or is something else.
  static int mkdir_parents(const std::string& path, const unsigned long& mode);

  /// Runs `command` with system(3) and waits for it.
  ///
  /// The text goes to /bin/sh as it stands: whatever stands in it is run with the caller's rights.
  ///
  /// @return the command's exit code; 0 also when a signal ended it; 127 when no shell could be
  ///         started, 255 when it could not be awaited; 9 for a null command.
  static int exec_cmd(const char* command);

  /// Runs `command` with popen(3) and appends the lines of its output, trimmed, to `lines`.
  ///
  /// The text goes to /bin/sh as it stands. Empty lines are appended too. The command's exit status
  /// is not reported.
  ///
  /// @param command      the shell command.
  /// @param lines        receives the lines; appended to, never cleared.
  /// @param line_length  a piece holds at most `line_length` - 1 bytes before it is trimmed; a
  ///                     longer line arrives in several. Below 2 nothing is appended.
  /// @return 0; 9 for a null command; 2 when the pipe cannot be had. On failure `lines` is
  /// untouched.
  static int exec_cmd_results(const char* command, std::vector<std::string>& lines,
                              const int& line_length);

  /// Returns the monotonic clock in milliseconds.
  static unsigned long GetTickCount();

  /// Returns the local time as "2024-03-07 09:05:01".
  static std::string get_time_now();

  /// Returns the login name of the process's real user id; empty when the password database has
  /// none.
  static std::string get_process_user();

  /// Returns the executable's path of process `pid` (the link `/proc/<pid>/exe`, at most 1024
  /// bytes of it); empty when the link cannot be read.
  static std::string get_process_path(const int& pid);

  /// Opens a TCP port in the host's firewall.
  ///
  /// What is done depends on the distribution family; a failing command is not reported:
  ///   - "centos" with /bin/firewall-cmd: "firewall-cmd --add-port=PORT/tcp --permanent" and a
  ///   reload;
  ///   - "centos" without: the rule line "-A INPUT -p tcp -m tcp --dport PORT -j ACCEPT" goes into
  ///     /etc/amh-iptables when that exists, else into /etc/sysconfig/iptables, as `appand_rule`
  ///     does it, and the service that reads the file is restarted (/etc/init.d/amh-start or
  ///     iptables), also when there was no file;
  ///   - "ubuntu": "sudo ufw allow PORT";
  ///   - any other text, "suse" and "debian" included: nothing.
  ///
  /// The restart command ends in "2&> /dev/null". Where /bin/sh does not know "&>" as a redirection
  /// (dash, for one), the script gets a second argument "2" and is left running in the background.
  ///
  /// @param distribution  compared exactly.
  /// @param port          written in decimal, unchecked.
  /// @return always 0.
  static int iptables_allow_port(const std::string& distribution, const int& port);

  /// Closes a TCP port: the reverse of `iptables_allow_port`, with "--remove-port", "ufw delete
  /// allow" and `delete_rule` in place of their opposites.
  ///
  /// @return always 0.
  static int iptables_banned_port(const std::string& distribution, const int& port);

  /// Inserts a rule line into a file in the iptables-save format, after the first line that begins
  /// with ":INPUT"; without such a line the file keeps its content. A rule that is there already is
  /// added again.
  ///
  /// The file is copied line by line (in pieces of 1023 bytes) to `file` + ".tvbak", which then
  /// replaces it and has its owner and mode. A ".tvbak" left over from an interrupted run is not
  /// emptied: its lines end up in front. Nothing is reported; a file that cannot be opened, or a
  /// copy that cannot be written, leaves the rule file as it was. There is no lock: callers
  /// serialise their edits.
  ///
  /// **A rule file that is a mount point, as containers have them, cannot be replaced:** the copy
  /// is appended to it, so that the file holds its old lines and then all of them again with the
  /// rule. No ".tvbak" stays behind.
  ///
  /// @param file  the path of the rule file.
  /// @param rule  the line with its line feed.
  static void appand_rule(const std::string& file, const std::string& rule);

  /// Removes the first occurrence of `rule` (a line with its line feed) from a file, which is read
  /// whole and written back in place. Nothing is written when there is none. Nothing is reported,
  /// and there is no lock and no backup: a write that fails half way leaves a short file.
  static void delete_rule(const std::string& file, const std::string& rule);

  /// True when the agent is installed as a service: /etc/init.d/tarvel exists.
  static bool program_is_tarvel();

  /// Returns the agent's installation directory: the first line (at most 1023 bytes) of
  /// /var/log/version_control, or "/usr/local/tarvel_agent" when that cannot be opened.
  ///
  /// The answer is kept for the life of the process, under a lock, except that an empty first line
  /// is read again at the next call.
  static std::string get_tarvel_path();

  /// Tells which edition of the agent is installed, and for which distribution family.
  ///
  /// @param edition       2 when the installation directory contains "pxqnt", else 1 when it
  ///                      contains "vek", else 0.
  /// @param distribution  0 centos, 1 ubuntu, 2 suse, 3 debian: the first of these names that
  ///                      exists in the installation directory. Untouched when none does.
  static void get_oem_and_issue(int& edition, int& distribution);

  /// Returns the value of an entry in the file "command_control" of the installation directory.
  ///
  /// The first line (of at most 127 bytes) that begins with `name` counts, whatever follows the
  /// name; the one byte after the name is dropped and the rest trimmed.
  ///
  /// @return the value; empty when the file cannot be opened or no line begins so.
  /// @throws std::out_of_range when that line ends with the name itself, without even a line feed;
  ///         so does a line of which `name` is the first 127 bytes, whatever follows them.
  static std::string get_agent_names(const char* name);

  /// Starts (0) or stops (1) the agent's script service: /etc/init.d/NAME with the name that
  /// `get_agent_names("script_server")` gives. Any other operation does nothing; no result is
  /// reported.
  ///
  /// The name goes to the shell as it stands in the file.
  ///
  /// @throws std::out_of_range as `get_agent_names` does; nothing is run then.
  static void operate_agent_service(const int& operation);
};

}  // namespace utility
