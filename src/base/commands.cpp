// The command, clock and identity half of CUnixTools.

#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "base/handles.h"
#include "base/line_reader.h"
#include "base/local_time.h"
#include "base/paths.h"
#include "utility/CStr.h"
#include "utility/CUnixTools.h"

namespace utility {
namespace {

// An entry of the password database beyond this is taken for damage.
constexpr std::size_t kLargestEntry = 1U << 20;

}  // namespace

int CUnixTools::exec_cmd(const char* command) {
  if (command == nullptr) return 9;
  // Bits 8 to 15 only: a command that a signal ended counts as done here, and a call that failed
  // (-1) reads as 255.
  return (std::system(command) >> 8) & 0xFF;
}

int CUnixTools::exec_cmd_results(const char* command, std::vector<std::string>& lines,
                                 const int& line_length) {
  if (command == nullptr) return 9;
  const detail::Pipe output = detail::open_pipe(command);
  if (!output) return 2;
  if (line_length < 2) return 0;
  detail::LineReader reader(output.get(), static_cast<std::size_t>(line_length));
  if (!reader.ready()) return 2;
  while (reader.next()) {
    std::string line(reader.line());
    CStr::trim(line);
    lines.push_back(std::move(line));
  }
  return 0;
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
  passwd entry{};
  passwd* found = nullptr;
  for (std::size_t size = 1024; size <= kLargestEntry; size *= 4) {
    const detail::Buffer buffer = detail::make_buffer(size);
    if (!buffer) return {};
    const int error = ::getpwuid_r(::getuid(), &entry, buffer.get(), size, &found);
    if (error == 0 && found != nullptr) return entry.pw_name;
    if (error != ERANGE) return {};
  }
  return {};
}

std::string CUnixTools::get_process_path(const int& pid) {
  char link[32];
  std::snprintf(link, sizeof link, "/proc/%u/exe", static_cast<unsigned>(pid));
  std::string path;
  detail::read_link_at(AT_FDCWD, link, 1024, path);
  return path;
}

}  // namespace utility
