#pragma once

#include <string>
#include <vector>

// How the host report prints: one table per section, for people or for programs.
namespace report {

enum class Format {
  kAligned,  ///< columns, for a terminal; the last one is cut to its width
  kTabs,     ///< tab-separated, for a pipe
  kJson,     ///< one object per line
};

struct Column {
  const char* name;
  bool number = false;  ///< aligned right, and a bare number in JSON
};

class Table {
 public:
  Table(const char* section, std::vector<Column> columns)
      : section_(section), columns_(std::move(columns)) {}

  void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
  void print(Format format) const;

 private:
  void print_aligned() const;
  void print_tabs() const;
  void print_json() const;

  const char* section_;
  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;
};

/// `text` as a JSON string with its quotes. Bytes that are no UTF-8 become \u00XX.
std::string json_string(const std::string& text);

}  // namespace report
