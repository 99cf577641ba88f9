// The firewall part of CUnixTools.

#include <fcntl.h>

#include <cstdio>
#include <string_view>

#include "base/edited_copy.h"
#include "base/io.h"
#include "base/paths.h"
#include "base/text.h"
#include "utility/CUnixTools.h"

namespace utility {
namespace {

// What opening and closing a port do differently.
struct PortChange {
  const char* firewalld_option;
  const char* ufw_command;
  void (*edit)(const std::string& file, const std::string& rule);
};
constexpr PortChange kAllow{"--add-port=", "allow ", CUnixTools::appand_rule};
constexpr PortChange kBan{"--remove-port=", "delete allow ", CUnixTools::delete_rule};

struct RuleFile {
  const char* path;
  const char* service;
};
constexpr RuleFile kPanelRules{"/etc/amh-iptables", "amh-start"};
constexpr RuleFile kSystemRules{"/etc/sysconfig/iptables", "iptables"};

void run(const std::string& command) { CUnixTools::exec_cmd(command.c_str()); }

void change_centos(const std::string& port, const PortChange& change) {
  if (detail::exists("/bin/firewall-cmd")) {
    run("firewall-cmd " + std::string(change.firewalld_option) + port +
        "/tcp --permanent >/dev/null");
    run("firewall-cmd --reload >/dev/null");
    return;
  }
  const RuleFile& rules = detail::exists(kPanelRules.path) ? kPanelRules : kSystemRules;
  if (detail::exists(rules.path)) {
    change.edit(rules.path, "-A INPUT -p tcp -m tcp --dport " + port + " -j ACCEPT\n");
  }
  run("/etc/init.d/" + std::string(rules.service) + " restart 2&> /dev/null");
}

void change_ubuntu(const std::string& port, const PortChange& change) {
  run("sudo ufw " + std::string(change.ufw_command) + port + " > /dev/null");
}

int change_port(const std::string& distribution, int port, const PortChange& change) {
  if (distribution == "centos") change_centos(std::to_string(port), change);
  if (distribution == "ubuntu") change_ubuntu(std::to_string(port), change);
  return 0;
}

}  // namespace

int CUnixTools::iptables_allow_port(const std::string& distribution, const int& port) {
  return change_port(distribution, port, kAllow);
}

int CUnixTools::iptables_banned_port(const std::string& distribution, const int& port) {
  return change_port(distribution, port, kBan);
}

void CUnixTools::appand_rule(const std::string& file, const std::string& rule) {
  const std::string work_file = file + ".tvbak";
  bool inserted = false;
  const auto insert = [&](std::string_view line, std::string& text) {
    text.append(line);
    if (inserted || !detail::begins_with(line, ":INPUT")) return;
    text.append(rule);
    inserted = true;
  };
  const detail::Copied copied = detail::append_edited_copy(file.c_str(), work_file.c_str(), insert);
  if (copied == detail::Copied::kNotOpened) return;
  if (copied != detail::Copied::kWhole) {
    // Half a copy must neither replace the rules nor precede the next one.
    rm_file(work_file.c_str());
  } else if (std::rename(work_file.c_str(), file.c_str()) != 0) {
    // Not at first: where it fails half way, both files are gone.
    move_file(work_file.c_str(), file.c_str(), true);
  }
}

void CUnixTools::delete_rule(const std::string& file, const std::string& rule) {
  std::string text;
  if (!detail::read_all(detail::open_to_read(file.c_str()).get(), text)) return;
  const std::size_t at = text.find(rule);
  if (at == std::string::npos || rule.empty()) return;
  text.erase(at, rule.size());
  const detail::Fd out(::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (out) detail::write_all(out.get(), text);
}

}  // namespace utility
