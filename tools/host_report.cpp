// Prints what the library can tell about this host, section by section.

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <thread>

#include "command_line.h"

namespace {

using report::CommandLine;
using report::Section;

// 0 where standard output is no terminal.
std::size_t terminal_width() {
  winsize size{};
  if (::isatty(STDOUT_FILENO) == 0) return 0;
  return ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

// Says something on standard error; the same thing once, however often the report is printed.
void say(const std::string& words) {
  static std::set<std::string> said;
  if (said.insert(words).second) {
    std::fprintf(stderr, "utility-host-report: %s\n", words.c_str());
  }
}

// Says why a section could not be filled; true where the host is free to lack what it reports.
bool excused(const Section& section) {
  if (section.source != nullptr && ::access(section.source, F_OK) != 0 && errno == ENOENT) {
    say(std::string(section.name) + ": this host has no " + section.source);
    return true;
  }
  say(std::string(section.name) + " could not be read completely");
  return false;
}

// Appends the report to `document`; false when something could not be read.
bool make(CommandLine& line, std::string& document) {
  line.look.width = terminal_width();
  bool complete = true;
  bool misses_root = false;
  std::vector<std::string> tables;
  std::vector<const char*> names;
  for (const Section* section : line.sections) {
    const bool tree = section->filters == 0 || line.filters.has(report::kTree);
    report::Table table(section->name, section->columns, tree ? section->tree_column : nullptr,
                        line.look);
    if (!section->fill(line.filters, table) && !excused(*section)) complete = false;
    misses_root = misses_root || table.misses_root();
    tables.push_back(table.text());
    names.push_back(section->name);
  }
  if (misses_root && ::geteuid() != 0) {
    say("without root, what other users' processes hold is not shown");
  }
  document += join(tables, names, line.look.format);
  return complete;
}

// Whole documents only: an interrupt waits until this one is written.
bool print(const std::string& document) {
  sigset_t interrupt;
  sigset_t before;
  sigemptyset(&interrupt);
  sigaddset(&interrupt, SIGINT);
  ::sigprocmask(SIG_BLOCK, &interrupt, &before);
  const bool written =
      std::fwrite(document.data(), 1, document.size(), stdout) == document.size() &&
      std::fflush(stdout) == 0;
  const int error = errno;
  ::sigprocmask(SIG_SETMASK, &before, nullptr);
  // The reader of a pipe has seen enough when it closes it.
  if (!written && error != EPIPE) say(std::string("cannot write: ") + std::strerror(error));
  return written;
}

int run(CommandLine& line) {
  if (line.help) return print(report::help()) ? EXIT_SUCCESS : EXIT_FAILURE;
  if (line.version) {
    return print("utility-host-report " UTILITY_VERSION "\n") ? EXIT_SUCCESS : EXIT_FAILURE;
  }
  if (line.watch_seconds > 0) std::signal(SIGINT, [](int) { ::_exit(EXIT_SUCCESS); });
  const bool clear = line.watch_seconds > 0 && ::isatty(STDOUT_FILENO) != 0;
  for (bool first = true;; first = false) {
    std::string document = clear ? "\033[H\033[2J" : first ? "" : "\n";
    const bool complete = make(line, document);
    if (!print(document)) return EXIT_FAILURE;
    if (line.watch_seconds == 0) return complete ? EXIT_SUCCESS : EXIT_FAILURE;
    std::this_thread::sleep_for(std::chrono::seconds(line.watch_seconds));
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::setlocale(LC_CTYPE, "");   // numbers keep their point
  std::signal(SIGPIPE, SIG_DFL);  // the library's children must not inherit less
  try {
    CommandLine line = report::parse(argc, argv);
    return run(line);
  } catch (const report::UsageError& error) {
    std::fprintf(stderr, "utility-host-report: %s. Try --help.\n", error.what());
    return 2;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "utility-host-report: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
