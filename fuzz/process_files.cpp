// The texts under /proc/<pid>: one text is read as each of them, by the operations on memory that
// the walk uses and by streams or plain models of the rules.
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "base/handles.h"
#include "base/line_reader.h"
#include "check.h"
#include "lines.h"
#include "proc/CUnixProc_code.h"
#include "proc/CUnixProc_text.h"
#include "utility/CUnixProc.h"

using namespace utility;

namespace {

detail::File stream_over(std::string& text) {
  detail::File stream(::fmemopen(text.data(), text.size(), "r"));
  FUZZ_CHECK(stream != nullptr);
  return stream;
}

// Fields 4 and 22, up to the first that is no number. False where a number ends inside a word: its
// rest is the next field then, which is left to the stream.
bool plain_stat(const std::string& text, int& ppid, unsigned long& ticks) {
  const std::vector<std::string> words = words_of(text);
  ppid = 0;
  ticks = 0;
  for (std::size_t i = 0; i < words.size() && i < 22; ++i) {
    if (i == 1 || i == 2) continue;
    char* end = nullptr;
    const char* word = words[i].c_str();
    const long number = std::strtol(word, &end, 10);
    if (end == word) return true;
    if (*end != '\0') return false;
    if (i == 3) ppid = static_cast<int>(number);
    if (i == 21) ticks = std::strtoul(word, nullptr, 10);
  }
  return true;
}

void check_stat(std::string text) {
  int ppid = 1;
  int stream_ppid = 2;
  int plain_ppid = 3;
  unsigned long ticks = 1;
  unsigned long stream_ticks = 2;
  unsigned long plain_ticks = 3;
  text.resize(std::strlen(text.c_str()));
  detail::parse_stat_line(text.c_str(), ppid, ticks);
  if (text.empty()) text = " ";  // no stream over nothing
  detail::scan_stat(stream_over(text).get(), stream_ppid, stream_ticks);
  FUZZ_CHECK(ppid == stream_ppid && ticks == stream_ticks);
  if (plain_stat(text, plain_ppid, plain_ticks)) {
    FUZZ_CHECK(ppid == plain_ppid && ticks == plain_ticks);
  }
  const auto start = static_cast<unsigned long>(detail::start_time(ticks, -5));
  FUZZ_CHECK(start + 5 == ticks / 100);
}

// The value of the first line whose first word is `key`; `found` stays where there is none.
void plain_id(const std::vector<std::string>& lines, const char* key, unsigned& found) {
  for (const std::string& line : lines) {
    const std::vector<std::string> words = words_of(line);
    if (words.empty() || words[0] != key) continue;
    char* end = nullptr;
    const char* text = words.size() > 1 ? words[1].c_str() : "";
    const long value = std::strtol(text, &end, 10);
    if (end != text) found = static_cast<unsigned>(value);
    return;
  }
}

void check_status(std::string text) {
  if (text.empty() || text.size() >= detail::kLineCapacity) return;
  detail::StatusFields streamed;
  streamed.uid = 7;
  streamed.gid = 8;
  detail::StatusFields plain = streamed;
  detail::StatusFields fields = streamed;
  const detail::File stream = stream_over(text);
  detail::LineReader reader(stream.get(), detail::kLineCapacity);
  detail::scan_status(reader, streamed);

  const std::vector<std::string> lines = lines_of(text, detail::kLineCapacity - 1);
  plain_id(lines, "Uid:", plain.uid);
  plain_id(lines, "Gid:", plain.gid);
  for (const std::string& line : lines) {
    const std::vector<std::string> words = words_of(line);
    if (words.empty() || words[0] != "Name:") continue;
    if (words.size() > 1) plain.name = words[1];
    break;
  }

  detail::TextLines in_place(text.data(), text.size());
  detail::scan_status(in_place, fields);
  for (const auto* other : {&streamed, &plain}) {
    FUZZ_CHECK(fields.name == other->name);
    FUZZ_CHECK(fields.uid == other->uid && fields.gid == other->gid);
  }
}

// Arguments are NUL-terminated; an empty one ends the list, and so does one that begins at the last
// byte.
void check_args(std::string text) {
  std::string expected;
  std::size_t at = 0;
  while (at + 1 < text.size() && text[at] != '\0') {
    if (at > 0) expected += ' ';
    for (; at < text.size() && text[at] != '\0'; ++at) expected += text[at];
    ++at;
  }
  std::string joined = "before";
  FUZZ_CHECK(CUnixProc::parse_args(text.data(), static_cast<int>(text.size()), joined) == 0);
  FUZZ_CHECK(joined == expected);

  bool printable = true;
  for (const char c : text) printable = printable && std::isprint(static_cast<unsigned char>(c));
  FUZZ_CHECK(detail::is_printable(text) == printable);
}

void check_first_argument(const std::string& text) {
  const std::vector<std::string> lines = lines_of(text.c_str(), detail::kLineCapacity - 1);
  const std::string_view line = detail::first_line(text.c_str());
  FUZZ_CHECK(line == (lines.empty() ? "" : lines[0]));

  const auto separates = [](char c) { return c == '0' || c == 'x' || c == '\t' || c == ' '; };
  std::string piece;
  for (const char c : line) {
    if (!separates(c)) piece += c;
    if (separates(c) && !piece.empty()) break;
  }
  FUZZ_CHECK(detail::first_piece(line) == piece);
}

// Six words, none of them of the kernel's own regions or of a file that is gone: the sixth counts.
void check_maps(const std::string& text) {
  std::vector<std::string> fields;
  for (const std::string& line : lines_of(text, 1023)) {
    const auto holds = [&line](const char* part) { return line.find(part) != std::string::npos; };
    const std::vector<std::string> words = words_of(line);
    const bool kept = words.size() > 5 && !holds("(deleted)") && !(holds("[") && holds("]"));
    FUZZ_CHECK(detail::mapped_path(line, fields) == (kept ? words[5] : ""));
  }
}

// In the command for the shell no byte of a file name is left with a meaning.
void check_command(const std::string& text) {
  const std::size_t slash = text.rfind('/');
  const std::size_t name = slash == std::string::npos ? text.size() : slash + 1;
  std::string command = detail::shell_command(text, "args");
  FUZZ_CHECK(command.substr(0, name) == text.substr(0, name));
  std::size_t at = name;
  for (const char c : text.substr(name)) {
    if (std::isalnum(static_cast<unsigned char>(c)) == 0) FUZZ_CHECK(command[at++] == '\\');
    FUZZ_CHECK(command[at++] == c);
  }
  FUZZ_CHECK(command.substr(at) == " args");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = text_of(data, size, 8192);
  check_stat(text);
  check_status(text);
  check_args(text);
  check_first_argument(text);
  check_maps(text);
  check_command(text);
  return 0;
}
