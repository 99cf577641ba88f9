#include "utility/CUnixServ.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "base/callback.h"
#include "base/dir_walk.h"
#include "base/handles.h"
#include "base/read_all.h"
#include "service/service_command.h"

namespace utility {
namespace {

constexpr char kScripts[] = "/etc/init.d";

struct StatusPhrase {
  const char* phrase;
  const char* status;
};
// In order of precedence.
constexpr StatusPhrase kPhrases[] = {
    {"is running", "running"},
    {"(pid ", "running"},
    {"is stopped", "stopped"},
    {"\xE5\xB7\xB2\xE5\x81\x9C", "stopped"},  // "stopped" of the Chinese scripts, UTF-8
    {"not running", "stopped"},
};

// What editors and package managers leave beside a script.
constexpr std::array<std::string_view, 6> kLeftovers = {"~",      "bak",     "orig",
                                                        "rpmnew", "rpmorig", "rpmsave"};
constexpr std::array<std::string_view, 6> kHelperScripts = {"functions", "halt",      "killall",
                                                            "single",    "linuxconf", "kudzu"};

template <std::size_t N>
bool contains(const std::array<std::string_view, N>& list, std::string_view name) {
  return std::find(list.begin(), list.end(), name) != list.end();
}

std::string script_path(const std::string& name) {
  return std::string(kScripts) + "/" + name;
}

bool is_service(const std::string& name) {
  return !contains(kHelperScripts, name) && name.find("boot") == std::string::npos &&
         !CUnixServ::is_ignored_file(name) && ::access(script_path(name).c_str(), X_OK) == 0;
}

int change_service(const std::string& name, const char* verb) {
  if (name.empty()) return 2;
  return detail::run_service(name, verb) ? 0 : 6;
}

}  // namespace

int CUnixServ::getstatus(const std::string& text, std::string& status) {
  const auto* const found = std::find_if(
      std::begin(kPhrases), std::end(kPhrases),
      [&](const StatusPhrase& entry) { return text.find(entry.phrase) != std::string::npos; });
  status = found == std::end(kPhrases) ? "-" : found->status;
  return 0;
}

int CUnixServ::get_serv_data(const std::string& name, UnixServData& data) {
  if (name.empty()) return 2;
  const detail::Pipe pipe(("service " + name + " status 2>/dev/null").c_str());
  if (!pipe) return 3;
  data.status_text = detail::read_all(pipe.output());
  getstatus(data.status_text, data.status);
  data.name = name;
  return 0;
}

bool CUnixServ::is_ignored_file(const std::string& name) {
  struct stat status {};
  if (::stat(script_path(name).c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return true;
  const std::size_t dot = name.rfind('.');
  return dot != std::string::npos && contains(kLeftovers, std::string_view(name).substr(dot + 1));
}

int CUnixServ::get_all_serv_data(int (*callback)(const UnixServData& data, void* context),
                                 void* context) {
  detail::DirWalk scripts(kScripts);
  if (!scripts) return 1;
  while (const char* name = scripts.next()) {
    UnixServData data;
    if (!is_service(name) || get_serv_data(name, data) != 0) continue;
    if (detail::stops(callback, data, context)) return 7;
  }
  return 0;
}

int CUnixServ::start_serv(const std::string& name) {
  return change_service(name, "start");
}

int CUnixServ::stop_serv(const std::string& name) {
  return change_service(name, "stop");
}

}  // namespace utility
