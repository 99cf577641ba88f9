// The command, clock and identity half of CUnixTools.

#include <cstdlib>
#include <ctime>

#include "base/CUnixTools_code.h"
#include "base/database_entry.h"
#include "base/io.h"
#include "base/local_time.h"
#include "base/paths.h"
#include "utility/CStr.h"
#include "utility/CUnixTools.h"

namespace utility {

using namespace detail;

int CUnixTools::exec_cmd(const char* command) {
  if (command == nullptr) return kNoCommand;
  // Bits 8 to 15 only: a command that a signal ended counts as done here, and a call that failed
  // (-1) reads as 255.
  return (std::system(command) >> 8) & 0xFF;
}

int CUnixTools::exec_cmd_results(const char* command, std::vector<std::string>& lines,
                                 const int& line_length) {
  if (command == nullptr) return kNoCommand;
  std::string output;
  if (!read_command(command, output)) return kNoOutput;
  if (line_length < 2) return kDone;
  for (std::string_view rest = output; !rest.empty();) {
    // A NUL byte ends what is seen of a line.
    const auto piece = take_line(rest, static_cast<std::size_t>(line_length) - 1);
    std::string line(piece.substr(0, piece.find('\0')));
    CStr::trim(line);
    lines.push_back(std::move(line));
  }
  return kDone;
}

unsigned long CUnixTools::GetTickCount() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<unsigned long>(now.tv_sec) * 1000 +
         static_cast<unsigned long>(now.tv_nsec) / 1000000;
}

std::string CUnixTools::get_time_now() {
  std::tm now{};
  if (!local_time(std::time(nullptr), now)) return {};
  char text[64];
  return {text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &now)};
}

std::string CUnixTools::get_process_user() {
  const UserEntry user = find_user_by_id(::getuid());
  return user ? user->pw_name : "";
}

std::string CUnixTools::get_process_path(const int& pid) {
  const auto number = std::to_string(static_cast<unsigned>(pid));
  std::string path;
  read_link_at(AT_FDCWD, ("/proc/" + number + "/exe").c_str(), 1024, path);
  return path;
}

}  // namespace utility
