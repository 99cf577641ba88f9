#include "utility/CUnixServ.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "support/cases.h"
#include "support/sandbox.h"

namespace fs = std::filesystem;
using utility::CUnixServ;
using Services = std::map<std::string, CUnixServ::UnixServData>;

namespace {

int collect(const CUnixServ::UnixServData& data, void* context) {
  (*static_cast<Services*>(context))[data.name] = data;
  return 0;
}

void script(const std::string& name, const std::string& body, unsigned mode = 0755) {
  sandbox::write_file("/etc/init.d/" + name, "#!/bin/sh\n" + body, mode);
}

}  // namespace

TEST(CUnixServ, StatusTextsAreClassifiedByTheFirstPhraseOfTheList) {
  for_each_case(FIXTURES "/status.txt", {{"text", [](const Case& row) {
                                            std::string status = "old";
                                            EXPECT_EQ(CUnixServ::getstatus(row["printed"], status),
                                                      0);
                                            row.expect("status", status);
                                          }}});
}

TEST(CUnixServ, TheRealServiceCommandRunsTheScripts) {
  std::string big;
  while (big.size() < 1000000) big += "0123456789abcde\n";
  const struct {
    const char *name, *body, *status;
    std::string status_text;
  } rows[] = {
      {"web", "echo \"web (pid 7) is $1\"\n", "running", "web (pid 7) is status\n"},
      {"db", "echo 'db is stopped'; echo unseen >&2; exit 3\n", "stopped", "db is stopped\n"},
      {"big", "yes 0123456789abcde | head -c 1000000; echo is running\n", "running",
       big + "is running\n"},
      {"odd~", "printf 'no line end'\n", "-", "no line end"},
      {"a.b.bak2", "true\n", "-", ""},
      {"bak", "true\n", "-", ""},  // no dot: a name like any other
  };
  fs::remove_all("/etc/init.d");
  Services services;
  EXPECT_EQ(CUnixServ::get_all_serv_data(collect, &services), 1);
  for (const auto& row : rows) script(row.name, row.body);
  for (const char* name : {"functions", "halt", "killall", "single", "linuxconf", "kudzu",
                           "rc.boot", "reboot", "network.rpmnew", "x.~", "y.orig"}) {
    script(name, "echo is running\n");
  }
  script("disabled", "echo is running\n", 0644);
  fs::create_directory("/etc/init.d/dir");

  EXPECT_EQ(CUnixServ::get_all_serv_data(collect, &services), 0);
  EXPECT_EQ(services.size(), std::size(rows));
  for (const auto& row : rows) {
    EXPECT_EQ(services[row.name].status, row.status) << row.name;
    EXPECT_TRUE(services[row.name].status_text == row.status_text) << row.name;
  }
  EXPECT_EQ(CUnixServ::get_all_serv_data(nullptr, nullptr), 0);
  services.clear();
  const auto stop = [](const auto& data, void* all) { return collect(data, all) + 1; };
  EXPECT_EQ(CUnixServ::get_all_serv_data(stop, &services), 7);
  EXPECT_EQ(services.size(), 1U);
}

TEST(CUnixServ, StartingAndStopping) {
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
}
