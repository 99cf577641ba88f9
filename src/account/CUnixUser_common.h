#pragma once

#include <string>

// What users and groups are handled with alike.
namespace utility::detail {

/// The result codes of CUnixUser.
enum UserCode : int {
  kAccountDone = 0,
  kNoNameToLookUp = 1,
  kNoSuchUser = 2,
  kNoSuchGroup = 3,
  kNoNameToChange = 4,
  kUidTaken = 5,
  kToolFailed = 7,
  kGidTaken = 8,
  kGroupExists = 9,
  kUserExists = 10,
  kNoUserForPassword = 11,
  kWalkStopped = 20,
  kChildFailed = 21,
  kFileNotRead = 22,
  kUserOfSameName = 23,
};

/// Keeps a database of the C library open for a walk over it.
class DatabaseWalk {
 public:
  DatabaseWalk(void (*rewind)(), void (*close)()) noexcept : close_(close) { rewind(); }
  DatabaseWalk(const DatabaseWalk&) = delete;
  DatabaseWalk& operator=(const DatabaseWalk&) = delete;
  ~DatabaseWalk() { close_(); }

 private:
  void (*close_)();
};

/// Sets `found` to 1 when a line of the database file `path` begins with `name` and ":", else to 0.
/// Returns kFileNotRead, with `found` untouched, when the file cannot be read.
UserCode find_account_line(const char* path, const std::string& name, int& found);

/// Runs a tool through the shell; kToolFailed when its exit code is not 0.
UserCode run_tool(const std::string& command);

/// Runs a removing tool on `name`, keeping a name of "*" from the shell. Returns as `run_tool`.
UserCode run_removal(const char* tool, const std::string& name);

}  // namespace utility::detail
