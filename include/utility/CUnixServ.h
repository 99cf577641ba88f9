#pragma once

#include <string>

#include "utility/Export.h"

namespace utility {

/// The services of a host that keeps init scripts in /etc/init.d, asked and changed through its
/// "service" command.
///
/// Service names become part of a shell command as they stand: callers make sure that a name is one
/// of /etc/init.d and holds nothing that a shell would act on. Every operation waits for the script
/// that it starts, so it takes as long as the script does. Nothing throws or prints; there is no
/// state, and calls may run in parallel.
///
/// | Code | Meaning |
/// |---|---|
/// | 0 | done |
/// | 1 | /etc/init.d cannot be listed |
/// | 2 | an empty name |
/// | 3 | the status command could not be started |
/// | 6 | the command ended with a failure or by a signal |
/// | 7 | the callback asked to stop |
class UTILITY_API CUnixServ {
 public:
  /// One service.
  struct UnixServData {
    std::string name;         ///< the name of the script in /etc/init.d
    std::string status;       ///< "running", "stopped" or "-" for unknown, as `getstatus` has it
    std::string status_text;  ///< everything that the status command printed
  };

  /// Classifies what a status command printed.
  ///
  /// The first of these that occurs anywhere in `text` decides: "is running" and "(pid " mean
  /// running; "is stopped", the Chinese word for stopped (in UTF-8) and "not running" mean stopped.
  /// A text that holds phrases of both kinds counts as running.
  ///
  /// @param text    what the command printed.
  /// @param status  receives "running", "stopped" or "-".
  /// @return always 0.
  static int getstatus(const std::string& text, std::string& status);

  /// Asks one service for its status: "service NAME status 2>/dev/null".
  ///
  /// The command's exit status is not used.
  ///
  /// @return 0; 2 for an empty name; 3 when the command could not be started. On failure `data` is
  ///         untouched.
  static int get_serv_data(const std::string& name, UnixServData& data);

  /// True when /etc/init.d/`name` is no service: a directory, or a name whose part after the last
  /// "." is "bak", "orig", "rpmnew", "rpmorig", "rpmsave" or "~". So "foo~", without a dot, is one.
  static bool is_ignored_file(const std::string& name);

  /// Reports every service to `callback`, in listing order of /etc/init.d.
  ///
  /// Left out are what `is_ignored_file` names, the helper scripts "functions", "halt", "killall",
  /// "single", "linuxconf" and "kudzu", names that contain "boot", scripts that the caller may not
  /// execute, and services whose status command cannot be started.
  ///
  /// @param callback  gets each record, which lives for the call only; non-zero stops the listing.
  ///                  Null is told nothing.
  /// @param context   handed to the callback as it is.
  /// @return 0; 1 when /etc/init.d cannot be listed; 7 when the callback stopped it.
  static int get_all_serv_data(int (*callback)(const UnixServData& data, void* context),
                               void* context);

  /// Runs "service NAME start"; its output goes where the caller's goes.
  ///
  /// @return 0; 2 for an empty name (nothing is run); 6 when the command ended with a failure or by
  ///         a signal.
  static int start_serv(const std::string& name);

  /// Runs "service NAME stop"; otherwise as `start_serv`.
  static int stop_serv(const std::string& name);
};

}  // namespace utility
