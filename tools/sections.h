#pragma once

#include <string>
#include <vector>

#include "table.h"

namespace report {

/// What narrows a section down. `given` holds a bit of `Filter` for each that the user set.
enum Filter : unsigned {
  kListening = 1,
  kPort = 2,
  kProtocol = 4,
  kPid = 8,
  kName = 16,
  kUser = 32,
  kTree = 64,
};

struct Filters {
  unsigned given = 0;
  unsigned port = 0;
  int pid = 0;
  std::string protocol;
  std::string name;
  std::string user;  ///< name or number

  bool has(Filter filter) const { return (given & filter) != 0; }
};

struct Section {
  const char* name;
  const char* help;
  std::vector<Column> columns;
  /// Adds the rows; false when what is reported could not be read completely.
  bool (*fill)(const Filters& filters, Table& table);
  unsigned filters = 0;  ///< those that it heeds
  /// A host need not have this file; without it the section is empty. Null where nothing excuses.
  const char* source = nullptr;
  const char* tree_column = nullptr;
  bool on_request = false;  ///< left out when no section is named
};

extern const Section kSockets;
extern const Section kProcesses;
extern const Section kMaps;
extern const Section kInterfaces;
extern const Section kMemory;
extern const Section kCpu;
extern const Section kDisks;
extern const Section kVolumes;
extern const Section kUsers;
extern const Section kGroups;
extern const Section kServices;
extern const Section kLogRules;

/// Names of user ids, each looked up once.
class UserNames {
 public:
  const std::string& of(unsigned uid);
  /// True for the name or the number of `uid`.
  bool is(unsigned uid, const std::string& user);

 private:
  std::vector<std::pair<unsigned, std::string>> known_;
};

}  // namespace report
