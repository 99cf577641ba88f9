#pragma once

namespace utility::detail {

/// The result codes of CUnixFile.
enum FileCode : int {
  kItemDone = 0,
  kEmptyPath = 1,
  kNotExamined = 2,
  kNotDirectory = 3,
  kNotOpened = 4,
  kStopped = 5,
  kExists = 6,
  kFileNotCreated = 7,
  kDirectoryNotCreated = 8,
  kBadType = 9,
  kMissing = 10,
  kNotRemoved = 11,
  kNotRenamed = 12,
  kModeNotSet = 13,
  kUnknownType = 14,
  kNoMountTable = 17,
};

}  // namespace utility::detail
