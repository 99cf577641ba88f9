#include <gtest/gtest.h>
#include <unistd.h>

#include <stdexcept>

#include "support/sandbox.h"
#include "utility/CUnixTools.h"

using utility::CUnixTools;

namespace {

// The installation directory is kept for the life of a process, so every story gets one of its own.
void with_agent_in(const std::string& name, const std::function<void(const std::string&)>& body) {
  sandbox::run([&] {
    sandbox::make_private("/var/log");
    const std::string directory = sandbox::scratch() + name;
    sandbox::write_file("/var/log/version_control", directory + "\nsecond line\n");
    sandbox::write_file(directory + "/command_control", "");
    body(directory);
  });
}

}  // namespace

TEST(Agent, TheInstallationDirectoryIsReadOnce) {
  with_agent_in("/opt/agent", [](const std::string& directory) {
    EXPECT_EQ(CUnixTools::get_tarvel_path(), directory);
    sandbox::write_file("/var/log/version_control", "/elsewhere\n");
    EXPECT_EQ(CUnixTools::get_tarvel_path(), directory);
  });
  with_agent_in("/opt/agent", [](const std::string&) {
    const std::string longest(1100, 'd');
    sandbox::write_file("/var/log/version_control", "\n");
    EXPECT_EQ(CUnixTools::get_tarvel_path(), "");
    sandbox::write_file("/var/log/version_control", longest);
    EXPECT_EQ(CUnixTools::get_tarvel_path(), longest.substr(0, 1023)) << "an empty one is not kept";
  });
  with_agent_in("/opt/agent", [](const std::string&) {
    ::unlink("/var/log/version_control");
    EXPECT_EQ(CUnixTools::get_tarvel_path(), "/usr/local/tarvel_agent");
    EXPECT_FALSE(CUnixTools::program_is_tarvel());
    sandbox::write_file("/etc/init.d/tarvel", "");
    EXPECT_TRUE(CUnixTools::program_is_tarvel());
  });
}

TEST(Agent, EditionAndDistribution) {
  const struct {
    const char* directory;
    std::vector<const char*> markers;
    int edition, distribution;
  } rows[] = {{"/my-vek/a", {"debian", "suse"}, 1, 2},
              {"/vek/pxqnt", {"centos", "ubuntu"}, 2, 0},
              {"/agent", {"debian"}, 0, 3},
              {"/agent", {}, 0, 77}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.directory);
    with_agent_in(row.directory, [&row](const std::string& directory) {
      for (const char* marker : row.markers) sandbox::write_file(directory + "/" + marker, "");
      int edition = 77;
      int distribution = 77;
      CUnixTools::get_oem_and_issue(edition, distribution);
      EXPECT_EQ(edition, row.edition);
      EXPECT_EQ(distribution, row.distribution);
    });
  }
}

TEST(Agent, CommandControlEntriesAndTheScriptService) {
  with_agent_in("/agent", [](const std::string& directory) {
    const std::string file = directory + "/command_control";
    const struct {
      const char* sentence;
      std::string content;
      const char* name;
      std::string value;
    } rows[] = {
        {"one separator byte", "x=1\nscript_server=a\nscript_server=b\n", "script_server", "a"},
        {"blanks around", "y  web  \n", "y", "web"},
        {"a name that only begins the line", "script_server=a\n", "script", "server=a"},
        {"no entry", "x=1\n", "y", ""},
        {"nothing behind the name", "y\n", "y", ""},
        {"127 bytes of a line", "y=" + std::string(200, 'v'), "y", std::string(125, 'v')},
    };
    for (const auto& row : rows) {
      sandbox::write_file(file, row.content);
      EXPECT_EQ(CUnixTools::get_agent_names(row.name), row.value) << row.sentence;
    }
    sandbox::write_file(file, "x=1\ny");
    EXPECT_THROW(CUnixTools::get_agent_names("y"), std::out_of_range);
    ::unlink(file.c_str());
    EXPECT_EQ(CUnixTools::get_agent_names("y"), "");

    sandbox::write_file(file, "script_server=webagent\n");
    sandbox::record_shell(false);
    for (const int operation : {0, 1, 2, -1}) CUnixTools::operate_agent_service(operation);
    EXPECT_EQ(sandbox::shell_commands(), (std::vector<std::string>{"/etc/init.d/webagent start",
                                                                   "/etc/init.d/webagent stop"}));
  });
}
