#pragma once

#include <string>

// What users and groups are handled with alike.
namespace utility::detail {

/// Sets `found` to 1 when a line of the database file `path` begins with `name` and ":", else to 0.
/// Returns 0, or 22 with `found` untouched when the file cannot be read.
int find_account_line(const char* path, const std::string& name, int& found);

/// Runs a tool through the shell. Returns 0, or 7 when its exit code is not 0.
int run_tool(const std::string& command);

/// Runs a removing tool on `name`, keeping a name of "*" from the shell. Returns as `run_tool`.
int run_removal(const char* tool, const std::string& name);

}  // namespace utility::detail
