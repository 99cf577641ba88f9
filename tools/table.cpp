#include "table.h"

#include <libsmartcols/libsmartcols.h>
#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>

namespace report {
namespace {

// libsmartcols fails for want of memory only.
void check(bool done) {
  if (!done) throw std::bad_alloc();
}

// Length of the UTF-8 sequence at the beginning of `text`, or 0 when there is none.
std::size_t utf8_length(const char* text) {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned lead = byte(0);
  const std::size_t length = lead < 0x80                    ? 1
                             : lead >= 0xC2 && lead <= 0xDF ? 2
                             : lead >= 0xE0 && lead <= 0xEF ? 3
                             : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                            : 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  if (length < 3) return length;
  // Longer than need be, a half of a surrogate pair, or beyond the last character.
  const unsigned two = lead << 8 | byte(1);
  const bool none = (two >= 0xE080 && two < 0xE0A0) || two >= 0xF490 ||
                    (two >= 0xEDA0 && two < 0xEE00) || (two >= 0xF080 && two < 0xF090);
  return none ? 0 : length;
}

// Names and command lines may hold any byte, JSON no other than UTF-8: what is none becomes "\xNN",
// as libsmartcols writes it in tables.
std::string as_utf8(const std::string& text) {
  std::string result;
  for (const char* at = text.c_str(); *at != '\0';) {
    const std::size_t length = utf8_length(at);
    if (length > 0) {
      result.append(at, length);
    } else {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(*at));
      result += escape;
    }
    at += std::max<std::size_t>(length, 1);
  }
  return result;
}

// By hand, since libsmartcols writes an empty array as [null].
std::string json_array(const std::string& list) {
  std::string result = "[";
  for (const char byte : list) {
    if (result.size() == 1) result += '"';
    if (byte == ',') {
      result += "\", \"";
    } else if (byte == '"' || byte == '\\') {
      result.append(1, '\\').append(1, byte);
    } else if (static_cast<unsigned char>(byte) < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(byte));
      result += escape;
    } else {
      result += byte;
    }
  }
  return result + (result.size() > 1 ? "\"]" : "]");
}

// "4.3G"; powers of 1024, as lsblk(8) has it.
std::string human_size(const std::string& bytes) {
  double value = std::strtod(bytes.c_str(), nullptr);
  const char* unit = "BKMGTPE";
  for (; value >= 1023.95 && unit[1] != '\0'; ++unit) value /= 1024;
  char text[32];
  std::snprintf(text, sizeof text, *unit == 'B' ? "%.0f%c" : "%.1f%c", value, *unit);
  return text;
}

}  // namespace

Table::Table(const char* section, const std::vector<Column>& columns, const char* tree_column,
             const Look& look)
    : section_(section), columns_(columns), tree_column_(tree_column), look_(look) {
  if (look.output.empty() || look.output[0] == '+') {
    for (std::size_t i = 0; i < columns.size(); ++i) {
      const std::size_t from = columns[i].from_width;
      if (look.width == 0 ? from != kAsked : from <= look.width) shown_.push_back(i);
    }
  }
  if (!look.output.empty()) choose(look.output.substr(look.output[0] == '+' ? 1 : 0));
}

std::size_t Table::index_of(const char* column) const {
  const auto found = std::find_if(columns_.begin(), columns_.end(), [column](const Column& one) {
    return ::strcasecmp(one.name, column) == 0;
  });
  if (found == columns_.end()) {
    throw UsageError(std::string("no column '") + column + "' in " + section_);
  }
  return static_cast<std::size_t>(found - columns_.begin());
}

void Table::choose(std::string names) {
  names += ',';
  for (std::size_t end; (end = names.find(',')) != std::string::npos; names.erase(0, end + 1)) {
    const std::string name = names.substr(0, end);
    if (!shows(name.c_str())) shown_.push_back(index_of(name.c_str()));
  }
}

bool Table::shows(const char* column) const {
  return std::find(shown_.begin(), shown_.end(), index_of(column)) != shown_.end();
}

void Table::add(std::vector<std::string> cells, int id, int parent) {
  rows_.push_back({std::move(cells), id, parent});
}

void Table::sort(const char* column) {
  const std::size_t at = index_of(column);
  const bool number = columns_[at].kind == Kind::kNumber;
  std::stable_sort(rows_.begin(), rows_.end(), [at, number](const Row& a, const Row& b) {
    const std::string &one = a.cells[at], &other = b.cells[at];
    return number && one.size() != other.size() ? one.size() < other.size() : one < other;
  });
}

bool Table::misses_root() const {
  return std::any_of(shown_.begin(), shown_.end(), [this](std::size_t i) {
    return columns_[i].needs_root && std::any_of(rows_.begin(), rows_.end(), [i](const Row& row) {
             return row.cells[i].empty();
           });
  });
}

std::string Table::cell(const Row& row, std::size_t column) const {
  std::string text = as_utf8(row.cells[column]);
  const bool json = look_.format == Format::kJson;
  const Kind kind = columns_[column].kind;
  if (kind == Kind::kList && json) return json_array(text);
  if (kind == Kind::kBytes && !json && !look_.exact_bytes && !text.empty()) return human_size(text);
  return text;
}

std::string Table::text() const {
  std::unique_ptr<libscols_table, void (*)(libscols_table*)> table(scols_new_table(),
                                                                   scols_unref_table);
  check(table != nullptr && scols_table_set_name(table.get(), section_) == 0);
  scols_table_enable_json(table.get(), look_.format == Format::kJson ? 1 : 0);
  scols_table_enable_raw(table.get(), look_.format == Format::kRaw ? 1 : 0);
  scols_table_enable_export(table.get(), look_.format == Format::kPairs ? 1 : 0);
  scols_table_enable_noheadings(table.get(), look_.headings ? 0 : 1);
  if (look_.width > 0) {
    scols_table_set_termforce(table.get(), SCOLS_TERMFORCE_ALWAYS);
    scols_table_set_termwidth(table.get(), look_.width);
  }
  std::string headings;
  for (const std::size_t i : shown_) {
    const Column& column = columns_[i];
    const bool number = column.kind == Kind::kNumber || column.kind == Kind::kBytes;
    const bool wraps = column.kind == Kind::kLong || column.kind == Kind::kList;
    const bool tree = tree_column_ != nullptr && std::strcmp(column.name, tree_column_) == 0;
    libscols_column* made = scols_table_new_column(
        table.get(), column.name, 0,
        (number ? SCOLS_FL_RIGHT : 0) | (wraps ? SCOLS_FL_WRAP : 0) | (tree ? SCOLS_FL_TREE : 0));
    check(made != nullptr);
    const bool bare = number || column.kind == Kind::kList;
    scols_column_set_json_type(made, bare ? SCOLS_JSON_NUMBER : SCOLS_JSON_STRING);
    headings.append(headings.empty() ? "" : " ").append(column.name);
  }
  // libsmartcols prints nothing at all for a table without rows.
  if (rows_.empty() && look_.format != Format::kJson) {
    return look_.headings && look_.format != Format::kPairs ? headings + "\n" : "";
  }
  std::map<int, libscols_line*> lines;
  for (const Row& row : rows_) {
    libscols_line* line = scols_table_new_line(table.get(), nullptr);
    check(line != nullptr);
    for (std::size_t i = 0; i < shown_.size(); ++i) {
      check(scols_line_set_data(line, i, cell(row, shown_[i]).c_str()) == 0);
    }
    lines[row.id] = line;
  }
  for (const Row& row : rows_) {
    const auto parent = lines.find(row.parent);
    libscols_line* line = lines[row.id];
    // Two processes that were read at different times may each name the other's number.
    if (tree_column_ != nullptr && parent != lines.end() && parent->second != line &&
        scols_line_is_ancestor(parent->second, line) == 0) {
      check(scols_line_add_child(parent->second, line) == 0);
    }
  }
  char* text = nullptr;
  check(scols_print_table_to_string(table.get(), &text) == 0);
  const std::unique_ptr<char, void (*)(void*)> owner(text, std::free);
  std::string result = text;
  if (!result.empty() && result.back() != '\n') result += '\n';
  return result;
}

std::string join(const std::vector<std::string>& tables, const std::vector<const char*>& sections,
                 Format format) {
  std::string result;
  for (std::size_t i = 0; i < tables.size(); ++i) {
    const std::string& table = tables[i];
    if (format == Format::kJson) {
      // Each is an object with one member.
      const std::size_t begin = table.find('{') + 1;
      result.append(i > 0 ? "," : "{");
      result.append(table, begin, table.find_last_not_of(" \n", table.rfind('}') - 1) + 1 - begin);
    } else {
      if (i > 0) result += '\n';
      if (tables.size() > 1 && format == Format::kTable) {
        result.append("== ").append(sections[i]).append(" ==\n");
      }
      result += table;
    }
  }
  return format == Format::kJson ? result + "\n}\n" : result;
}

std::string percent(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", value);
  return text;
}

}  // namespace report
