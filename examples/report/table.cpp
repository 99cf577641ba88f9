#include "report/table.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace report {
namespace {

// Names and command lines may hold any byte: control bytes must neither move the cursor nor break a
// line of the table.
std::string printable(const std::string& text) {
  std::string result;
  for (const char byte : text) {
    const auto code = static_cast<unsigned char>(byte);
    result += code < 0x20 || code == 0x7F ? '?' : byte;
  }
  return result;
}

std::size_t terminal_width() {
  winsize size{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return 80;
}

// Length of the UTF-8 sequence at `at`, or 0 when there is none.
std::size_t utf8_length(const std::string& text, std::size_t at) {
  const auto byte = [&](std::size_t i) {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
  };
  const unsigned lead = byte(at);
  const std::size_t length = lead < 0x80                    ? 1
                             : lead >= 0xC2 && lead <= 0xDF ? 2
                             : lead >= 0xE0 && lead <= 0xEF ? 3
                             : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                            : 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(at + i) & 0xC0) != 0x80) return 0;
  }
  const unsigned second = byte(at + 1);
  const bool overlong = (lead == 0xE0 && second < 0xA0) || (lead == 0xF0 && second < 0x90);
  const bool surrogate = lead == 0xED && second > 0x9F;
  const bool too_large = lead == 0xF4 && second > 0x8F;
  return overlong || surrogate || too_large ? 0 : length;
}

bool is_number(const std::string& text) {
  char* end = nullptr;
  std::strtod(text.c_str(), &end);
  return !text.empty() && *end == '\0' &&
         text.find_first_not_of("0123456789.-") == std::string::npos;
}

}  // namespace

std::string json_string(const std::string& text) {
  std::string result = "\"";
  for (std::size_t at = 0; at < text.size();) {
    const auto code = static_cast<unsigned char>(text[at]);
    const std::size_t length = utf8_length(text, at);
    if (code == '"' || code == '\\') {
      result.append("\\").append(1, text[at]);
    } else if (code < 0x20 || length == 0) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", code);
      result += escape;
    } else {
      result.append(text, at, length);
    }
    at += std::max<std::size_t>(length, 1);
  }
  return result + '"';
}

void Table::print(Format format) const {
  switch (format) {
    case Format::kAligned:
      return print_aligned();
    case Format::kTabs:
      return print_tabs();
    case Format::kJson:
      return print_json();
  }
}

void Table::print_aligned() const {
  std::vector<std::size_t> widths;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    std::size_t width = std::string(columns_[i].name).size();
    for (const auto& row : rows_) width = std::max(width, row[i].size());
    widths.push_back(width);
  }
  const auto print_row = [&](const std::vector<std::string>& cells) {
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
      const std::string padding(widths[i] - std::min(widths[i], cells[i].size()), ' ');
      if (i > 0) line += "  ";
      line += columns_[i].number ? padding + cells[i] : cells[i] + padding;
    }
    line = printable(line).substr(0, terminal_width());
    line.erase(line.find_last_not_of(' ') + 1);
    std::printf("%s\n", line.c_str());
  };

  std::printf("== %s ==\n", section_);
  std::vector<std::string> header;
  for (const Column& column : columns_) header.emplace_back(column.name);
  print_row(header);
  for (const auto& row : rows_) print_row(row);
  std::printf("\n");
}

void Table::print_tabs() const {
  for (const auto& row : rows_) {
    std::string line = section_;
    for (const std::string& cell : row) line.append("\t").append(printable(cell));
    std::printf("%s\n", line.c_str());
  }
}

void Table::print_json() const {
  for (const auto& row : rows_) {
    std::string line = "{\"section\":" + json_string(section_);
    for (std::size_t i = 0; i < row.size(); ++i) {
      const bool bare = columns_[i].number && is_number(row[i]);
      line.append(",").append(json_string(columns_[i].name)).append(":");
      line += bare ? row[i] : json_string(row[i]);
    }
    std::printf("%s}\n", line.c_str());
  }
}

}  // namespace report
