#include "proc/CUnixProc_text.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>

#include "base/io.h"
#include "utility/CStr.h"

namespace utility::detail {

ssize_t read_stat(int fd, int& ppid, unsigned long& start_ticks) noexcept {
  start_ticks = 0;
  std::array<char, kLineCapacity + 1> text;
  const ssize_t count = read_some(fd, text.data(), kLineCapacity);
  char* const end = text.data() + std::max<ssize_t>(count, 0);
  *end = '\0';
  std::replace(text.data(), end, '\0', '?');  // to the scan it is a byte like any other
  // pid, name, state, parent, seventeen numbers of no interest, start. How far the scan comes is
  // not looked at, and numbers out of range are taken as it takes them.
  constexpr char kFormat[] = "%*d%*s%*s%d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%lu";
  // NOLINTNEXTLINE(cert-err34-c)
  static_cast<void>(std::sscanf(text.data(), kFormat, &ppid, &start_ticks));
  return count;
}

long start_time(unsigned long ticks, long boot_time) {
  // Added without sign: a file may say anything.
  return static_cast<long>(ticks / 100 + static_cast<unsigned long>(boot_time));
}

void parse_id(const char* text, unsigned int& id) {
  char* end = nullptr;
  const long value = std::strtol(text, &end, 10);
  if (end != text) id = static_cast<unsigned int>(value);
}

void StatusFields::parse_line(const char* line) {
  const std::string_view key = first_word(line);
  const char* const value = key.data() + key.size();
  if (!has_name_ && key == "Name:") {
    has_name_ = true;
    name = first_word(value);
  } else if (!has_uid_ && key == "Uid:") {
    has_uid_ = true;
    parse_id(value, uid);
  } else if (!has_gid_ && key == "Gid:") {
    has_gid_ = true;
    parse_id(value, gid);
  }
}

std::string_view first_line(const char* text) {
  std::string_view rest = text;
  return take_line(rest, kLineCapacity - 1);
}

std::string_view first_piece(std::string_view line) {
  constexpr std::string_view kSeparators = "0x\t ";
  const std::size_t begin = line.find_first_not_of(kSeparators);
  if (begin == std::string_view::npos) return {};
  return line.substr(begin, line.find_first_of(kSeparators, begin) - begin);
}

bool is_printable(std::string_view text) {
  // Nearly always ASCII: asking the locale for each byte would double the work of a walk.
  return std::all_of(text.begin(), text.end(), [](unsigned char c) {
    return (c >= ' ' && c <= '~') || std::isprint(c) != 0;
  });
}

std::string mapped_path(std::string line, std::vector<std::string>& fields) {
  CStr::trim(line);
  if (contains(line, "(deleted)") || (contains(line, "[") && contains(line, "]"))) return {};
  fields.clear();
  CStr::ext_line(fields, line);
  return fields.size() > 5 ? std::move(fields[5]) : "";
}

std::string shell_command(const std::string& executable, const std::string& args) {
  const std::size_t slash = std::min(executable.rfind('/'), executable.size() - 1);
  std::string command = executable.substr(0, slash + 1);
  for (const char c : executable.substr(slash + 1)) {
    if (std::isalnum(static_cast<unsigned char>(c)) == 0) command += '\\';
    command += c;
  }
  return command.append(" ").append(args);
}

}  // namespace utility::detail
