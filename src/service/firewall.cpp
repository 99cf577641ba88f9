// The firewall part of CUnixTools.

#include <fcntl.h>

#include <cstdio>
#include <string_view>

#include "base/handles.h"
#include "base/line_reader.h"
#include "base/paths.h"
#include "base/read_all.h"
#include "base/rights.h"
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

void run(const std::string& command) {
  CUnixTools::exec_cmd(command.c_str());
}

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

// Opens the copy for appending with the owner and mode of the original, which may be private.
detail::File open_copy(const std::string& path, FILE* original) {
  detail::Fd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  if (!fd) return nullptr;
  detail::take_over_rights(::fileno(original), fd.get());
  detail::File copy(::fdopen(fd.get(), "a"));
  if (copy) fd.release();
  return copy;
}

// Copies line by line with `rule` behind the first ":INPUT" line; false when the copy is not
// complete.
bool copy_with_rule(detail::LineReader& lines, detail::File copy, const std::string& rule) {
  constexpr std::string_view kChain = ":INPUT";
  bool inserted = false;
  while (lines.next()) {
    std::fputs(lines.text(), copy.get());
    if (inserted || lines.line().substr(0, kChain.size()) != kChain) continue;
    std::fputs(rule.c_str(), copy.get());
    inserted = true;
  }
  const bool written = std::ferror(copy.get()) == 0;
  return std::fclose(copy.release()) == 0 && written && !lines.failed();
}

}  // namespace

int CUnixTools::iptables_allow_port(const std::string& distribution, const int& port) {
  return change_port(distribution, port, kAllow);
}

int CUnixTools::iptables_banned_port(const std::string& distribution, const int& port) {
  return change_port(distribution, port, kBan);
}

void CUnixTools::appand_rule(const std::string& file, const std::string& rule) {
  const detail::File original = detail::open_file(file.c_str(), "re");
  if (!original) return;
  detail::LineReader lines(original.get(), 1024);
  if (!lines.ready()) return;
  const std::string work_file = file + ".tvbak";
  detail::File copy = open_copy(work_file, original.get());
  if (!copy) return;

  if (!copy_with_rule(lines, std::move(copy), rule)) {
    // Half a copy must neither replace the rules nor precede the next one.
    rm_file(work_file.c_str());
  } else if (std::rename(work_file.c_str(), file.c_str()) != 0) {
    // Not at first: where it fails half way, both files are gone.
    move_file(work_file.c_str(), file.c_str(), true);
  }
}

void CUnixTools::delete_rule(const std::string& file, const std::string& rule) {
  detail::File stream = detail::open_file(file.c_str(), "re");
  if (!stream) return;
  std::string text = detail::read_all(stream.get());
  if (std::ferror(stream.get()) != 0) return;
  const std::size_t at = text.find(rule);
  if (at == std::string::npos || rule.empty()) return;
  text.erase(at, rule.size());
  stream = detail::open_file(file.c_str(), "we");
  if (stream) std::fwrite(text.data(), 1, text.size(), stream.get());
}

}  // namespace utility
