#include "support/cases.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "support/sandbox.h"

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

// One line of a case.
struct Step {
  std::string name, text, result;
  bool has_result = false;
  Words words;  // of a call

  explicit Step(const std::string& line) {
    const std::size_t colon = line.find(": "), arrow = line.find(" =>", colon);
    name = line.substr(0, colon);
    text = line.substr(colon + 2, arrow - colon - 2);
    has_result = name != "case" && arrow < line.size();
    if (has_result) result = line.substr(std::min(arrow + 4, line.size()));
    if (name == "call") words = words_of(text);
    if (name != "call" && name != "shell") words = {name, unescaped(text)};
  }

  void take(const Calls& calls) const {
    SCOPED_TRACE(name + ": " + text);
    if (name == "shell") {
      int status = 0;
      std::string printed = sandbox::output_of(text, &status);
      printed.erase(printed.find_last_not_of('\n') + 1);
      EXPECT_EQ(printed, unescaped(result));
      EXPECT_TRUE(status == 0 || has_result);
    } else if (const auto call = calls.find(words.at(0)); call != calls.end()) {
      EXPECT_EQ(call->second({words.begin() + 1, words.end()}), words_of(result));
    } else {
      ADD_FAILURE() << "no such operation";
    }
  }
};

}  // namespace

void run_cases(const std::string& path, const std::function<Calls()>& make_calls, bool apart) {
  std::ifstream file(path);
  ASSERT_TRUE(file.is_open()) << path;
  ::setenv("FIXTURES", path.substr(0, path.rfind('/')).c_str(), 1);
  while (file) {
    std::vector<Step> steps;
    for (std::string line; std::getline(file, line) && !line.empty();) {
      if (line[0] != '#') steps.emplace_back(line);
    }
    if (steps.empty()) continue;
    SCOPED_TRACE(path + ": " + steps[0].text);
    if (const pid_t child = apart ? ::fork() : 0; child != 0) {
      int status = -1;
      ::waitpid(child, &status, 0);
      EXPECT_EQ(status, 0);
      continue;
    }
    const int descriptors = sandbox::open_descriptors();
    Calls calls = make_calls();
    calls["case"] = [](const Words&) { return Words(); };
    calls["read"] = call(sandbox::read_file);
    calls["record_shell"] = call(sandbox::record_shell);
    calls["commands"] = call(sandbox::shell_commands);
    calls["write"] = [](const Words& words) {
      sandbox::write_file(words.at(0), words.at(1));
      return Words();
    };
    for (const Step& step : steps) step.take(calls);
    calls.clear();
    EXPECT_EQ(sandbox::open_descriptors(), descriptors);
    if (apart) ::_exit(::testing::Test::HasFailure() ? 1 : 0);
  }
}
