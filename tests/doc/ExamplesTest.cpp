// Runs the programs that the documentation shows, each on a machine of its own, and compares what
// they print with what the documentation says they print.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <ostream>
#include <set>

#include "support/sandbox.h"

namespace fs = std::filesystem;

namespace {

struct Example {
  const char* name;
  const char* arguments;
  std::function<void()> arrange;
  bool figures_vary;  // numbers are this machine's: only that there are some is compared
};

std::ostream& operator<<(std::ostream& stream, const Example& example) {
  return stream << example.name;
}

std::string output_of(const std::string& command, int& status) {
  std::string output;
  std::FILE* pipe = ::popen(command.c_str(), "re");
  if (pipe == nullptr) return "popen failed";
  char block[4096];
  while (const std::size_t count = std::fread(block, 1, sizeof block, pipe)) {
    output.append(block, count);
  }
  status = ::pclose(pipe);
  return output;
}

std::string without_figures(const std::string& text) {
  std::string result;
  for (const char c : text) {
    const bool digit = c >= '0' && c <= '9';
    if (!digit) result += c;
    if (digit && (result.empty() || result.back() != '#')) result += '#';
  }
  return result;
}

void nothing() {}

void one_stopped_service() {
  fs::remove_all("/etc/init.d");
  sandbox::write_file("/etc/init.d/web",
                      "#!/bin/sh\n[ $1 = status ] && echo web is stopped || echo ${1}ing web\n",
                      0755);
}

void mail_rules() {
  sandbox::write_file("/etc/rsyslog.conf",
                      "# rules\nmail.err\t/var/log/mail.err\nkern.*\t-/var/log/kern.log\n"
                      "*.*\t-/var/log/syslog\n");
}

// Takes one mail and leaves its lines in "received".
void mail_server() {
  sandbox::write_file(sandbox::scratch() + "/server.py",
                      "import os, socket\n"
                      "listener = socket.create_server(('127.0.0.1', 2525))\n"
                      "if os.fork(): os._exit(0)\n"
                      "peer = listener.accept()[0]\n"
                      "lines = peer.makefile('rwb', 0)\n"
                      "log = open('received', 'wb')\n"
                      "lines.write(b'220 ready\\r\\n')\n"
                      "for line in lines:\n"
                      "  log.write(line); log.flush()\n"
                      "  if line.strip().upper() == b'DATA': text = True\n"
                      "  elif line == b'.\\r\\n': text = False\n"
                      "  else: text = 'text' in globals() and text\n"
                      "  if not text: lines.write(b'250 ok\\r\\n')\n"
                      "  elif line.strip().upper() == b'DATA': lines.write(b'354 go on\\r\\n')\n");
  EXPECT_EQ(std::system("python3 server.py </dev/null >/dev/null 2>&1"), 0);
}

const Example kExamples[] = {
    {"strings", "", nothing, false},
    {"tools", "", nothing, false},
    {"processes", "", nothing, false},
    {"addresses", "", nothing, false},
    {"sockets", "", nothing, true},
    {"accounts", "", nothing, false},
    {"services", "", one_stopped_service, false},
    {"log_rules", "", mail_rules, false},
    {"resources", "", nothing, true},
    {"file_manager", "", nothing, false},
    {"codecs", "", nothing, false},
    {"csv", "", nothing, false},
    {"xml", "", nothing, false},
    {"mail", "127.0.0.1 2525 agent@here root@there", mail_server, false},
    {"diagnostics", "", nothing, false},
};

}  // namespace

class DocExample : public ::testing::TestWithParam<Example> {};

TEST_P(DocExample, PrintsWhatTheDocumentationSays) {
  const Example& example = GetParam();
  sandbox::run([&example] {
    const std::string expected =
        sandbox::read_file(std::string(DOC_OUTPUTS) + example.name + ".out");
    ASSERT_NE(expected, "");
    ASSERT_EQ(::chdir(sandbox::scratch().c_str()), 0);
    example.arrange();
    int status = -1;
    const std::string printed =
        output_of(std::string(DOC_EXAMPLES) + example.name + " " + example.arguments, status);
    EXPECT_EQ(status, 0);
    if (example.figures_vary) {
      EXPECT_EQ(without_figures(printed), without_figures(expected));
    } else {
      EXPECT_EQ(printed, expected);
    }
  });
}

INSTANTIATE_TEST_SUITE_P(Doc, DocExample, ::testing::ValuesIn(kExamples),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST(Doc, NoExampleIsLeftOut) {
  std::set<std::string> shown;
  for (const Example& example : kExamples) shown.insert(example.name);
  std::set<std::string> programs;
  for (const auto& entry : fs::directory_iterator(DOC_OUTPUTS)) {
    if (entry.path().extension() == ".cpp") programs.insert(entry.path().stem());
  }
  EXPECT_EQ(shown, programs);
}
