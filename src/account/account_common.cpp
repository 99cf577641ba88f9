#include "account/account_common.h"

#include <sys/types.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "base/handles.h"
#include "utility/CUnixTools.h"

namespace utility::detail {
namespace {

// A line of any length, as getline(3) grows it.
struct Line {
  Line() = default;
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;
  ~Line() { std::free(text); }

  char* text = nullptr;
  std::size_t capacity = 0;
};

}  // namespace

int find_account_line(const char* path, const std::string& name, int& found) {
  const File file = open_file(path, "re");
  if (!file) return 22;
  Line line;
  ssize_t length = 0;
  while ((length = ::getline(&line.text, &line.capacity, file.get())) >= 0) {
    const std::string_view text(line.text, static_cast<std::size_t>(length));
    if (text.size() > name.size() && text[name.size()] == ':' &&
        text.substr(0, name.size()) == name) {
      found = 1;
      return 0;
    }
  }
  // What was not read to its end may hold the name all the same.
  if (std::feof(file.get()) == 0) return 22;
  found = 0;
  return 0;
}

int run_tool(const std::string& command) {
  return CUnixTools::exec_cmd(command.c_str()) == 0 ? 0 : 7;
}

int run_removal(const char* tool, const std::string& name) {
  return run_tool(std::string(tool) + " " + (name == "*" ? "\\*" : name));
}

}  // namespace utility::detail
