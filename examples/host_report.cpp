// Prints what the library can tell about this host, section by section.

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
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
};

constexpr Entry kSections[] = {
    {"sockets", nullptr,
     "TCP and UDP sockets with the processes that hold them, listening ones first",
     report::sockets},
    {"processes", nullptr, "every process with its parent, owner, start and command line",
     report::processes},
    {"interfaces", nullptr, "network interfaces with their addresses and counters",
     report::interfaces},
    {"memory", nullptr, "total and free memory", report::memory},
    {"cpu", nullptr, "the load of every CPU over half a second", report::cpu},
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
               "Usage: host_report [--json] [SECTION...]\n"
               "Reports on this host; all sections when none is named. Columns are aligned on a\n"
               "terminal and tab-separated in a pipe; --json prints one object per line.\n\n");
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

}  // namespace

int main(int argc, char** argv) {
  Format format = ::isatty(STDOUT_FILENO) != 0 ? Format::kAligned : Format::kTabs;
  std::vector<Request> requests;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (word == "--help") return usage(stdout, 0);
    if (word == "--json") {
      format = Format::kJson;
      continue;
    }
    const Entry* entry = find(argv[i]);
    if (entry == nullptr) return usage(stderr, 2);
    std::string argument;
    if (entry->argument != nullptr) {
      if (++i == argc) return usage(stderr, 2);
      argument = argv[i];
    }
    requests.push_back({entry, argument});
  }
  if (requests.empty()) {
    for (const Entry& entry : kSections) {
      if (entry.argument == nullptr) requests.push_back({&entry, ""});
    }
  }

  int status = 0;
  for (const Request& request : requests) {
    if (request.section->print(format, request.argument)) continue;
    std::fprintf(stderr, "host_report: %s could not be read completely\n", request.section->name);
    status = 1;
  }
  if (::geteuid() != 0) {
    std::fprintf(stderr,
                 "host_report: other users' sockets, programs and environments need root\n");
  }
  return status;
}
