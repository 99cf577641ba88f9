// Runs the programs that the documentation shows, each on a machine of its own, and compares what
// they print with what the documentation says they print.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <set>

#include "support/sandbox.h"

namespace fs = std::filesystem;

namespace {

// In these, numbers are this machine's: only that there are some is compared.
const std::set<std::string> kFiguresVary = {"sockets", "resources", "cookbook"};

// Takes one mail.
const char kMailServer[] = R"(
import os, socket
listener = socket.create_server(('127.0.0.1', 2525))
if os.fork(): os._exit(0)
lines = listener.accept()[0].makefile('rwb', 0)
lines.write(b'220 ready\r\n')
text = False
for line in lines:
  if text and line != b'.\r\n': continue
  text = line.upper() == b'DATA\r\n'
  lines.write(b'354 go on\r\n' if text else b'250 ok\r\n')
)";

// One stopped service, a few log rules, and a server for the mail.
void arrange(const std::string& name) {
  fs::remove_all("/etc/init.d");
  sandbox::write_file("/etc/init.d/web",
                      "#!/bin/sh\n[ $1 = status ] && echo web is stopped || echo ${1}ing web\n",
                      0755);
  sandbox::write_file("/etc/rsyslog.conf",
                      "# rules\nmail.err\t/var/log/mail.err\nkern.*\t-/var/log/kern.log\n"
                      "*.*\t-/var/log/syslog\n");
  std::error_code there;  // a minimal host has no mount table
  fs::create_symlink("/proc/self/mounts", "/etc/mtab", there);
  if (name != "mail" && name != "cookbook") return;
  sandbox::write_file("./server.py", kMailServer);
  ASSERT_EQ(std::system("python3 server.py </dev/null >/dev/null 2>&1"), 0);
}

std::string without_figures(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }, '#');
  const auto both = [](char a, char b) { return a == '#' && b == '#'; };
  text.erase(std::unique(text.begin(), text.end(), both), text.end());
  return text;
}

std::set<std::string> names() {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(DOC_OUTPUTS)) {
    if (entry.path().extension() == ".cpp") names.insert(entry.path().stem());
  }
  return names;
}

}  // namespace

class DocExample : public ::testing::TestWithParam<std::string> {};

TEST_P(DocExample, PrintsWhatTheDocumentationSays) {
  const std::string& name = GetParam();
  std::string expected = sandbox::read_file(DOC_OUTPUTS + name + ".out");
  ASSERT_NE(expected, "");
  arrange(name);
  const std::string arguments = name == "mail" ? " 127.0.0.1 2525 agent@here root@there" : "";
  std::string printed = sandbox::output_of(DOC_EXAMPLES + name + arguments);
  if (kFiguresVary.count(name) > 0) {
    printed = without_figures(printed);
    expected = without_figures(expected);
  }
  EXPECT_EQ(printed, expected);
}

INSTANTIATE_TEST_SUITE_P(Doc, DocExample, ::testing::ValuesIn(names()),
                         [](const auto& instance) { return instance.param; });
