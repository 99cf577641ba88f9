// The part of CUnixTools that knows the agent's own installation.

#include <mutex>
#include <string_view>

#include "base/io.h"
#include "base/paths.h"
#include "base/text.h"
#include "utility/CStr.h"
#include "utility/CUnixTools.h"

namespace utility {
namespace {

std::string read_installation_directory() {
  const detail::Fd file = detail::open_to_read("/var/log/version_control");
  if (!file) return "/usr/local/tarvel_agent";
  detail::Lines<1024> lines(file.get());
  if (!lines.next()) return {};
  std::string directory(lines.line());
  if (!directory.empty() && directory.back() == '\n') directory.pop_back();
  return directory;
}

}  // namespace

bool CUnixTools::program_is_tarvel() { return detail::exists("/etc/init.d/tarvel"); }

std::string CUnixTools::get_tarvel_path() {
  static std::mutex s_lock;
  static std::string s_directory;
  const std::lock_guard<std::mutex> hold(s_lock);
  if (s_directory.empty()) s_directory = read_installation_directory();
  return s_directory;
}

void CUnixTools::get_oem_and_issue(int& edition, int& distribution) {
  constexpr const char* kFamilies[] = {"/centos", "/ubuntu", "/suse", "/debian"};
  const std::string directory = get_tarvel_path();
  edition = detail::contains(directory, "pxqnt") ? 2 : detail::contains(directory, "vek") ? 1 : 0;

  int code = 0;
  for (const char* family : kFamilies) {
    if (detail::exists((directory + family).c_str())) {
      distribution = code;
      return;
    }
    ++code;
  }
}

std::string CUnixTools::get_agent_names(const char* name) {
  const std::string_view key = detail::or_empty(name);
  const detail::Fd file = detail::open_to_read((get_tarvel_path() + "/command_control").c_str());
  if (!file) return {};
  detail::Lines<128> lines(file.get());
  while (lines.next()) {
    if (!detail::begins_with(lines.line(), key)) continue;
    std::string value = std::string(lines.line()).substr(key.size() + 1);
    CStr::trim(value);
    return value;
  }
  return {};
}

void CUnixTools::operate_agent_service(const int& operation) {
  constexpr const char* kVerbs[] = {" start", " stop"};
  if (operation != 0 && operation != 1) return;
  exec_cmd(("/etc/init.d/" + get_agent_names("script_server") + kVerbs[operation]).c_str());
}

}  // namespace utility
