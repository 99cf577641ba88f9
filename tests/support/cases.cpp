#include "support/cases.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>

#include "support/sandbox.h"

std::string unescaped(const std::string& text) {
  static const std::map<char, char> kBytes = {{'n', '\n'}, {'r', '\r'}, {'t', '\t'}, {'0', '\0'}};
  std::string bytes;
  for (std::size_t at = 0; at < text.size();) {
    if (text[at] != '\\') {
      bytes += text[at++];
      continue;
    }
    char byte = text.at(++at);
    if (const auto known = kBytes.find(byte); known != kBytes.end()) byte = known->second;
    if (byte == 'x') byte = static_cast<char>(std::stoi(text.substr(at + 1, 2), nullptr, 16));
    if (text[at] == 'x') at += 2;
    std::size_t count = 1;
    if (++at < text.size() && text[at] == '*') {
      count = std::stoul(text.substr(at + 1));
      at = text.find('*', at + 1) + 1;
    }
    bytes.append(count, byte);
  }
  return bytes;
}

// The words of a line; those in quotes may hold blanks.
Words words_of(const std::string& line) {
  Words words;
  for (std::size_t at = 0; (at = line.find_first_not_of(' ', at)) < line.size();) {
    const char end = line[at] == '"' ? line[at++] : ' ';
    const std::size_t begin = at;
    while (at < line.size() && line[at] != end) at += line[at] == '\\' ? 2 : 1;
    words.push_back(unescaped(line.substr(begin, at++ - begin)));
  }
  return words;
}

bool Case::has(const std::string& name) const {
  return std::any_of(lines_.begin(), lines_.end(), [&](auto& line) { return line.first == name; });
}

std::vector<std::string> Case::all(const std::string& name) const {
  unread_.erase(name);
  std::vector<std::string> texts;
  for (const auto& [one, text] : lines_) {
    if (one == name) texts.push_back(unescaped(text));
  }
  return texts;
}

std::string Case::operator[](const std::string& name) const {
  if (!has(name)) ADD_FAILURE() << "the case has no field \"" << name << "\"";
  std::string text;
  for (const std::string& line : all(name)) text += (text.empty() ? "" : "\n") + line;
  return text;
}

long long Case::number(const std::string& name) const {
  return std::stoll((*this)[name], nullptr, 0);
}

void Case::expect(const std::string& name, const std::string& seen) const {
  EXPECT_EQ(seen, (*this)[name]) << name;
}

void Case::expect(const std::string& name, long long seen) const {
  EXPECT_EQ(seen, number(name)) << name;
}

void for_each_case(const std::string& path, const Checks& checks, bool apart) {
  std::ifstream file(path);
  ::setenv("FIXTURES", path.substr(0, path.rfind('/')).c_str(), 1);
  std::set<std::string> idle;
  for (const auto& [name, check] : checks) idle.insert(name);
  for (std::string line, title; file;) {
    Case one;
    while (std::getline(file, line) && !line.empty()) {
      if (line[0] == '#') continue;
      const std::size_t colon = line.find(':');
      const std::string name = line.substr(0, colon);
      if (one.lines_.empty()) title = name;
      one.lines_.emplace_back(name, line.size() > colon + 2 ? line.substr(colon + 2) : "");
      one.unread_.insert(name);
    }
    if (one.lines_.empty()) continue;
    SCOPED_TRACE(path + ": " + title + ": " + one[title]);
    idle.erase(title);
    if (const pid_t child = apart ? ::fork() : 0; child != 0) {
      int status = -1;
      ::waitpid(child, &status, 0);
      EXPECT_EQ(status, 0);
      continue;
    }
    checks.at(title)(one);
    for (const std::string& name : one.unread_) ADD_FAILURE() << "nobody reads \"" << name << "\"";
    if (apart) ::_exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  for (const std::string& name : idle) ADD_FAILURE() << path << " has no case for " << name;
}

void run_steps(const Case& row, const Calls& calls) {
  row.unread_.clear();
  for (auto step = row.lines_.begin() + 1; step != row.lines_.end(); ++step) {
    const std::string& text = step->second;
    const std::size_t arrow = std::min(text.find(" =>"), text.size());
    const std::string what = text.substr(0, arrow),
                      after = text.substr(std::min(arrow + 4, text.size()));
    if (step->first == "shell") {
      int status = 0;
      std::string printed = sandbox::output_of(what, &status);
      printed.erase(printed.find_last_not_of('\n') + 1);
      EXPECT_EQ(printed, unescaped(after)) << text;
      EXPECT_TRUE(status == 0 || arrow < text.size()) << text;
    } else {
      Words words = words_of(what);
      const auto call = calls.find(words.at(0));
      if (step->first != "call" || call == calls.end()) throw std::invalid_argument(text);
      words.erase(words.begin());
      EXPECT_EQ(call->second(words), words_of(after)) << text;
    }
  }
}

std::function<void(const Case&)> steps(Calls calls) {
  calls["write"] = [](const Words& words) {
    sandbox::write_file(words.at(0), words.at(1));
    return Words();
  };
  calls["read"] = [](const Words& words) { return Words{sandbox::read_file(words.at(0))}; };
  return [calls](const Case& row) { run_steps(row, calls); };
}
