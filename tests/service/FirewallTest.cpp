#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>

#include "support/sandbox.h"
#include "utility/CUnixTools.h"

namespace fs = std::filesystem;
using utility::CUnixTools;
using Lines = std::vector<std::string>;

namespace {

const std::string kRule = "-A INPUT -p tcp -m tcp --dport 8080 -j ACCEPT\n";
const std::string kRules = "*filter\n:INPUT ACCEPT [0:0]\n:FORWARD ACCEPT [0:0]\nCOMMIT\n";
const std::string kPanelRules = "/etc/amh-iptables";
const std::string kSystemRules = "/etc/sysconfig/iptables";
const std::string kFirewalld = "/bin/firewall-cmd";

const std::string kPanel = "/etc/init.d/amh-start restart 2&> /dev/null";
const std::string kSystem = "/etc/init.d/iptables restart 2&> /dev/null";
const std::string kReload = "firewall-cmd --reload >/dev/null";

struct Choice {
  const char *name, *distribution;
  Lines present;       // files that exist
  std::string edited;  // the one among them that is
  Lines commands;      // of opening and closing the port
};
const Choice kChoices[] = {
    {"FirewalldFirst",
     "centos",
     {kFirewalld, kSystemRules, kPanelRules},
     "",
     {"firewall-cmd --add-port=8080/tcp --permanent >/dev/null", kReload,
      "firewall-cmd --remove-port=8080/tcp --permanent >/dev/null", kReload}},
    {"ThenThePanel", "centos", {kSystemRules, kPanelRules}, kPanelRules, {kPanel, kPanel}},
    {"TheSystemsFile", "centos", {kSystemRules}, kSystemRules, {kSystem, kSystem}},
    {"NoFileRestartedAllTheSame", "centos", {}, "", {kSystem, kSystem}},
    {"Ufw",
     "ubuntu",
     {},
     "",
     {"sudo ufw allow 8080 > /dev/null", "sudo ufw delete allow 8080 > /dev/null"}},
    {"NothingForOtherNames", "debian", {kSystemRules}, "", {}},
};

class FirewallOf : public ::testing::TestWithParam<Choice> {};

}  // namespace

TEST_P(FirewallOf, ADistributionRunsItsOwnCommands) {
  const Choice& row = GetParam();
  for (const std::string& path : row.present) sandbox::write_file(path, kRules);
  const auto changed = [&row] {
    std::string paths;
    for (const auto& path : row.present) paths += sandbox::read_file(path) != kRules ? path : "";
    return paths;
  };
  sandbox::record_shell(false);
  EXPECT_EQ(CUnixTools::iptables_allow_port(row.distribution, 8080), 0);
  EXPECT_EQ(changed(), row.edited);
  EXPECT_EQ(CUnixTools::iptables_banned_port(row.distribution, 8080), 0);
  EXPECT_EQ(changed(), "");
  EXPECT_EQ(sandbox::shell_commands(), row.commands);
}

INSTANTIATE_TEST_SUITE_P(, FirewallOf, ::testing::ValuesIn(kChoices),
                         [](const auto& row) { return row.param.name; });

TEST(Firewall, RulesAreInsertedAndRemoved) {
  const auto insert = CUnixTools::appand_rule;
  const auto remove = CUnixTools::delete_rule;
  const std::string long_line = ":INPUT" + std::string(1100, 'x') + "\n";
  const std::string large = ":INPUT\n" + std::string(40000, '\n');
  const std::string bytes("\0\xFF", 2);
  const struct {
    const char* sentence;
    void (*edit)(const std::string& file, const std::string& rule);
    std::string before, after;
    std::string rule = kRule;
    std::string stale = {};  // what an earlier work file left
  } rows[] = {
      {"after the first chain line only", insert, ":INPUT a\n:INPUT b\n",
       ":INPUT a\n" + kRule + ":INPUT b\n"},
      {"added again when present", insert, ":INPUT\n" + kRule, ":INPUT\n" + kRule + kRule},
      {"no chain line: unchanged", insert, " :INPUT\nx", " :INPUT\nx"},
      {"a stale work file stays in front", insert, ":INPUT\n", "stale\n:INPUT\n" + kRule, kRule,
       "stale\n"},
      {"a long line counts by its first 1023 bytes", insert, long_line,
       long_line.substr(0, 1023) + kRule + long_line.substr(1023)},
      {"no room for the copy: unchanged", insert, large, large},
      {"the first of two is removed", remove, "a\n" + kRule + "b\n" + kRule, "a\nb\n" + kRule},
      {"an absent one: unchanged", remove, kRules, kRules},
      {"bytes of any value stay", remove, bytes + kRule, bytes},
      {"an empty rule is none", remove, kRules, kRules, ""},
  };
  sandbox::run([&rows] {
    const std::string dir = sandbox::scratch() + "/small";
    const std::string file = dir + "/rules";
    const std::string work_file = file + ".tvbak";
    fs::create_directory(dir);
    ASSERT_EQ(::mount("tmpfs", dir.c_str(), "tmpfs", 0, "size=64k"), 0);
    for (const auto& row : rows) {
      SCOPED_TRACE(row.sentence);
      sandbox::write_file(file, row.before, 0600);
      ASSERT_EQ(::chown(file.c_str(), 12, 34), 0);
      if (!row.stale.empty()) sandbox::write_file(work_file, row.stale);
      row.edit(file, row.rule);
      EXPECT_EQ(sandbox::read_file(file), row.after);
      EXPECT_EQ(CUnixTools::read_file_permission(file.c_str()), 0100600U);
      struct stat st {};
      EXPECT_EQ(::stat(file.c_str(), &st), 0);
      EXPECT_EQ(std::pair(st.st_uid, st.st_gid), std::pair(12U, 34U));
      EXPECT_FALSE(fs::exists(work_file));
      fs::remove(file);
      row.edit(file, row.rule);
      EXPECT_TRUE(fs::is_empty(dir)) << "nothing comes of a missing file";
    }
    // As containers have it: the file cannot be replaced, so the copy ends up after its old lines.
    sandbox::write_file(file, "");
    sandbox::bind_content(file, ":INPUT\n");
    CUnixTools::appand_rule(file, kRule);
    EXPECT_EQ(sandbox::read_file(file), ":INPUT\n:INPUT\n" + kRule) << "a mount point";
    EXPECT_FALSE(fs::exists(work_file));
  });
}

TEST(Firewall, TheRealToolsAcceptWhatIsWritten) {
  sandbox::run([] {
    const auto run = [](const std::string& command) { return std::system(command.c_str()); };
    fs::create_directory("/etc/sysconfig");
    ASSERT_EQ(run("iptables -A INPUT -i lo -j ACCEPT && iptables-save > " + kSystemRules), 0);
    const std::string saved = sandbox::read_file(kSystemRules);
    CUnixTools::iptables_allow_port("centos", 8080);
    EXPECT_NE(sandbox::read_file(kSystemRules).find(kRule), std::string::npos);
    ASSERT_EQ(run("iptables-restore < " + kSystemRules), 0);
    EXPECT_EQ(run("iptables -C INPUT -p tcp -m tcp --dport 8080 -j ACCEPT"), 0);
    CUnixTools::iptables_banned_port("centos", 8080);
    EXPECT_EQ(sandbox::read_file(kSystemRules), saved);

    sandbox::write_file("/usr/bin/sudo", "#!/bin/sh\nexec \"$@\"\n", 0755);
    const auto is_open = [&run] {
      return run("grep -q 'dport 8080 -j ACCEPT' /etc/ufw/user.rules");
    };
    CUnixTools::iptables_allow_port("ubuntu", 8080);
    EXPECT_EQ(is_open(), 0);
    CUnixTools::iptables_banned_port("ubuntu", 8080);
    EXPECT_NE(is_open(), 0);
  });
}
