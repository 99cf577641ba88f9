#include "proc/proc_text.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "proc/codes.h"
#include "utility/CStr.h"

namespace utility::detail {
namespace {

// pid, name, state, parent, seventeen numbers of no interest, start.
constexpr char kStatFormat[] = "%*d%*s%*s%d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%lu";

}  // namespace

// How far the scans came is not looked at: what they did not reach is 0.
void scan_stat(FILE* stream, int& ppid, unsigned long& start_ticks) {
  ppid = 0;
  start_ticks = 0;
  // NOLINTNEXTLINE(cert-err34-c): out of range numbers are taken as scanf takes them.
  [[maybe_unused]] const int ignored = std::fscanf(stream, kStatFormat, &ppid, &start_ticks);
}

void parse_stat_line(const char* line, int& ppid, unsigned long& start_ticks) {
  ppid = 0;
  start_ticks = 0;
  // NOLINTNEXTLINE(cert-err34-c): as above.
  static_cast<void>(std::sscanf(line, kStatFormat, &ppid, &start_ticks));
}

long start_time(unsigned long ticks, long boot_time) {
  constexpr unsigned long kTicksPerSecond = 100;
  // Added without sign: a file may say anything.
  return static_cast<long>(ticks / kTicksPerSecond + static_cast<unsigned long>(boot_time));
}

const char* behind_key(const char* line, std::string_view key) {
  const std::string_view word = first_word(line);
  return word == key ? word.data() + word.size() : nullptr;
}

void parse_id(const char* text, unsigned int& id) {
  char* end = nullptr;
  const long value = std::strtol(text, &end, 10);
  if (end != text) id = static_cast<unsigned int>(value);
}

void StatusFields::parse_line(const char* line) {
  const char* rest = nullptr;
  if (!has_name_ && (rest = behind_key(line, "Name:")) != nullptr) {
    has_name_ = true;
    name = first_word(rest);
  } else if (!has_uid_ && (rest = behind_key(line, "Uid:")) != nullptr) {
    has_uid_ = true;
    parse_id(rest, uid);
  } else if (!has_gid_ && (rest = behind_key(line, "Gid:")) != nullptr) {
    has_gid_ = true;
    parse_id(rest, gid);
  }
}

bool TextLines::next() noexcept {
  if (next_ == end_) return false;
  line_ = next_;
  auto* feed = static_cast<char*>(std::memchr(next_, '\n', static_cast<std::size_t>(end_ - next_)));
  next_ = feed != nullptr ? feed + 1 : end_;
  if (feed != nullptr) *feed = '\0';
  return true;
}

std::string_view first_line(const char* text) {
  const std::string_view all(text, ::strnlen(text, kLineCapacity - 1));
  const std::size_t feed = all.find('\n');
  return feed == std::string_view::npos ? all : all.substr(0, feed + 1);
}

std::string_view first_piece(std::string_view line) {
  constexpr std::string_view kSeparators = "0x\t ";
  const std::size_t begin = line.find_first_not_of(kSeparators);
  if (begin == std::string_view::npos) return {};
  return line.substr(begin, line.find_first_of(kSeparators, begin) - begin);
}

bool is_printable(std::string_view text) {
  // Environments are long and nearly always ASCII: asking the locale for each byte was half the
  // work of a walk outside the kernel.
  return std::all_of(text.begin(), text.end(), [](unsigned char c) {
    return (c >= ' ' && c <= '~') || std::isprint(c) != 0;
  });
}

std::string mapped_path(std::string line, std::vector<std::string>& fields) {
  CStr::trim(line);
  const auto holds = [&line](const char* part) { return line.find(part) != std::string::npos; };
  if (holds("(deleted)") || (holds("[") && holds("]"))) return {};
  fields.clear();
  CStr::ext_line(fields, line);
  constexpr std::size_t kPathField = 5;
  return fields.size() > kPathField ? std::move(fields[kPathField]) : std::string();
}

std::string shell_command(const std::string& executable, const std::string& args) {
  std::string command;
  const std::size_t slash = executable.rfind('/');
  const std::size_t name = slash == std::string::npos ? executable.size() : slash + 1;
  command.assign(executable, 0, name);
  for (std::size_t at = name; at < executable.size(); ++at) {
    if (std::isalnum(static_cast<unsigned char>(executable[at])) == 0) command += '\\';
    command += executable[at];
  }
  return command.append(" ").append(args);
}

}  // namespace utility::detail
