// Takes a line of a settings file apart.

#include <utility/CStr.h>

#include <cstdio>
#include <string>
#include <vector>

int main() {
  using utility::CStr;
  std::string line = "  allow = 10.0.0.1, 10.0.0.2  # the office ";
  CStr::trim_remark("#", line);
  CStr::trim(line);
  std::printf("\"%s\"\n", line.c_str());

  std::vector<std::string> fields;
  CStr::ext_line_strtok("=, ", fields, line);
  for (const std::string& field : fields) std::puts(field.c_str());

  std::printf("%lld\n", CStr::atoll(" 42 lines") + 1);
  return 0;
}
