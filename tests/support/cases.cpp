#include "support/cases.h"

#include <gtest/gtest.h>

#include <fstream>

namespace {

std::string unescaped(const std::string& text) {
  static const std::map<char, char> kBytes = {
      {'n', '\n'}, {'r', '\r'}, {'t', '\t'}, {'\\', '\\'}, {'0', '\0'}};
  std::string bytes;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '\\') {
      bytes += text[at];
    } else if (text.at(++at) == 'x') {
      bytes += static_cast<char>(std::stoi(text.substr(at + 1, 2), nullptr, 16));
      at += 2;
    } else {
      bytes += kBytes.at(text[at]);
    }
  }
  return bytes;
}

}  // namespace

const std::string& Case::operator[](const std::string& name) const {
  static const std::string kNothing;
  unread_.erase(name);
  const auto field = fields_.find(name);
  if (field != fields_.end()) return field->second;
  ADD_FAILURE() << "the case has no field \"" << name << "\"";
  return kNothing;
}

long long Case::number(const std::string& name) const {
  return std::stoll((*this)[name], nullptr, 0);
}

std::string Case::get(const std::string& name, const std::string& other) const {
  return has(name) ? (*this)[name] : other;
}

void for_each_case(const std::string& path, const std::function<void(const Case&)>& body) {
  std::ifstream file(path);
  EXPECT_TRUE(file.is_open()) << path;
  int count = 0;
  for (std::string line, first; file;) {
    Case one;
    while (std::getline(file, line) && !line.empty()) {
      if (line[0] == '#') continue;
      if (one.fields_.empty()) first = line;
      const std::size_t colon = line.find(':');
      const std::string name = line.substr(0, colon);
      const std::string value = line.size() > colon + 2 ? unescaped(line.substr(colon + 2)) : "";
      const auto [field, is_new] = one.fields_.emplace(name, value);
      if (!is_new) field->second += "\n" + value;
      one.unread_.insert(name);
    }
    if (one.fields_.empty()) continue;
    SCOPED_TRACE(path + ": " + first);
    one.unread_.erase(first.substr(0, first.find(':')));
    body(one);
    for (const std::string& name : one.unread_) ADD_FAILURE() << "nobody reads \"" << name << "\"";
    ++count;
  }
  EXPECT_GT(count, 0) << path;
}
