#pragma once

#include <string>
#include <string_view>

// What reading and editing the log daemon's configuration share.
namespace utility::detail {

/// The result codes of CUnixLog.
enum LogCode : int {
  kLogDone = 0,
  kNothingGiven = 1,
  kFileNotOpened = 3,
  kNoMemory = 4,
  kRunsAlready = 5,
  kServiceFailed = 6,
  kDoesNotRun = 7,
  kNoSuchPart = 8,
  kReadFailed = 9,
  kNoRule = 10,
  kNotValid = 11,
  kRuleExists = 12,
  kSeekFailed = 14,
  kWriteFailed = 15,
  kLineStopped = 17,
  kNotInTime = 18,
  kNotTruncated = 19,
  kActionMissing = 20,
  kActionNoFile = 21,
};

/// The room of a line of the configuration.
constexpr std::size_t kLogLine = 1024;

/// The configuration file of the daemon that is chosen now.
std::string log_file_path();

/// `line` without its comment and the blanks around it; empty when there is no rule in it.
std::string rule_text(std::string_view line);

}  // namespace utility::detail
