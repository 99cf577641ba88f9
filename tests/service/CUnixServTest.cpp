#include "utility/CUnixServ.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "support/sandbox.h"

namespace fs = std::filesystem;
using utility::CUnixServ;
using Services = std::map<std::string, CUnixServ::UnixServData>;

namespace {

int collect(const CUnixServ::UnixServData& data, void* context) {
  (*static_cast<Services*>(context))[data.name] = data;
  return 0;
}

int stop_at_once(const CUnixServ::UnixServData& /*data*/, void* context) {
  ++*static_cast<int*>(context);
  return 1;
}

void script(const std::string& name, const std::string& body, unsigned mode = 0755) {
  sandbox::write_file("/etc/init.d/" + name, "#!/bin/sh\n" + body, mode);
}

}  // namespace

TEST(CUnixServ, StatusTextsAreClassifiedByTheFirstPhraseOfTheList) {
  const struct {
    const char* text;
    const char* status;
  } rows[] = {
      {"sshd (pid 1234) is running...", "running"},
      {"(pid 5)", "running"},
      {"(pid5)", "-"},
      {"crond is stopped", "stopped"},
      {"crond \xE5\xB7\xB2\xE5\x81\x9C\n", "stopped"},
      {"nginx is not running", "stopped"},
      {"a is stopped\nb is running\n", "running"},
      {"", "-"},
      {"Running", "-"},
  };
  for (const auto& row : rows) {
    std::string status = "old";
    EXPECT_EQ(CUnixServ::getstatus(row.text, status), 0);
    EXPECT_EQ(status, row.status) << row.text;
  }
}

TEST(CUnixServ, TheRealServiceCommandRunsTheScripts) {
  sandbox::run([] {
    fs::remove_all("/etc/init.d");
    script("web", "echo \"web (pid 7) is $1\"\n");
    script("db", "echo 'db is stopped'; echo unseen >&2; exit 3\n");
    script("big", "yes 0123456789abcdef | head -c 1000000; echo 'is running'\n");
    script("odd~", "printf 'no line end'\n");
    script("a.b.bak2", "true\n");
    script("bak", "true\n");  // no dot: a name like any other
    for (const char* name : {"functions", "halt", "killall", "single", "linuxconf", "kudzu",
                             "rc.boot", "reboot", "network.rpmnew", "x.~", "y.orig"}) {
      script(name, "echo is running\n");
    }
    script("disabled", "echo is running\n", 0644);
    fs::create_directory("/etc/init.d/dir");

    Services services;
    ASSERT_EQ(CUnixServ::get_all_serv_data(collect, &services), 0);
    ASSERT_EQ(services.size(), 6U);
    EXPECT_EQ(services["web"].status_text, "web (pid 7) is status\n");
    EXPECT_EQ(services["web"].status, "running");
    EXPECT_EQ(services["db"].status_text, "db is stopped\n");
    EXPECT_EQ(services["db"].status, "stopped");
    EXPECT_EQ(services["big"].status_text.size(), 1000000U + 11U);
    EXPECT_EQ(services["big"].status, "running");
    EXPECT_EQ(services["odd~"].status_text, "no line end");
    EXPECT_EQ(services["a.b.bak2"].status, "-");

    int calls = 0;
    EXPECT_EQ(CUnixServ::get_all_serv_data(stop_at_once, &calls), 7);
    EXPECT_EQ(calls, 1);
    fs::remove_all("/etc/init.d");
    EXPECT_EQ(CUnixServ::get_all_serv_data(collect, &services), 1);
  });
}

TEST(CUnixServ, StartingAndStopping) {
  sandbox::run([] {
    sandbox::record_shell(true);
    script("web", "[ \"$1\" = start ]\n");
    script("killed", "kill -9 $$\n");
    EXPECT_EQ(CUnixServ::start_serv("web"), 0);
    EXPECT_EQ(CUnixServ::stop_serv("web"), 6);
    EXPECT_EQ(CUnixServ::start_serv("killed"), 6) << "ended by a signal";
    EXPECT_EQ(CUnixServ::start_serv("") + CUnixServ::stop_serv(""), 2 + 2);
    CUnixServ::UnixServData data{"kept", "kept", "kept"};
    EXPECT_EQ(CUnixServ::get_serv_data("", data), 2);
    EXPECT_EQ(data.name + data.status + data.status_text, "keptkeptkept");
    EXPECT_EQ(CUnixServ::get_serv_data("web", data), 0);
    const std::vector<std::string> commands = {"service web start", "service web stop",
                                               "service killed start",
                                               "service web status 2>/dev/null"};
    EXPECT_EQ(sandbox::shell_commands(), commands);
  });
}
