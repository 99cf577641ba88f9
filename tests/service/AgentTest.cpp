#include <gtest/gtest.h>
#include <unistd.h>

#include <optional>
#include <stdexcept>

#include "support/sandbox.h"
#include "utility/CUnixTools.h"

using utility::CUnixTools;

constexpr char kPointer[] = "/var/log/version_control";

namespace {

const std::string kLongest(1023, 'd');

struct Installation {
  const char* name;
  std::optional<std::string> pointer;
  std::string directory;
  std::vector<std::string> markers;
  int edition, distribution;
};
const Installation kInstallations[] = {
    {"TheFirstLine", "/etc/my-vek/a\nb\n", "/etc/my-vek/a", {"debian", "suse"}, 1, 2},
    {"BothEditions", "/etc/vek/pxqnt\n", "/etc/vek/pxqnt", {"centos", "ubuntu"}, 2, 0},
    {"NoEdition", "/etc/agent", "/etc/agent", {"debian"}, 0, 3},
    {"NoMarkerAsBefore", "/etc/agent\n", "/etc/agent", {}, 0, 77},
    {"1023BytesOfALine", kLongest + "e", kLongest, {}, 0, 77},
    {"NoPointer", std::nullopt, "/usr/local/tarvel_agent", {}, 0, 77},
    {"AnEmptyLine", "\n", "", {}, 0, 77},
};

// The directory is kept for the life of a process, so every row is a test.
class AgentOf : public ::testing::TestWithParam<Installation> {};

}  // namespace

TEST_P(AgentOf, TheInstallationDirectoryTellsEditionAndDistribution) {
  const Installation& row = GetParam();
  ::unlink(kPointer);
  if (row.pointer) sandbox::write_file(kPointer, *row.pointer);
  for (const auto& marker : row.markers) sandbox::write_file(row.directory + "/" + marker, "");
  int edition = 77;
  int distribution = 77;
  CUnixTools::get_oem_and_issue(edition, distribution);
  EXPECT_EQ(edition, row.edition);
  EXPECT_EQ(distribution, row.distribution);
  EXPECT_EQ(CUnixTools::get_tarvel_path(), row.directory);
  sandbox::write_file(kPointer, "/later\n");
  EXPECT_EQ(CUnixTools::get_tarvel_path(), row.directory.empty() ? "/later" : row.directory);
}

INSTANTIATE_TEST_SUITE_P(, AgentOf, ::testing::ValuesIn(kInstallations),
                         [](const auto& row) { return row.param.name; });

TEST(Agent, CommandControlEntriesAndTheScriptService) {
  const struct {
    const char *sentence, *name;
    std::string content, value;
  } rows[] = {
      {"one separator byte", "script_server", "x=1\nscript_server=a\nscript_server=b\n", "a"},
      {"blanks around", "y", "y  web  \n", "web"},
      {"a name that only begins the line", "script", "script_server=a\n", "server=a"},
      {"no entry", "y", "x=1\n", ""},
      {"nothing after the name", "y", "y\n", ""},
      {"127 bytes of a line", "y", "y=" + std::string(200, 'v'), std::string(125, 'v')},
  };
  sandbox::run([&rows] {
    const std::string file = "/etc/agent/command_control";
    sandbox::write_file(kPointer, "/etc/agent\n");
    EXPECT_EQ(CUnixTools::get_agent_names("y"), "") << "no file";
    for (const auto& row : rows) {
      sandbox::write_file(file, row.content);
      EXPECT_EQ(CUnixTools::get_agent_names(row.name), row.value) << row.sentence;
    }
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
    EXPECT_EQ(sandbox::shell_commands(), (std::vector<std::string>{"/etc/init.d/webagent start",
                                                                   "/etc/init.d/webagent stop"}));
    EXPECT_FALSE(CUnixTools::program_is_tarvel());
    sandbox::write_file("/etc/init.d/tarvel", "");
    EXPECT_TRUE(CUnixTools::program_is_tarvel());
  });
}
