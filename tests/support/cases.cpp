#include "support/cases.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

namespace {

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

}  // namespace

std::vector<std::string> Case::all(const std::string& name) const {
  unread_.erase(name);
  const auto field = fields_.find(name);
  return field != fields_.end() ? field->second : std::vector<std::string>();
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
  std::set<std::string> idle;
  for (const auto& [name, check] : checks) idle.insert(name);
  for (std::string line, title; file;) {
    Case one;
    while (std::getline(file, line) && !line.empty()) {
      if (line[0] == '#') continue;
      const std::size_t colon = line.find(':');
      const std::string name = line.substr(0, colon);
      if (one.fields_.empty()) title = name;
      one.fields_[name].push_back(line.size() > colon + 2 ? unescaped(line.substr(colon + 2)) : "");
      one.unread_.insert(name);
    }
    if (one.fields_.empty()) continue;
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
