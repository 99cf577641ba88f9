#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

using Words = std::vector<std::string>;
/// Operations that the steps of cases call by name; see calls.h.
using Calls = std::map<std::string, std::function<Words(const Words& arguments)>>;

/// One case of a table that is a text file: named fields. Asking for one that is not there fails.
class Case {
 public:
  bool has(const std::string& name) const;
  /// The field's text; where the name stands several times, its lines one after the other.
  std::string operator[](const std::string& name) const;
  /// The field as a number; "0x" makes it hexadecimal, "0" octal.
  long long number(const std::string& name) const;
  /// The texts of a name that may stand several times; none where it does not.
  std::vector<std::string> all(const std::string& name) const;

  /// Fails where a field is not what was seen.
  void expect(const std::string& name, const std::string& seen) const;
  void expect(const std::string& name, long long seen) const;

 private:
  friend void for_each_case(const std::string& path,
                            const std::map<std::string, std::function<void(const Case&)>>& checks,
                            bool apart);
  friend void run_steps(const Case& row, const Calls& calls);
  std::vector<std::pair<std::string, std::string>> lines_;
  mutable std::set<std::string> unread_;
};

using Checks = std::map<std::string, std::function<void(const Case&)>>;

/// Runs each case of the file by the check that its first line names. A case is a run of lines
/// "name: value" up to an empty line, its first one "check: what is special about the case"; "#" in
/// front makes a comment. In a value \n, \r, \t, \0 and \xHH stand for these bytes, and \c for any
/// other byte c; with *N* after one of them it stands N times. A field that nobody asks for is a
/// failure, and so is a check without cases. With `apart` each case has a process of its own.
void for_each_case(const std::string& path, const Checks& checks, bool apart = false);

/// A check of cases that are steps, taken in their order:
///
///     call: operation argument... => what it gives
///     shell: command => what it prints
///
/// Arguments and results are words, in quotes where they hold blanks or are empty. Besides those
/// of `calls` there are "write" with a path and bytes, and "read" with a path. Bash runs a
/// command, with the case file's directory as $FIXTURES; without "=>" it must succeed.
std::function<void(const Case&)> steps(Calls calls);
