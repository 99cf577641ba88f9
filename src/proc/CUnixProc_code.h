#pragma once

// The result codes that the operations of CUnixProc share.
namespace utility::detail {

enum ProcCode : int {
  kDone = 0,
  kUnusable = 1,
  kNoLimit = 2,
  kNoChild = 3,
  kNotKilled = 4,
  kNoDirectory = 5,
  kNoMemory = 7,
  kNotRead = 9,
  kNoExecutable = 10,
  kNotOpened = 12,
  kStopped = 13,
};

/// How many bytes of a command line and of an environment are looked at.
constexpr int kCmdBytes = 4096;
constexpr int kEnvironBytes = 40960;
/// Lines of status files and of the first argument arrive in pieces of one byte less.
constexpr int kLineCapacity = 4096;

}  // namespace utility::detail
