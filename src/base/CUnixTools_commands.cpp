// The command, clock and identity half of CUnixTools.

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string_view>

#include "base/CUnixTools_code.h"
#include "base/account_lookup.h"
#include "base/io.h"
#include "base/local_time.h"
#include "base/paths.h"
#include "utility/CStr.h"
#include "utility/CUnixTools.h"

namespace utility {

int CUnixTools::exec_cmd(const char* command) {
  if (command == nullptr) return detail::kNoCommand;
  // Bits 8 to 15 only: a command that a signal ended counts as done here, and a call that failed
  // (-1) reads as 255.
  return (std::system(command) >> 8) & 0xFF;
}

int CUnixTools::exec_cmd_results(const char* command, std::vector<std::string>& lines,
                                 const int& line_length) {
  if (command == nullptr) return detail::kNoCommand;
  std::string output;
  if (!detail::read_command(command, output)) return detail::kNoOutput;
  if (line_length < 2) return detail::kDone;
  for (std::string_view rest = output; !rest.empty();) {
    // A NUL byte ends what is seen of a line.
    const std::string_view piece =
        detail::take_line(rest, static_cast<std::size_t>(line_length) - 1);
    std::string line(piece.substr(0, piece.find('\0')));
    CStr::trim(line);
    lines.push_back(std::move(line));
  }
  return detail::kDone;
}

unsigned long CUnixTools::GetTickCount() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<unsigned long>(now.tv_sec) * 1000 +
         static_cast<unsigned long>(now.tv_nsec) / 1000000;
}

std::string CUnixTools::get_time_now() {
  std::tm now{};
  if (!detail::local_time(std::time(nullptr), now)) return {};
  char text[64];
  std::snprintf(text, sizeof text, "%d-%02d-%02d %02d:%02d:%02d", now.tm_year + 1900,
                now.tm_mon + 1, now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec);
  return text;
}

std::string CUnixTools::get_process_user() {
  const detail::UserEntry user = detail::find_user_by_id(::getuid());
  return user ? user->pw_name : "";
}

std::string CUnixTools::get_process_path(const int& pid) {
  char link[32];
  std::snprintf(link, sizeof link, "/proc/%u/exe", static_cast<unsigned>(pid));
  std::string path;
  detail::read_link_at(AT_FDCWD, link, 1024, path);
  return path;
}

}  // namespace utility
