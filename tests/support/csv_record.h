#pragma once

#include <string>
#include <vector>

#include "utility/CCSV.h"

// Record arrays of CCSV as callers make and free them.
namespace csv_record {

inline bool write(utility::CCSV& csv, const std::vector<std::string>& fields) {
  std::vector<char*> record;
  for (const std::string& field : fields) {
    record.push_back(new char[field.size() + 1]());
    field.copy(record.back(), field.size());
  }
  record.push_back(new char[1]());
  const bool done =
      csv.WriteRecord(const_cast<const char**>(record.data()), static_cast<int>(fields.size()));
  for (const char* string : record) delete[] string;
  return done;
}

/// Frees what ReadRecord gave, also what lies after an empty field, out of FreeRecord's reach.
inline void free_all(char** record, int cols) {
  int empty = 0;
  while (*record[empty] != '\0') ++empty;
  for (int i = empty + 1; i <= cols; ++i) delete[] record[i];
  utility::CCSV::FreeRecord(record);
}

}  // namespace csv_record
