#pragma once

#include <string>

#include "report/table.h"

namespace report {

/// Each section prints its table and returns false when it could not read what it reports.
/// `argument` is what followed the section's name, for the sections that take something.
using Section = bool (*)(Format format, const std::string& argument);

bool sockets(Format format, const std::string& argument);
bool processes(Format format, const std::string& argument);
bool maps(Format format, const std::string& pid);
bool interfaces(Format format, const std::string& argument);
bool memory(Format format, const std::string& argument);
bool cpu(Format format, const std::string& argument);
bool disks(Format format, const std::string& argument);
bool volumes(Format format, const std::string& argument);
bool users(Format format, const std::string& argument);
bool groups(Format format, const std::string& argument);
bool services(Format format, const std::string& argument);
bool log_rules(Format format, const std::string& argument);

}  // namespace report
