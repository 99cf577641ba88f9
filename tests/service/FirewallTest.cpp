#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>

#include "support/cases.h"
#include "support/sandbox.h"
#include "utility/CUnixTools.h"

namespace fs = std::filesystem;
using utility::CUnixTools;
using Lines = std::vector<std::string>;

namespace {

const std::string kRule = "-A INPUT -p tcp -m tcp --dport 8080 -j ACCEPT\n";
const std::string kSystemRules = "/etc/sysconfig/iptables";

void check_port(const Case& row) {
  const std::string rules = ":INPUT ACCEPT [0:0]\nCOMMIT\n";
  for (const std::string& path : row.all("present")) sandbox::write_file(path, rules);
  const auto changed = [&] {
    Lines paths;
    for (const auto& path : row.all("present")) {
      if (sandbox::read_file(path) != rules) paths.push_back(path);
    }
    return paths;
  };
  EXPECT_EQ(CUnixTools::iptables_allow_port(row["distribution"], 8080), 0);
  EXPECT_EQ(changed(), row.all("edited"));
  EXPECT_EQ(CUnixTools::iptables_banned_port(row["distribution"], 8080), 0);
  EXPECT_EQ(changed(), Lines());
  EXPECT_EQ(sandbox::shell_commands(), row.all("command"));
  for (const std::string& path : row.all("present")) fs::remove(path);
}

// `edit` keeps owner and mode, leaves no work file, and makes nothing of a missing file.
template <class Edit>
auto edits(Edit edit, const std::string& rule) {
  return [edit, rule](const Case& row) {
    const std::string file = "/mnt/rules", work_file = file + ".tvbak";
    sandbox::write_file(file, row["before"], 0600);
    ASSERT_EQ(::chown(file.c_str(), 12, 34), 0);
    if (row.has("stale")) sandbox::write_file(work_file, row["stale"]);
    edit(file, rule);
    row.expect("after", sandbox::read_file(file));
    struct stat st {};
    EXPECT_EQ(::stat(file.c_str(), &st), 0);
    EXPECT_TRUE(st.st_mode == 0100600 && st.st_uid == 12 && st.st_gid == 34);
    EXPECT_FALSE(fs::exists(work_file));
    fs::remove(file);
    edit(file, rule);
    EXPECT_TRUE(fs::is_empty("/mnt"));
  };
}

}  // namespace

TEST(Firewall, EachDistributionHasItsCommandsAndFiles) {
  ASSERT_EQ(::mount("tmpfs", "/mnt", "tmpfs", 0, "size=64k"), 0);
  sandbox::record_shell(false);
  for_each_case(FIXTURES "/firewall.txt", {{"port", check_port},
                                           {"insert", edits(CUnixTools::appand_rule, kRule)},
                                           {"remove", edits(CUnixTools::delete_rule, kRule)},
                                           {"remove_nothing", edits(CUnixTools::delete_rule, "")}});
  // As containers have it: the file cannot be replaced, so the copy ends up after its old lines.
  const std::string file = "/mnt/rules";
  sandbox::write_file(file, "");
  sandbox::bind_content(file, ":INPUT\n");
  CUnixTools::appand_rule(file, kRule);
  EXPECT_EQ(sandbox::read_file(file), ":INPUT\n:INPUT\n" + kRule) << "a mount point";
  EXPECT_FALSE(fs::exists(file + ".tvbak"));
}

TEST(Firewall, TheRealToolsAcceptWhatIsWritten) {
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
  const auto is_open = [&run] { return run("grep -q 'dport 8080 -j ACCEPT' /etc/ufw/user.rules"); };
  CUnixTools::iptables_allow_port("ubuntu", 8080);
  EXPECT_EQ(is_open(), 0);
  CUnixTools::iptables_banned_port("ubuntu", 8080);
  EXPECT_NE(is_open(), 0);
}
