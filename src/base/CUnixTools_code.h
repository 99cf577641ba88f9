#pragma once

namespace utility::detail {

/// What the operations of CUnixTools that have a result code return.
enum ToolsCode : int {
  kDone = 0,
  kNotCopied = 1,
  kNoOutput = 2,
  kTargetExists = 3,
  kNoSource = 4,
  kNotCreated = 7,
  kNoCommand = 9,
  kNotExamined = 10,
  kNotRemoved = 11,
  kNoDirectory = 12,
  kOtherKind = 13,
};

}  // namespace utility::detail
