#pragma once

#include <cstdio>
#include <string>

#include "utility/Export.h"

namespace utility {

/// The rules of the host's system-log daemon: reading and searching them, editing its configuration
/// file in place, and restarting it.
///
/// The file is /etc/NAME.conf and the service NAME, with the daemon's name as `set_syslog_name`
/// left it ("syslog" at first). Lines are read in pieces of at most 1023 bytes; everything from a
/// "#" on is a comment. Continued lines are not joined and include directives are not followed.
///
/// Nothing throws or prints. The daemon's name is a process-wide value without a lock: set it
/// before other threads use the family. Reading may run in parallel; **edits are made without a
/// lock**, and callers serialise them.
///
/// | Code | Meaning |
/// |---|---|
/// | 0 | done |
/// | 1 | an empty text, a missing context, or not a daemon's name |
/// | 3 | the configuration file cannot be opened |
/// | 4 | no memory for the bytes after an edit |
/// | 5 | the daemon runs already |
/// | 6 | the service command failed |
/// | 7 | the daemon does not run |
/// | 8 | a selector or the action is missing |
/// | 9 | a read failed |
/// | 10 | no rule matched |
/// | 11 | not a valid facility or level |
/// | 12 | the rule is there already |
/// | 14 | a seek failed |
/// | 15 | a write was short |
/// | 17 | the callback asked to stop |
/// | 18 | the daemon did not get there in time |
/// | 19 | the file could not be truncated |
/// | 20 | the action's file does not exist |
/// | 21 | the action is no regular file |
class UTILITY_API CUnixLog {
 public:
  /// One rule, for one facility and one level.
  struct UnixLogData {
    std::string fac;    ///< facility as written: "mail", "mail,news" or "*"
    std::string level;  ///< level as written after the first ".": "info", "*" or "none"
    std::string obj;    ///< action: the words after the selectors, joined by single blanks
  };

  /// Gets each rule, which lives for the call only, and the caller's context; non-zero asks to
  /// stop. A null callback is told nothing.
  using Callback = int (*)(const UnixLogData& data, void* context);

  /// The daemon's name.
  static std::string m_syslog_name;

  /// Chooses the daemon for all later calls.
  ///
  /// @return 0 for "syslog" and "rsyslog"; 1 for any other name, which changes nothing.
  static int set_syslog_name(const std::string& name);

  /// True for "*", "kern", "user", "mail", "daemon", "auth", "syslog", "lpr", "news", "uucp", "ftp"
  /// and "local0" to "local7", compared exactly; "authpriv" and "cron" are not among them.
  static bool is_valid_fac(const std::string& fac);

  /// True for "*", "emerg", "alert", "crit", "err", "warning", "notice", "info", "debug" and
  /// "none", compared exactly; "warn", "error", "=info" and the like are not among them.
  static bool is_valid_level(const std::string& level);

  /// Splits a line into its selectors and its action.
  ///
  /// "*.info;mail.none  /var/log/messages" gives "*.info;mail.none" and "/var/log/messages". Blanks
  /// before the last ";" become part of the selectors.
  ///
  /// @return 0; 1 for an empty line (both outputs are empty then); 8 without an action: `obj` is
  ///         empty then and `src` holds the selectors before the last ";", each with its ";".
  static int divide_src_obj(const std::string& line, std::string& src, std::string& obj);

  /// Reports each selector of one line, in order, as a rule.
  ///
  /// The selectors before the last ";" of a line without an action are reported too, with an empty
  /// action, before the result tells of it.
  ///
  /// @return 0; 1 for an empty line; 8 when the action is missing or when a selector has no "."
  ///         (those after it are not reported); 17 when the callback asked to stop.
  static int parse_line(const std::string& line, Callback callback, void* context);

  /// Reports every rule of the configuration file, in file order.
  ///
  /// Lines that are no rules are skipped. A callback that asks to stop ends its line only: reading
  /// goes on with the next one.
  ///
  /// @return 0, 3 or 9.
  static int get_all_log_data(Callback callback, void* context);

  /// True when `rule` covers the facility and level of `query`.
  ///
  /// The rule's facility must be "*" or list the query's among its comma-separated names; its level
  /// must be "*" or equal the query's. Levels have no order here, and actions are not compared.
  static bool is_part_of(const UnixLogData& query, const UnixLogData& rule);

  /// Reports the rules that cover a facility and a level.
  ///
  /// @return 11 when either is not valid (the file is not opened); otherwise what
  ///         `get_all_log_data` returns.
  static int find_ld(const std::string& fac, const std::string& level, Callback callback,
                     void* context);
  /// The same as `find_ld`.
  static int filter_logs_data(const std::string& fac, const std::string& level, Callback callback,
                              void* context);

  /// Looks for a rule that equals `data` in all three fields, byte for byte.
  ///
  /// @param data   the rule to look for.
  /// @param found  receives the answer.
  /// @return 0, 3 or 9; on failure `found` tells only of the lines before it.
  static int is_existed_data(const UnixLogData& data, bool& found);

  /// The callback of `find_ld`; its context is made there. Returns 1 without a complete context, 17
  /// when the caller's callback asked to stop, else 0.
  static int proc_find(const UnixLogData& rule, void* context);
  /// The callback of `is_existed_data`; its context is made there. Returns 1 without a complete
  /// context, else 0.
  static int proc_exist(const UnixLogData& rule, void* context);

  /// Appends a rule to the configuration file and restarts the daemon.
  ///
  /// The line is "FAC.LEVEL", two tabs and the action, which must be a regular file that exists;
  /// facility and level may be any text.
  ///
  /// @return 0; 12 when the rule is there; 20 or 21 for the action; a failure of `is_existed_data`
  ///         or of `put_line`; otherwise what `restart_syslog` returns. Up to 21 the file is
  ///         untouched.
  static int add_log_data(UnixLogData& data);

  /// Removes a rule from every line that holds it, in place, and restarts the daemon.
  ///
  /// A line holds the rule when "FAC.LEVEL" occurs in it, also as part of a longer word, and its
  /// action equals `obj`. The text goes together with a ";" after it; a line of this selector only
  /// becomes empty. An edited line loses its comment and the blanks around it. The file keeps its
  /// size: spaces fill it up at the end.
  ///
  /// @return 0; 3; 8 at a line that holds the text but has no action; 9 when the file cannot be
  /// read
  ///         to its end (nothing is edited); 10 when nothing matched (the daemon is left alone); a
  ///         failure of `sub_line`; otherwise what `restart_syslog` returns. Lines edited before a
  ///         failure stay edited, and so do those before a crash, each of them whole; some of the
  ///         spaces may be missing then.
  static int del_log_data(UnixLogData& data);

  /// Appends a line feed and `text` to the configuration file, which is made when it is missing.
  ///
  /// A crash leaves the file as it was, or made and empty, or with all of a text of less than 4,096
  /// bytes.
  ///
  /// @return 0; 1 for an empty text; 3.
  static int put_line(const std::string& text);

  /// Replaces the bytes from `start` up to, not including, `end` of an open file.
  ///
  /// Where the new text is shorter, spaces at the end of the file make up for it: the size never
  /// shrinks. On success the stream stands after the new text; it stays the caller's. All is
  /// written at once, so a crash leaves the file as it was or changed, in the latter case perhaps
  /// without the spaces; a write that fails can leave it half changed.
  ///
  /// @param file   open for reading and writing.
  /// @param start  byte offset, not after `end`.
  /// @param end    byte offset within the file.
  /// @param text   what takes their place; only read.
  /// @return 0; 1 for a null file; 4; 9 when the bytes after `end` cannot be read; 14; 15; 19.
  static int sub_line(FILE* file, long start, long end, std::string& text);

  /// True when a process runs whose command name contains the daemon's name, so "syslog" also finds
  /// rsyslogd: "ps -eo comm|grep -q NAME".
  static bool is_running();

  /// Runs "service NAME start" and waits, up to about 10 seconds, until the daemon runs.
  ///
  /// @return 0; 5 when it runs already (no command is run); 6; 18.
  static int start_syslog();

  /// Runs "service NAME stop" and waits, up to about 10 seconds, until the daemon is gone.
  ///
  /// @return 0; 7 when it does not run (no command is run); 6; 18.
  static int stop_syslog();

  /// Stops the daemon if it runs, and starts it.
  ///
  /// @return a failure of `stop_syslog`, or what `start_syslog` returns.
  static int restart_syslog();
};

}  // namespace utility
