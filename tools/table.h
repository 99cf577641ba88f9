#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

// How the report prints: one table per section, by way of libsmartcols, for people or for programs.
namespace report {

/// The user asked for what there is not; `what` says for what.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

enum class Kind {
  kText,
  kLong,    ///< text that goes on in the next line where a terminal is too narrow
  kNumber,  ///< aligned right; a bare number in JSON
  kBytes,   ///< the same; with a unit ("4.3G") outside of JSON, unless exact bytes are asked for
  kList,    ///< comma-separated, and as long; an array in JSON
};

struct Column {
  const char* name;
  Kind kind;
  const char* help;
  /// The narrowest terminal, in characters, that shows the column unasked; where there is no
  /// terminal, all do but those that must be asked for.
  std::size_t from_width = 0;
  /// Without root the cell may be empty for this lack alone.
  bool needs_root = false;
};

constexpr std::size_t kWide = 120;
constexpr std::size_t kWider = 160;
constexpr std::size_t kAsked = SIZE_MAX;

enum class Format { kTable, kJson, kRaw, kPairs };

struct Look {
  Format format = Format::kTable;
  bool headings = true;
  bool exact_bytes = false;
  std::size_t width = 0;  ///< of the terminal; 0 where there is none
  std::string output;     ///< the columns asked for: "PID,NAME", "+INODE", or empty
};

class Table {
 public:
  /// @param tree_column  the column in which rows hang from their parents, or null for a flat list.
  /// Throws UsageError for a column in `look.output` that there is not.
  Table(const char* section, const std::vector<Column>& columns, const char* tree_column,
        const Look& look);

  /// Whether the column is printed, for cells that take work to fill.
  bool shows(const char* column) const;

  /// Adds a row with a cell for every column there is, in their order. An empty cell is an unknown
  /// value, or an empty list. `id` and `parent` matter to trees only.
  void add(std::vector<std::string> cells, int id = 0, int parent = 0);

  /// Orders the rows by a column that there is: numbers by value, texts by their bytes.
  void sort(const char* column);

  /// The table as it is printed.
  std::string text() const;

  /// Whether cells are empty that root might have filled.
  bool misses_root() const;

 private:
  struct Row {
    std::vector<std::string> cells;
    int id;
    int parent;
  };

  std::size_t index_of(const char* column) const;
  void choose(std::string names);
  std::string cell(const Row& row, std::size_t column) const;

  const char* section_;
  const std::vector<Column>& columns_;
  const char* tree_column_;
  const Look& look_;
  std::vector<std::size_t> shown_;  // indexes into columns_
  std::vector<Row> rows_;
};

/// Several printed tables as one document, in which each begins with its section's name.
std::string join(const std::vector<std::string>& tables, const std::vector<const char*>& sections,
                 Format format);

/// Percent with one decimal.
std::string percent(double value);

}  // namespace report
