#include <gtest/gtest.h>
#include <unistd.h>

#include <stdexcept>

#include "support/cases.h"
#include "support/sandbox.h"
#include "utility/CUnixTools.h"

using utility::CUnixTools;

constexpr char kPointer[] = "/var/log/version_control";

namespace {

void check_installation(const Case& row) {
  ::unlink(kPointer);
  if (row.has("pointer")) sandbox::write_file(kPointer, row["pointer"]);
  const std::string directory = row["directory"];
  for (const auto& marker : row.all("marker")) sandbox::write_file(directory + "/" + marker, "");
  int edition = 77, distribution = 77;
  CUnixTools::get_oem_and_issue(edition, distribution);
  row.expect("edition", edition);
  row.expect("distribution", distribution);
  row.expect("directory", CUnixTools::get_tarvel_path());
  sandbox::write_file(kPointer, "/later\n");
  EXPECT_EQ(CUnixTools::get_tarvel_path(), directory.empty() ? "/later" : directory);
}

void check_entry(const Case& row) {
  sandbox::write_file(kPointer, "/etc/agent\n");
  sandbox::write_file("/etc/agent/command_control", row["content"]);
  row.expect("value", CUnixTools::get_agent_names(row["name"].c_str()));
}

}  // namespace

// The directory is kept for the life of a process.
TEST(Agent, TheInstallationAndItsEntries) {
  for_each_case(FIXTURES "/agent.txt",
                {{"installation", check_installation}, {"entry", check_entry}}, true);
}

TEST(Agent, CommandControlEntriesAndTheScriptService) {
  const std::string file = "/etc/agent/command_control";
  sandbox::write_file(kPointer, "/etc/agent\n");
  EXPECT_EQ(CUnixTools::get_agent_names("y"), "") << "no file";
  sandbox::write_file(file, "x=1\ny");
  EXPECT_THROW(CUnixTools::get_agent_names("y"), std::out_of_range);
  const std::string longest(127, 'n');
  sandbox::write_file(file, longest + "=v\n");
  EXPECT_THROW(CUnixTools::get_agent_names(longest.c_str()), std::out_of_range);
  EXPECT_EQ(CUnixTools::get_agent_names((longest + "=").c_str()), "") << "longer than a piece";
  sandbox::write_file(file, "script_server");
  EXPECT_THROW(CUnixTools::operate_agent_service(0), std::out_of_range);

  sandbox::write_file(file, "script_server=webagent\n");
  sandbox::record_shell(false);
  for (const int operation : {0, 1, 2, -1}) CUnixTools::operate_agent_service(operation);
  EXPECT_EQ(sandbox::shell_commands(),
            (std::vector<std::string>{"/etc/init.d/webagent start", "/etc/init.d/webagent stop"}));
  EXPECT_FALSE(CUnixTools::program_is_tarvel());
  sandbox::write_file("/etc/init.d/tarvel", "");
  EXPECT_TRUE(CUnixTools::program_is_tarvel());
}
