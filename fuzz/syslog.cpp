// The log daemon's rules: the input is the configuration file and, behind a RS byte, a program of
// searches and edits. Every result, every rule reported and every byte of the file is as the rules,
// written plainly, have it. The daemon is a stand-in for the commands: none is run.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "check.h"
#include "input.h"
#include "lines.h"
#include "scratch.h"
#include "utility/CUnixLog.h"

namespace {

using utility::CUnixLog;
using Rule = CUnixLog::UnixLogData;
using Rules = std::vector<Rule>;

constexpr char kEnd = '\x1e';  // of the file's content and of a call's arguments
constexpr char kArgumentEnd = '\x1f';
constexpr char kPath[] = "/etc/syslog.conf";
constexpr std::size_t kMostOfLine = 1023;

/// The daemon, which comes and goes as it is told.
struct Daemon {
  bool runs = true;
  int restarts = 0;

  int run(const std::string& command) {
    if (command == "ps -eo comm|grep -q syslog") return runs ? 0 : 256;
    FUZZ_CHECK(command == (runs ? "service syslog stop" : "service syslog start"));
    runs = !runs;
    restarts += runs ? 1 : 0;
    return 0;
  }
};
Daemon service;

// --- What a line says

/// The pieces that are not empty.
std::vector<std::string> filled(const std::string& text, char separator) {
  std::vector<std::string> pieces = split(text, separator);
  pieces.erase(std::remove(pieces.begin(), pieces.end(), ""), pieces.end());
  return pieces;
}

std::string rule_text(const std::string& line) {
  const std::string text = line.substr(0, line.find('#'));
  const std::size_t begin = text.find_first_not_of(" \t\r\n");
  if (begin == std::string::npos) return {};
  return text.substr(begin, text.find_last_not_of(" \t\r\n") + 1 - begin);
}

struct Divided {
  std::string selectors;
  std::string action;
  bool whole = false;
};

Divided divided(const std::string& text) {
  Divided result;
  std::vector<std::string> pieces = filled(text, ';');
  if (pieces.empty()) return result;
  const std::vector<std::string> words = words_of(pieces.back());
  pieces.pop_back();
  for (const std::string& piece : pieces) result.selectors += piece + ";";
  result.whole = words.size() >= 2;
  if (!result.whole) return result;
  result.selectors += words[0];
  for (std::size_t i = 1; i < words.size(); ++i) result.action += (i > 1 ? " " : "") + words[i];
  return result;
}

/// The rules of a line, and its code.
int rules_of_line(const std::string& text, Rules& rules) {
  if (text.empty()) return 1;
  const Divided parts = divided(text);
  for (const std::string& selector : filled(parts.selectors, ';')) {
    const std::vector<std::string> names = filled(selector, '.');
    if (names.size() < 2) return 8;
    rules.push_back({names[0], names[1], parts.action});
  }
  return parts.whole ? 0 : 8;
}

bool same(const Rule& a, const Rule& b) {
  return a.fac == b.fac && a.level == b.level && a.obj == b.obj;
}

bool same(const Rules& a, const Rules& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const Rule& x, const Rule& y) { return same(x, y); });
}

bool contains(const std::vector<std::string>& list, const std::string& text) {
  return std::find(list.begin(), list.end(), text) != list.end();
}

bool covers(const Rule& rule, const std::string& fac, const std::string& level) {
  return (rule.fac == "*" || contains(filled(rule.fac, ','), fac)) &&
         (rule.level == "*" || rule.level == level);
}

// --- The file

std::optional<std::string> read_file() {
  const std::ifstream file(kPath, std::ios::binary);
  if (!file) return std::nullopt;
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

struct Model {
  std::optional<std::string> file;

  int all(Rules& rules) const {
    if (!file) return 3;
    for (const std::string& line : lines_of(*file, kMostOfLine)) {
      rules_of_line(rule_text(line), rules);
    }
    return 0;
  }

  bool holds(const Rule& rule) const {
    Rules rules;
    all(rules);
    return std::any_of(rules.begin(), rules.end(), [&](const Rule& r) { return same(r, rule); });
  }

  /// Bytes that go are made up for by spaces at the end.
  void replace(std::size_t begin, std::size_t end, const std::string& text) {
    const std::size_t size = file->size();
    file->replace(begin, end - begin, text);
    if (file->size() < size) file->resize(size, ' ');
  }

  int put(const std::string& text) {
    if (text.empty()) return 1;
    file = file.value_or("") + "\n" + text.c_str();
    return 0;
  }

  int add(const Rule& rule) {
    if (!file) return 3;
    if (holds(rule)) return 12;
    struct stat st {};
    const bool there = ::stat(rule.obj.c_str(), &st) == 0;
    if (!there && errno == ENOENT) return 20;
    if (!there || !S_ISREG(st.st_mode)) return 21;
    return put(rule.fac + "." + rule.level + "\t\t" + rule.obj + "\n");
  }

  int remove(const Rule& rule) {
    if (!file) return 3;
    const std::string key = rule.fac + "." + rule.level;
    int result = 10;
    for (std::size_t begin = 0; begin < file->size();) {
      const std::size_t feed = std::min(file->find('\n', begin), file->size() - 1);
      const std::size_t end = std::min(feed + 1, begin + kMostOfLine);
      const std::string piece = file->substr(begin, end - begin);
      std::string text = rule_text(piece.c_str());
      const std::size_t at = text.find(key);
      if (at != std::string::npos) {
        const Divided parts = divided(text);
        if (!parts.whole) return 8;
        if (parts.action == rule.obj) {
          text.erase(at, key.size() + (text.substr(at + key.size(), 1) == ";" ? 1 : 0));
          if (parts.selectors == key) text.clear();
          replace(begin, end, text + "\n");
          begin += text.size() + 1;
          result = 0;
          continue;
        }
      }
      begin = end;
    }
    return result;
  }
};

// --- The calls

struct Listener {
  Rules rules;
  std::size_t stop_at;  // each so many rules; 0 never

  static int hear(const Rule& rule, void* context) {
    auto& self = *static_cast<Listener*>(context);
    self.rules.push_back(rule);
    return self.stop_at != 0 && self.rules.size() % self.stop_at == 0 ? 1 : 0;
  }
};

void check_line(const std::string& line) {
  Rules expected;
  Listener heard{{}, 0};
  const int result = CUnixLog::parse_line(line, Listener::hear, &heard);
  FUZZ_CHECK(result == rules_of_line(line, expected) && same(heard.rules, expected));
  std::string selectors = "kept";
  std::string action = "kept";
  const int split_result = CUnixLog::divide_src_obj(line, selectors, action);
  const Divided parts = divided(line);
  FUZZ_CHECK(split_result == (line.empty() ? 1 : parts.whole ? 0 : 8));
  FUZZ_CHECK(selectors == (line.empty() ? "kept" : parts.selectors));
  FUZZ_CHECK(action == (line.empty() ? "kept" : parts.action));
}

void check_all(const Model& model) {
  Rules expected;
  Listener heard{{}, 0};
  FUZZ_CHECK(CUnixLog::get_all_log_data(Listener::hear, &heard) == model.all(expected));
  FUZZ_CHECK(same(heard.rules, expected));
}

/// A stop ends its line only.
void check_stops(const Model& model, std::size_t stop_at) {
  Rules expected;
  for (const std::string& line : lines_of(model.file.value_or(""), kMostOfLine)) {
    Rules rules;
    rules_of_line(rule_text(line), rules);
    for (const Rule& rule : rules) {
      expected.push_back(rule);
      if (stop_at != 0 && expected.size() % stop_at == 0) break;
    }
  }
  Listener heard{{}, stop_at};
  CUnixLog::get_all_log_data(Listener::hear, &heard);
  FUZZ_CHECK(same(heard.rules, expected));
}

void check_find(const Model& model, const std::string& fac, const std::string& level) {
  Rules rules;
  Rules expected;
  const bool valid = CUnixLog::is_valid_fac(fac) && CUnixLog::is_valid_level(level);
  const int result = valid ? model.all(rules) : 11;
  for (const Rule& rule : rules) {
    if (covers(rule, fac, level)) expected.push_back(rule);
  }
  Listener heard{{}, 0};
  FUZZ_CHECK(CUnixLog::find_ld(fac, level, Listener::hear, &heard) == result);
  FUZZ_CHECK(same(heard.rules, expected));
}

void check_existed(const Model& model, const Rule& rule) {
  bool found = true;
  FUZZ_CHECK(CUnixLog::is_existed_data(rule, found) == (model.file ? 0 : 3));
  FUZZ_CHECK(found == model.holds(rule));
}

/// Does the same edit to the file and to its model; the daemon is restarted where it was done.
template <typename Call>
int edit(const Call& call, int expected) {
  const int restarts = service.restarts;
  FUZZ_CHECK(call() == expected);
  FUZZ_CHECK(service.restarts == restarts + (expected == 0 ? 1 : 0) && service.runs);
  return expected;
}

bool is_word(const std::string& text) {
  return text.find_first_of(std::string(" \t\r\n\v\f#;.\0", 10)) == std::string::npos &&
         !text.empty();
}

bool is_plain_path(const std::string& text) {
  return words_of(text).size() == 1 && text.find('\0') == std::string::npos;
}

void check_add(Model& model, Rule rule) {
  const int result = edit([&] { return CUnixLog::add_log_data(rule); }, model.add(rule));
  if (result != 0 || !is_word(rule.fac) || !is_word(rule.level)) return;
  const std::size_t length = rule.fac.size() + rule.level.size() + rule.obj.size();
  if (is_plain_path(rule.obj) && length < 1000) FUZZ_CHECK(model.holds(rule));
}

void check_sub_line(Model& model, long begin, long end, std::string text) {
  if (!model.file) return;
  FILE* const file = std::fopen(kPath, "r+e");
  FUZZ_CHECK(file != nullptr);
  const auto size = static_cast<long>(model.file->size());
  const int expected = end > size ? 9 : begin > end || begin < 0 ? 14 : 0;
  FUZZ_CHECK(CUnixLog::sub_line(file, begin, end, text) == expected);
  if (expected == 0) {
    model.replace(static_cast<std::size_t>(begin), static_cast<std::size_t>(end), text);
    FUZZ_CHECK(std::ftell(file) == begin + static_cast<long>(text.size()));
  }
  std::fclose(file);
}

Rule rule_in(Input& input) {
  const std::string text = input.text(kEnd);
  Input arguments(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  Rule rule;
  for (std::string* argument : {&rule.fac, &rule.level, &rule.obj}) {
    *argument = arguments.text(kArgumentEnd);
  }
  return rule;
}

void step(Model& model, Input& input) {
  switch (input.byte()) {
    case 'a':
      check_add(model, rule_in(input));
      break;
    case 'd': {
      Rule rule = rule_in(input);
      edit([&] { return CUnixLog::del_log_data(rule); }, model.remove(rule));
      break;
    }
    case 'e':
      check_stops(model, input.byte() % 16);
      break;
    case 'f': {
      const Rule rule = rule_in(input);
      check_find(model, rule.fac, rule.level);
      break;
    }
    case 'l':
      check_line(input.text(kEnd));
      break;
    case 'p': {
      const std::string text = input.text(kEnd);
      FUZZ_CHECK(CUnixLog::put_line(text) == model.put(text));
      break;
    }
    case 's': {
      const auto begin = static_cast<signed char>(input.byte());
      const long end = begin + static_cast<signed char>(input.byte());
      check_sub_line(model, begin, end, input.text(kEnd));
      break;
    }
    case 'u':
      ::unlink(kPath);
      model.file.reset();
      break;
    case 'x':
      check_existed(model, rule_in(input));
      break;
    default:
      break;
  }
}

/// Makes /etc an empty directory, and "/mnt/log" a file to log to.
bool enter_scratch() {
  const std::string etc = scratch::dir() + "/etc";
  FUZZ_CHECK(::mkdir(etc.c_str(), 0755) == 0);
  scratch::put_over(etc, "/etc");
  scratch::File("log").write("");
  return true;
}

}  // namespace

// In place of the C library's, for the library under test.
extern "C" int system(const char* command) {
  return service.run(command);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool kEntered = enter_scratch();
  FUZZ_CHECK(kEntered);
  Input input(data, size);
  Model model;
  model.file = input.text(kEnd);
  scratch::File("etc/syslog.conf").write(*model.file);
  for (int steps = 0; steps < 16 && !input.empty(); ++steps) {
    step(model, input);
    FUZZ_CHECK(read_file() == model.file);
  }
  check_all(model);
  return 0;
}
