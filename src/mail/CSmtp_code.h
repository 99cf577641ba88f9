#pragma once

namespace utility::detail {

/// The result codes of CSmtp.
enum SmtpCode : int {
  kSuccess = 0,
  kBadArgument = 1,
  kNoSocket = 2,
  kBadSocket = 3,
  kNotResolved = 4,
  kNotConnected = 5,
  kNoMemory = 6,
  kNotSent = 7,
  kNotReceived = 8,
  kRefused = 9,
  kConnectTimedOut = 11,
  kNoAlarmHandler = 13,
  kNotAuthenticated = 14,
  kNotEncoded = 15,
  kWaitFailed = 17,
  kNothingReadable = 18,
};

}  // namespace utility::detail
