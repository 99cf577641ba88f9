// Makes a directory with a file in it, copies both, and lets a command count the lines.

#include <utility/CUnixTools.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

int main() {
  using utility::CUnixTools;
  if (CUnixTools::mkdir_parents("rules/daily", 0755) != 0) return 1;
  std::ofstream("rules/daily/list") << "first\nsecond\n";

  const bool overwrite = false;
  if (CUnixTools::copy_file("rules", "backup", overwrite) != 0) return 1;
  std::printf("type %d, copied again: code %d\n", CUnixTools::file_type("backup"),
              CUnixTools::copy_file("rules", "backup", overwrite));

  // The text goes to a shell: no part of it may come from somebody less trusted.
  std::vector<std::string> lines;
  if (CUnixTools::exec_cmd_results("wc -l < backup/daily/list", lines, 256) != 0) return 1;
  std::printf("%s lines\n", lines.at(0).c_str());

  return CUnixTools::rm_file("rules") + CUnixTools::rm_file("backup");
}
