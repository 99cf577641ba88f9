#include "utility/CUnixServ.h"

#include "base/callback.h"
#include "base/dir_walk.h"
#include "base/io.h"
#include "base/paths.h"
#include "base/text.h"

namespace utility {

using namespace detail;

namespace {

enum Code : int {
  kDone = 0,
  kNotListed = 1,
  kNoName = 2,
  kNotStarted = 3,
  kCommandFailed = 6,
  kStopped = 7,
};

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
constexpr const char* kLeftovers[] = {"~", "bak", "orig", "rpmnew", "rpmorig", "rpmsave"};
constexpr const char* kHelpers[] = {"functions", "halt", "killall", "single", "linuxconf", "kudzu"};

std::string script_path(const std::string& name) { return std::string(kScripts) + "/" + name; }

bool is_service(const std::string& name) {
  return !is_one_of(kHelpers, name) && !contains(name, "boot") &&
         !CUnixServ::is_ignored_file(name) && ::access(script_path(name).c_str(), X_OK) == 0;
}

int change_service(const std::string& name, const char* verb) {
  if (name.empty()) return kNoName;
  return succeeds("service " + name + " " + verb) ? kDone : kCommandFailed;
}

}  // namespace

int CUnixServ::getstatus(const std::string& text, std::string& status) {
  const auto is_in = [&](const StatusPhrase& entry) { return contains(text, entry.phrase); };
  const auto* const found = std::find_if(std::begin(kPhrases), std::end(kPhrases), is_in);
  status = found == std::end(kPhrases) ? "-" : found->status;
  return kDone;
}

int CUnixServ::get_serv_data(const std::string& name, UnixServData& data) {
  if (name.empty()) return kNoName;
  const std::string command = "service " + name + " status 2>/dev/null";
  std::string output;
  if (!read_command(command.c_str(), output)) return kNotStarted;
  data.status_text = std::move(output);
  getstatus(data.status_text, data.status);
  data.name = name;
  return kDone;
}

bool CUnixServ::is_ignored_file(const std::string& name) {
  if (FileStatus(script_path(name).c_str()).is(S_IFDIR)) return true;
  const std::size_t dot = name.rfind('.');
  return dot != std::string::npos && is_one_of(kLeftovers, std::string_view(name).substr(dot + 1));
}

int CUnixServ::get_all_serv_data(int (*callback)(const UnixServData& data, void* context),
                                 void* context) {
  DirWalk scripts(kScripts);
  if (!scripts) return kNotListed;
  while (const char* name = scripts.next()) {
    UnixServData data;
    if (!is_service(name) || get_serv_data(name, data) != kDone) continue;
    if (stops(callback, data, context)) return kStopped;
  }
  return kDone;
}

int CUnixServ::start_serv(const std::string& name) { return change_service(name, "start"); }

int CUnixServ::stop_serv(const std::string& name) { return change_service(name, "stop"); }

}  // namespace utility
