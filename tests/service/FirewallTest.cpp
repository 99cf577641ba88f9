#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>

#include "support/sandbox.h"
#include "support/temp_dir.h"
#include "utility/CUnixTools.h"

namespace fs = std::filesystem;
using utility::CUnixTools;
using Lines = std::vector<std::string>;

namespace {

const std::string kRule = "-A INPUT -p tcp -m tcp --dport 8080 -j ACCEPT\n";
const std::string kRules = "*filter\n:INPUT ACCEPT [0:0]\n:FORWARD ACCEPT [0:0]\nCOMMIT\n";
const std::string kRulesOpen =
    "*filter\n:INPUT ACCEPT [0:0]\n" + kRule + ":FORWARD ACCEPT [0:0]\nCOMMIT\n";

int run(const std::string& command) {
  return std::system(command.c_str());
}

}  // namespace

TEST(Firewall, EachDistributionRunsItsOwnCommands) {
  const std::string panel = "/etc/init.d/amh-start restart 2&> /dev/null";
  const std::string system = "/etc/init.d/iptables restart 2&> /dev/null";
  const std::string reload = "firewall-cmd --reload >/dev/null";
  const struct {
    const char* sentence;
    const char* distribution;
    Lines present;  // files that exist
    std::string edited;
    Lines commands;  // of opening and closing the port
  } rows[] = {
      {"firewalld goes before rule files",
       "centos",
       {"/bin/firewall-cmd", "/etc/sysconfig/iptables", "/etc/amh-iptables"},
       "",
       {"firewall-cmd --add-port=8080/tcp --permanent >/dev/null", reload,
        "firewall-cmd --remove-port=8080/tcp --permanent >/dev/null", reload}},
      {"the panel's file goes before the system's",
       "centos",
       {"/etc/sysconfig/iptables", "/etc/amh-iptables"},
       "/etc/amh-iptables",
       {panel, panel}},
      {"the system's file",
       "centos",
       {"/etc/sysconfig/iptables"},
       "/etc/sysconfig/iptables",
       {system, system}},
      {"no file: the service is restarted all the same", "centos", {}, "", {system, system}},
      {"ufw",
       "ubuntu",
       {},
       "",
       {"sudo ufw allow 8080 > /dev/null", "sudo ufw delete allow 8080 > /dev/null"}},
      {"nothing for other names", "debian", {"/etc/sysconfig/iptables"}, "", {}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.sentence);
    sandbox::run([&row] {
      sandbox::make_private("/usr/bin");
      for (const std::string& path : row.present) sandbox::write_file(path, kRules);
      sandbox::record_shell(false);
      EXPECT_EQ(CUnixTools::iptables_allow_port(row.distribution, 8080), 0);
      for (const std::string& path : row.present) {
        EXPECT_EQ(sandbox::read_file(path), path == row.edited ? kRulesOpen : kRules);
      }
      EXPECT_EQ(CUnixTools::iptables_banned_port(row.distribution, 8080), 0);
      EXPECT_EQ(sandbox::shell_commands(), row.commands);
      for (const std::string& path : row.present) EXPECT_EQ(sandbox::read_file(path), kRules);
    });
  }
}

TEST(Firewall, InsertingARule) {
  const std::string long_line = ":INPUT" + std::string(1100, 'x') + "\n";
  const struct {
    const char* sentence;
    std::string before, stale, after;
  } rows[] = {
      {"behind the first chain line only", ":INPUT a\n:INPUT b\n", "",
       ":INPUT a\n" + kRule + ":INPUT b\n"},
      {"added again when present", kRulesOpen, "",
       "*filter\n:INPUT ACCEPT [0:0]\n" + kRule + kRule + ":FORWARD ACCEPT [0:0]\nCOMMIT\n"},
      {"no chain line: unchanged", " :INPUT\nx", "", " :INPUT\nx"},
      {"a stale work file stays in front", ":INPUT\n", "stale\n", "stale\n:INPUT\n" + kRule},
      {"a long line counts by its first 1023 bytes", long_line, "",
       long_line.substr(0, 1023) + kRule + long_line.substr(1023)},
  };
  const TempDir dir;
  for (const auto& row : rows) {
    const std::string path = dir.write("rules", row.before);
    ::chmod(path.c_str(), 0600);
    if (!row.stale.empty()) dir.write("rules.tvbak", row.stale);
    CUnixTools::appand_rule(path, kRule);
    EXPECT_EQ(dir.read("rules"), row.after) << row.sentence;
    EXPECT_FALSE(fs::exists(path + ".tvbak")) << row.sentence;
    EXPECT_EQ(CUnixTools::read_file_permission(path.c_str()), 0100600U) << row.sentence;
  }
  CUnixTools::appand_rule(dir / "missing", kRule);
  EXPECT_FALSE(fs::exists(dir / "missing.tvbak"));
}

TEST(Firewall, ACopyThatCannotBeWrittenLeavesTheRules) {
  sandbox::run([] {
    const std::string small = sandbox::scratch() + "/small";
    fs::create_directory(small);
    ASSERT_EQ(::mount("tmpfs", small.c_str(), "tmpfs", 0, "size=64k"), 0);
    std::string rules = ":INPUT\n";
    while (rules.size() < 40000) rules += "# padding\n";
    sandbox::write_file(small + "/rules", rules);
    CUnixTools::appand_rule(small + "/rules", kRule);
    EXPECT_EQ(sandbox::read_file(small + "/rules"), rules);
    EXPECT_FALSE(fs::exists(small + "/rules.tvbak"));
  });
}

TEST(Firewall, RemovingARule) {
  const struct {
    const char* sentence;
    std::string before, rule, after;
  } rows[] = {
      {"the first of two", "a\n" + kRule + "b\n" + kRule, kRule, "a\nb\n" + kRule},
      {"absent", kRules, kRule, kRules},
      {"bytes of any value stay", std::string("\0\xFF", 2) + kRule, kRule,
       std::string("\0\xFF", 2)},
      {"an empty rule", kRules, "", kRules},
  };
  const TempDir dir;
  for (const auto& row : rows) {
    CUnixTools::delete_rule(dir.write("rules", row.before), row.rule);
    EXPECT_EQ(dir.read("rules"), row.after) << row.sentence;
  }
  CUnixTools::delete_rule(dir / "missing", kRule);
  EXPECT_FALSE(fs::exists(dir / "missing"));
}

TEST(Firewall, TheRealToolsAcceptWhatIsWritten) {
  sandbox::run([] {
    const std::string file = "/etc/sysconfig/iptables";
    fs::create_directory("/etc/sysconfig");
    ASSERT_EQ(run("iptables -A INPUT -i lo -j ACCEPT && iptables-save > " + file), 0);
    const std::string saved = sandbox::read_file(file);
    CUnixTools::iptables_allow_port("centos", 8080);
    EXPECT_NE(sandbox::read_file(file).find(kRule), std::string::npos);
    ASSERT_EQ(run("iptables-restore --test < " + file), 0);
    ASSERT_EQ(run("iptables-restore < " + file), 0);
    EXPECT_EQ(run("iptables -C INPUT -p tcp -m tcp --dport 8080 -j ACCEPT"), 0);
    CUnixTools::iptables_banned_port("centos", 8080);
    EXPECT_EQ(sandbox::read_file(file), saved);

    sandbox::make_private("/usr/bin");
    sandbox::write_file("/usr/bin/sudo", "#!/bin/sh\nexec \"$@\"\n", 0755);
    const auto open_in_ufw = [] {
      return sandbox::read_file("/etc/ufw/user.rules").find("--dport 8080 -j ACCEPT") !=
             std::string::npos;
    };
    CUnixTools::iptables_allow_port("ubuntu", 8080);
    EXPECT_TRUE(open_in_ufw());
    CUnixTools::iptables_banned_port("ubuntu", 8080);
    EXPECT_FALSE(open_in_ufw());
  });
}
