// The firewall part of CUnixTools.

#include "base/edited_copy.h"
#include "base/paths.h"
#include "base/text.h"
#include "utility/CUnixTools.h"

namespace utility {

using namespace detail;

namespace {

// What opening and closing a port do differently.
struct PortChange {
  const char* firewalld_option;
  const char* ufw_command;
  void (*edit)(const std::string& file, const std::string& rule);
};
constexpr PortChange kAllow{"--add-port=", "allow ", CUnixTools::appand_rule};
constexpr PortChange kBan{"--remove-port=", "delete allow ", CUnixTools::delete_rule};

void run(const std::string& command) { CUnixTools::exec_cmd(command.c_str()); }

void change_centos(const std::string& port, const PortChange& change) {
  if (exists("/bin/firewall-cmd")) {
    run("firewall-cmd " + std::string(change.firewalld_option) + port +
        "/tcp --permanent >/dev/null");
    run("firewall-cmd --reload >/dev/null");
    return;
  }
  const bool has_panel = exists("/etc/amh-iptables");
  const char* rules = has_panel ? "/etc/amh-iptables" : "/etc/sysconfig/iptables";
  if (exists(rules)) change.edit(rules, "-A INPUT -p tcp -m tcp --dport " + port + " -j ACCEPT\n");
  run(std::string("/etc/init.d/") + (has_panel ? "amh-start" : "iptables") +
      " restart 2&> /dev/null");
}

int change_port(const std::string& distribution, int port, const PortChange& change) {
  const std::string number = std::to_string(port);
  if (distribution == "centos") change_centos(number, change);
  if (distribution == "ubuntu") run("sudo ufw " + (change.ufw_command + number) + " > /dev/null");
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
    if (inserted || !begins_with(line, ":INPUT")) return;
    text.append(rule);
    inserted = true;
  };
  const Copied copied = append_edited_copy(file.c_str(), work_file.c_str(), insert);
  if (copied == Copied::kNotOpened) return;
  if (copied != Copied::kWhole) {
    // Half a copy must neither replace the rules nor precede the next one.
    rm_file(work_file.c_str());
  } else if (std::rename(work_file.c_str(), file.c_str()) != 0) {
    // Not at first: where it fails half way, both files are gone.
    move_file(work_file.c_str(), file.c_str(), true);
  }
}

void CUnixTools::delete_rule(const std::string& file, const std::string& rule) {
  std::string text;
  if (!read_all(open_to_read(file.c_str()).get(), text)) return;
  const std::size_t at = text.find(rule);
  if (at == std::string::npos || rule.empty()) return;
  text.erase(at, rule.size());
  const Fd out(::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (out) write_all(out.get(), text);
}

}  // namespace utility
