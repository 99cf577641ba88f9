#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>

/// One case of a table that is a text file: named fields.
class Case {
 public:
  /// Whether the case has this field.
  bool has(const std::string& name) const { return fields_.count(name) > 0; }
  /// The field's text; a case without it fails.
  const std::string& operator[](const std::string& name) const;
  /// The field as a number, decimal or with "0x".
  long long number(const std::string& name) const;
  /// The field's text, or `other` where the case has none.
  std::string get(const std::string& name, const std::string& other) const;

 private:
  friend void for_each_case(const std::string& path, const std::function<void(const Case&)>& body);
  std::map<std::string, std::string> fields_;
  mutable std::set<std::string> unread_;
};

/// Runs `body` on each case of the file, which is a run of lines "name: value" up to an empty line;
/// lines with "#" in front are comments. In a value \n, \r, \t, \\, \0 and \xHH stand for these
/// bytes, and a name that comes again adds a line to its field. What fails is told with the case's
/// first line. A field that nobody asked for is a failure, and so is a file without cases.
void for_each_case(const std::string& path, const std::function<void(const Case&)>& body);
