#pragma once

#include <string>
#include <vector>

#include "utility/Export.h"

namespace utility {

/// The processes of this host: reading them, starting, killing, and the files they have mapped.
///
/// Everything is read from /proc, see proc(5).
///
/// | Code | Meaning |
/// |---|---|
/// | 0 | done |
/// | 1 | an argument is empty or unusable |
/// | 2 | the limit of open files could not be read |
/// | 3 | no child could be forked, or waiting for it failed |
/// | 4 | the kill signal could not be sent |
/// | 5 | a directory could not be opened |
/// | 7 | a working buffer could not be had |
/// | 9 | reading a file or a link failed |
/// | 10 | the link to the executable could not be read |
/// | 12 | a file could not be opened |
/// | 13 | the callback asked to stop |
///
/// Lists that operations fill are appended to, never cleared. There is no state; the operations may
/// run on any number of threads at once.
class UTILITY_API CUnixProc {
 public:
  /// One process. A fresh record is empty and zero.
  struct UnixProcData {
    /// The kernel's name for it (15 bytes at most, cut at a blank), or the file name of `path`
    /// where that is longer.
    std::string name;
    /// Real user id.
    unsigned int uid = 0;
    /// Process id.
    int pid = 0;
    /// Process id of the parent; 0 when the name holds a blank, which hides the field.
    int ppid = 0;
    /// When it started, in seconds since the epoch; the boot time when the name holds a blank.
    long start_time = 0;
    /// The arguments up to the first empty one, joined by single blanks; "[name]" when there are
    /// none, as for kernel threads. From the first 4096 bytes.
    std::string cmd;
    /// The executable, see `get_proc_name_ext`; empty when it is not known.
    std::string path;
    /// The environment, joined like `cmd` from its first 40960 bytes; empty when any byte of it is
    /// not printable.
    std::string environ;
    /// Inode numbers of the sockets among its open descriptors, in descriptor order.
    std::vector<unsigned long> inodes;
    /// Real group id.
    unsigned int gid = 0;
  };

  /// What the filters below take as their context. The caller owns both.
  struct ProcFilterCtx {
    /// What is looked for: a `const std::string*`, or a `const int*` for `filter_procs_by_ppid`.
    const void* key;
    /// Receives the ids of the processes that match.
    std::vector<int>* pids;
  };

  /// The files that one process has mapped.
  struct UnixProcMapInfo {
    /// Process id.
    int pid = 0;
    /// Distinct paths in ascending byte order.
    std::vector<std::string> maps;
  };

  /// Receives one record, which lives only for the call, and the caller's context. Anything but 0
  /// stops the walk.
  using EnumCallback = int (*)(const UnixProcData& data, void* ctx);

  /// Fills `data` with the process `pid`.
  ///
  /// A process that is gone, or goes while it is read, is no failure: `data` then holds what was
  /// read before, at least the pid. `path`, `inodes` and `environ` are left alone where they cannot
  /// be read, as those of another user's process. `inodes` is appended to.
  ///
  /// @return 0; 7; 9 or 12 when one of status, cmdline, stat and /proc/stat exists but cannot be
  ///         read or opened. On failure `data` keeps what was filled before the failing step.
  /// Source: `/proc/<pid>/{status,cmdline,stat,exe,fd,environ}` and /proc/stat.
  static int get_proc_data(int pid, UnixProcData& data);

  /// Calls `callback` with every process, in the order of /proc.
  ///
  /// Processes that vanish while they are read are passed on too, see `get_proc_data`. A null
  /// callback is not called.
  ///
  ///     int count(const CUnixProc::UnixProcData&, void* ctx) {
  ///       ++*static_cast<int*>(ctx);
  ///       return 0;
  ///     }
  ///     int processes = 0;
  ///     CUnixProc::get_all_proc_data(count, &processes);
  ///
  /// @return 0; 5 when /proc cannot be opened; 13 when the callback asked to
  ///         stop; a code of `get_proc_data`, which ends the walk at the process that gave it.
  /// Source: the entries of /proc that read as a number, and what `get_proc_data` reads.
  static int get_all_proc_data(EnumCallback callback, void* ctx);

  /// True when every byte of `text` is a decimal digit; so too for the empty text, not for null.
  static bool is_number(const char* text);

  /// Reads the parent and the start time from a stat file.
  ///
  /// The fields are separated by white space only, so a process name that holds a blank shifts
  /// them. Where a field does not read as a number, the parent (unless read by then) is left alone
  /// and the clock ticks count as 0. A second has 100 ticks.
  ///
  /// @param stat_path   such as "/proc/1/stat".
  /// @param ppid        receives the parent's process id.
  /// @param start_time  receives the start in seconds since the epoch.
  /// @return 0; 1 for an empty path; 12; or a code of `get_boottime`, where `start_time` is
  ///         untouched and `ppid` read. On 1 and 12 both are untouched.
  static int get_info(std::string stat_path, int& ppid, long& start_time);

  /// Reads when the host was started, in seconds since the epoch.
  ///
  /// @return 0, also without a "btime" line, where `boot_time` is untouched; 9; 12. On failure
  ///         `boot_time` is untouched.
  /// Source: /proc/stat.
  static int get_boottime(long& boot_time);

  /// Reads the real user id from a status file.
  ///
  /// @return 0, also without a "Uid:" line, where `uid` is untouched; 1 for an empty path; 9; 12.
  ///         On failure `uid` is untouched.
  static int get_uid(const std::string& status_path, unsigned int& uid);

  /// The same for the real group id and the "Gid:" line.
  static int get_gid(const std::string& status_path, unsigned int& gid);

  /// The same for the process name and the "Name:" line. A name is cut at its first blank.
  static int get_proc_name(const std::string& status_path, std::string& name);

  /// Reads a command line: the arguments in the first 4096 bytes of a cmdline file, see
  /// `parse_args`.
  ///
  /// @return 0, also for a file that does not exist, where `cmd` is empty; 1 for an empty path; 7;
  ///         9; 12. On failure `cmd` is untouched.
  static int get_cmd(const std::string& cmdline_path, std::string& cmd);

  /// Reads an environment: the entries in the first 40960 bytes of an environ file, see
  /// `parse_args`; the empty text when any byte of the result is not printable.
  ///
  /// @return as for `get_cmd`. On failure `environ` is untouched.
  static int get_proc_environ(const std::string& environ_path, std::string& environ);

  /// Joins the NUL-terminated texts in `buffer` by single blanks.
  ///
  /// An empty text ends the list. A text that begins at the very last byte is not taken; one that
  /// runs to the end without its NUL is.
  ///
  /// @param buffer  the texts; only read.
  /// @param count   how many bytes of `buffer` may be looked at.
  /// @param text    receives the joined texts.
  /// @return 0, or 1 for a null buffer, where `text` is untouched.
  static int parse_args(char* buffer, int count, std::string& text);

  /// Finds the executable of a process.
  ///
  /// The first line of its first argument is cut into pieces at the bytes "0", "x", tab and blank.
  /// The first piece is the result if it is the absolute path of a regular file (links followed);
  /// otherwise the target of the exe link is, without white space at its ends. So a script is
  /// reported by its own path where the process calls itself by it, and a path that holds a "0" or
  /// an "x" through the link. The kernel adds " (deleted)" to the target of a removed file.
  ///
  /// @return 0; 10 when it comes to the link and that cannot be read; 12 when the cmdline file
  ///         cannot be opened. On failure `path` is untouched.
  static int get_proc_name_ext(const std::string& cmdline_path, const std::string& exe_path,
                               std::string& path);

  /// Reads where the exe link of process `pid` leads.
  ///
  /// @return 0, also when there is no such link (kernel threads, processes that are gone), where
  ///         `path` is untouched; 1 for a negative pid; 9. On failure `path` is untouched.
  /// Source: `/proc/<pid>/exe`.
  static int get_path_name(int pid, std::string& path);

  /// Appends the executables of all processes to `paths`, leaving out those it holds already.
  ///
  /// @return 0; 5 when /proc cannot be opened; 9, see `get_path_name`. On failure `paths` keeps
  ///         what was filled before the failing step.
  /// Source: `/proc/<pid>/exe` of all processes.
  static int get_all_path_name(std::vector<std::string>& paths);

  /// Appends the inode numbers of the sockets in a descriptor directory, in its order.
  ///
  /// Names that begin with "." and entries that cannot be examined are left out. The path of an
  /// entry is cut to 4095 bytes.
  ///
  /// @param fd_dir  such as "/proc/1/fd".
  /// @param inodes  receives the numbers; appended to, never cleared.
  /// @return 0; 1 for an empty path; 5. On failure `inodes` is untouched.
  static int get_socket_inodes(const std::string& fd_dir, std::vector<unsigned long>& inodes);

  /// A callback for `get_all_proc_data` that collects the ids of the processes whose path equals
  /// the key, or that have the key anywhere in the command line (an empty key matches all).
  ///
  /// @param data  the process.
  /// @param ctx   a `ProcFilterCtx`; nothing is collected where it or a pointer in it is null.
  /// @return always 0.
  static int filter_procs_by_pathname(const UnixProcData& data, void* ctx);
  /// The same for those whose name equals the key.
  static int filter_procs_by_procname(const UnixProcData& data, void* ctx);
  /// The same for those whose parent's process id equals the key.
  static int filter_procs_by_ppid(const UnixProcData& data, void* ctx);

  /// Starts a command as a daemon: in a session of its own, with init as its parent, no signal
  /// blocked, standard input, output and error on /dev/null and every other descriptor below the
  /// soft limit of open files closed.
  ///
  /// Returns when the command is detached; whether it ran is not known. The text goes through the
  /// shell: bytes that are neither letters nor digits are escaped in the executable's file name
  /// only. Its directories and `args` are the shell's to interpret, and so is a path without "/".
  /// Only the account's user and primary group are taken on, its other groups are not.
  ///
  /// @param executable  the path of a regular file (links followed).
  /// @param args        what follows the path in the shell command.
  /// @param dir         the working directory, or a link to one; not a link to a link. A relative
  ///                    link target is examined from the caller's working directory.
  /// @param user        the account to run as; the caller's when empty or unknown.
  /// @param envp        the environment, ended by a null pointer.
  /// @return 0; 1 when `executable` or `dir` is not as said, or the user database cannot be read;
  ///         2; 3, which a caller that ignores SIGCHLD always gets.
  /// Runs: `/bin/sh -c "<executable> <args>"`.
  static int create_proc(const std::string& executable, const std::string& args,
                         const std::string& dir, const std::string& user, char** envp);

  /// Sends the kill signal to process `pid`.
  ///
  /// @return 0; 1 for a pid that is not positive, where nothing is sent; 4.
  static int kill_proc(int pid);

  /// Kills every process that matches `key`, again and again until a walk over the table finds
  /// none: what is restarted meanwhile is killed too. Zombies match as well and cannot be killed;
  /// where nothing but zombies has matched for 2 s, it is taken that nothing follows them.
  ///
  /// A key that names an existing file matches as in `filter_procs_by_pathname`, another as in
  /// `filter_procs_by_procname`. Mind that the caller itself may match, that short paths such as
  /// "/" are part of many command lines, and that the call does not return while a process matches
  /// that it may not or cannot kill.
  ///
  /// @return 0, also when nothing matched or the table could not be read; 1 when memory ran out.
  static int kill_proc_tree(const std::string& key);

  /// Kills the children of process `pid` in the same way, then the process itself.
  ///
  /// Grandchildren are not followed. A pid that is not positive names no process: nothing is
  /// killed.
  ///
  /// @return 0; 1 when memory ran out.
  static int kill_proc_tree(const int& pid);

  /// Appends the paths of all files that a process has mapped, in file order, duplicates kept.
  ///
  /// Deleted files and the kernel's "[...]" regions are left out. A path that holds blanks
  /// contributes its first word; lines are read in pieces of at most 1023 bytes.
  ///
  /// @param pid_text  the process id in decimal.
  /// @param paths     receives the paths; appended to, never cleared.
  /// @return 0, or 12 when the file cannot be opened or read into memory. On failure `paths` is
  ///         untouched.
  /// Source: `/proc/<pid_text>/maps`.
  static int one_proc_infos(const char* pid_text, std::vector<std::string>& paths);

  /// Appends one record for every process that has files mapped and lets them be read.
  ///
  /// @return 0, or 5 when /proc cannot be opened, where `infos` is untouched.
  /// Source: `/proc/<pid>/maps` of all processes.
  static int get_all_proc_map_info(std::vector<UnixProcMapInfo>& infos);
};

}  // namespace utility
