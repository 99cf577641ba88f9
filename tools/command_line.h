#pragma once

#include <string>
#include <vector>

#include "sections.h"

namespace report {

struct CommandLine {
  Look look;
  Filters filters;
  std::vector<const Section*> sections;
  unsigned watch_seconds = 0;  ///< 0 prints once
  bool help = false;
  bool version = false;
};

/// Throws UsageError for what makes no sense.
CommandLine parse(int argc, char** argv);

/// What `--help` prints.
std::string help();

}  // namespace report
