// The part of CUnixTools that knows the agent's own installation.

#include <mutex>

#include "base/io.h"
#include "base/paths.h"
#include "base/text.h"
#include "utility/CUnixTools.h"

namespace utility {

using namespace detail;

namespace {

std::string read_installation_directory() {
  Lines<1024> lines(open_to_read("/var/log/version_control"));
  if (!lines) return "/usr/local/tarvel_agent";
  const std::string_view line = lines.next() ? lines.line() : std::string_view();
  return std::string(line.substr(0, line.find('\n')));
}

}  // namespace

bool CUnixTools::program_is_tarvel() { return exists("/etc/init.d/tarvel"); }

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
  edition = contains(directory, "pxqnt") ? 2 : contains(directory, "vek") ? 1 : 0;
  const auto* const found =
      std::find_if(std::begin(kFamilies), std::end(kFamilies),
                   [&](const char* family) { return exists((directory + family).c_str()); });
  if (found != std::end(kFamilies)) distribution = static_cast<int>(found - kFamilies);
}

std::string CUnixTools::get_agent_names(const char* name) {
  const std::string_view key = or_empty(name);
  Lines<128> lines(open_to_read((get_tarvel_path() + "/command_control").c_str()));
  while (lines.next()) {
    if (!begins_with(lines.line(), key)) continue;
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
