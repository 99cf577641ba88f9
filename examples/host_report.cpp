// Prints what the library can tell about this host, section by section.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "report/sections.h"

namespace {

using report::Format;

struct Entry {
  const char* name;
  const char*
      argument;  // what the section takes, or null; such sections are printed on request only
  const char* help;
  report::Section print;
  bool watchable = false;
};

constexpr Entry kSections[] = {
    {"sockets", nullptr,
     "TCP and UDP sockets with the processes that hold them, listening ones first", report::sockets,
     true},
    {"processes", nullptr, "every process with its parent, owner, start and command line",
     report::processes},
    {"interfaces", nullptr, "network interfaces with their addresses and counters",
     report::interfaces},
    {"memory", nullptr, "total and free memory", report::memory},
    {"cpu", nullptr, "the load of every CPU over half a second", report::cpu, true},
    {"disks", nullptr, "file systems on disks with their use", report::disks},
    {"volumes", nullptr, "disks and their partitions", report::volumes},
    {"users", nullptr, "accounts", report::users},
    {"groups", nullptr, "groups with their members", report::groups},
    {"services", nullptr, "init-script services with their state", report::services},
    {"log-rules", nullptr, "what the system log writes where", report::log_rules},
    {"maps", "PID", "the files that a process has mapped", report::maps},
};

int usage(std::FILE* stream, int status) {
  std::fprintf(stream,
               "Usage: utility-host-report [--json] [--watch SECONDS] [SECTION...]\n"
               "Reports on this host; all sections when none is named. Columns are aligned on a\n"
               "terminal and tab-separated in a pipe; --json prints one object per line. --watch\n"
               "prints the sections sockets and cpu again and again.\n\n");
  for (const Entry& entry : kSections) {
    const std::string name = std::string(entry.name) +
                             (entry.argument != nullptr ? std::string(" ") + entry.argument : "");
    std::fprintf(stream, "  %-12s %s\n", name.c_str(), entry.help);
  }
  return status;
}

const Entry* find(const char* name) {
  for (const Entry& entry : kSections) {
    if (std::strcmp(entry.name, name) == 0) return &entry;
  }
  return nullptr;
}

struct Request {
  const Entry* section;
  std::string argument;
};

struct CommandLine {
  Format format = ::isatty(STDOUT_FILENO) != 0 ? Format::kAligned : Format::kTabs;
  unsigned watch_seconds = 0;  // 0 prints once
  bool help = false;
  std::vector<Request> requests;
};

bool parse_seconds(const char* text, unsigned& seconds) {
  char* end = nullptr;
  const unsigned long value = std::strtoul(text, &end, 10);
  if (*end != '\0' || value < 1 || value > 86400) return false;
  seconds = static_cast<unsigned>(value);
  return true;
}

// What is printed when nothing is named: all that needs no argument, or all that can be watched.
void request_all(CommandLine& line) {
  for (const Entry& entry : kSections) {
    const bool wanted = line.watch_seconds > 0 ? entry.watchable : entry.argument == nullptr;
    if (wanted) line.requests.push_back({&entry, ""});
  }
}

// False where the words make no sense.
bool parse(int argc, char** argv, CommandLine& line) {
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (word == "--help") {
      line.help = true;
    } else if (word == "--json") {
      line.format = Format::kJson;
    } else if (word == "--watch") {
      if (++i == argc || !parse_seconds(argv[i], line.watch_seconds)) return false;
    } else {
      const Entry* entry = find(argv[i]);
      if (entry == nullptr || (entry->argument != nullptr && ++i == argc)) return false;
      line.requests.push_back({entry, entry->argument != nullptr ? argv[i] : ""});
    }
  }
  if (line.requests.empty()) request_all(line);
  return line.watch_seconds == 0 ||
         std::all_of(line.requests.begin(), line.requests.end(),
                     [](const Request& request) { return request.section->watchable; });
}

// 0, or 1 when something could not be read completely.
int print(const CommandLine& line) {
  int status = 0;
  for (const Request& request : line.requests) {
    if (request.section->print(line.format, request.argument)) continue;
    std::fprintf(stderr, "utility-host-report: %s could not be read completely\n",
                 request.section->name);
    status = 1;
  }
  std::fflush(stdout);
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  CommandLine line;
  if (!parse(argc, argv, line)) return usage(stderr, 2);
  if (line.help) return usage(stdout, 0);
  int status = print(line);
  while (line.watch_seconds > 0 && std::ferror(stdout) == 0) {
    std::this_thread::sleep_for(std::chrono::seconds(line.watch_seconds));
    status = print(line);
  }
  if (::geteuid() != 0) {
    std::fprintf(
        stderr, "utility-host-report: other users' sockets, programs and environments need root\n");
  }
  return status;
}
