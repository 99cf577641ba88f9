#include "command_line.h"

#include <getopt.h>
#include <utility/CUnixUser.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>

namespace report {
namespace {

const Section* const kSections[] = {&kSockets, &kProcesses, &kInterfaces, &kMemory,
                                    &kCpu,     &kDisks,     &kVolumes,    &kUsers,
                                    &kGroups,  &kServices,  &kLogRules,   &kMaps};

// Options without a letter.
enum Code : int { kProtocolOption = 256, kPidOption, kNameOption };

constexpr struct {
  const char* name;
  const char* argument;
  const char* help;
  int code;         // its letter, if it has one
  unsigned filter;  // 0 for what every section heeds
} kOptions[] = {
    {"output", "COLUMNS", "print these columns of a section, or with +COLUMN one more", 'o', 0},
    {"json", nullptr, "print one JSON document", 'J', 0},
    {"raw", nullptr, "print without alignment; a blank in a cell is \\x20", 'r', 0},
    {"pairs", nullptr, "print NAME=\"value\"", 'P', 0},
    {"noheadings", nullptr, "print no headings", 'n', 0},
    {"bytes", nullptr, "print sizes in bytes", 'b', 0},
    {"watch", "SECONDS", "print again and again, until interrupted", 'w', 0},
    {"listening", nullptr, "only sockets that wait for peers", 'l', kListening},
    {"port", "N", "only sockets with this port on either side", 'p', kPort},
    {"protocol", "NAME", "only tcp, udp, tcp4, tcp6, udp4 or udp6", kProtocolOption, kProtocol},
    {"pid", "N", "only this process", kPidOption, kPid},
    {"name", "NAME", "only processes of this name", kNameOption, kName},
    {"user", "USER", "only processes of this user", 'u', kUser},
    {"tree", nullptr, "processes below their parents", 't', kTree},
    {"help", nullptr, "print this and exit", 'h', 0},
    {"version", nullptr, "print the version and exit", 'V', 0},
};

unsigned parse_number(const char* option, const char* text, unsigned last) {
  unsigned value = 0;
  const char* end = text + std::strlen(text);
  const auto [stop, error] = std::from_chars(text, end, value);
  if (error != std::errc() || stop != end || value < 1 || value > last) {
    throw UsageError(std::string("--") + option + " takes a number from 1 to " +
                     std::to_string(last) + ", not '" + text + "'");
  }
  return value;
}

std::string known_protocol(const std::string& name) {
  for (const char* known : {"tcp", "udp", "tcp4", "udp4", "tcp6", "udp6"}) {
    if (name == known) return name;
  }
  throw UsageError("unknown protocol '" + name + "'");
}

std::string known_user(const std::string& user) {
  utility::CUnixUser::UnixUserData data;
  const bool number = user.find_first_not_of("0123456789") == std::string::npos;
  if (user.empty() || (!number && utility::CUnixUser::get_user_data(user, data) != 0)) {
    throw UsageError("unknown user '" + user + "'");
  }
  return user;
}

const Section* known_section(const std::string& name) {
  for (const Section* section : kSections) {
    if (name == section->name) return section;
  }
  throw UsageError("unknown section '" + name + "'");
}

void set_format(Look& look, Format format) {
  if (look.format != Format::kTable && look.format != format) {
    throw UsageError("--json, --raw and --pairs exclude each other");
  }
  look.format = format;
}

void take(int code, const char* value, CommandLine& line) {
  switch (code) {
    case 'o':
      line.look.output = value;
      return;
    case 'J':
      return set_format(line.look, Format::kJson);
    case 'r':
      return set_format(line.look, Format::kRaw);
    case 'P':
      return set_format(line.look, Format::kPairs);
    case 'n':
      line.look.headings = false;
      return;
    case 'b':
      line.look.exact_bytes = true;
      return;
    case 'w':
      line.watch_seconds = parse_number("watch", value, 86400);
      return;
    case 'p':
      line.filters.port = parse_number("port", value, 65535);
      return;
    case kProtocolOption:
      line.filters.protocol = known_protocol(value);
      return;
    case kPidOption:
      line.filters.pid =
          static_cast<int>(parse_number("pid", value, std::numeric_limits<int>::max()));
      return;
    case kNameOption:
      line.filters.name = value;
      return;
    case 'u':
      line.filters.user = known_user(value);
      return;
    case 'h':
      line.help = true;
      return;
    case 'V':
      line.version = true;
      return;
    default:
      return;  // says all by being given
  }
}

// The filter that a section does not heed, as an option; null when it heeds all.
const char* unheeded(const Section& section, const Filters& filters) {
  for (const auto& option : kOptions) {
    if ((option.filter & filters.given & ~section.filters) != 0) return option.name;
  }
  return nullptr;
}

// Without a name, all sections that heed the filters.
void choose_sections(CommandLine& line) {
  const bool named = !line.sections.empty();
  if (!named)
    std::copy(std::begin(kSections), std::end(kSections), std::back_inserter(line.sections));
  const auto left_out = [&](const Section* section) {
    const char* option = unheeded(*section, line.filters);
    if (named && option != nullptr) {
      throw UsageError(std::string(section->name) + " takes no --" + option);
    }
    return option != nullptr || (!named && section->on_request);
  };
  line.sections.erase(std::remove_if(line.sections.begin(), line.sections.end(), left_out),
                      line.sections.end());
  if (line.sections.empty()) throw UsageError("no section takes all these filters");
  if (!line.look.output.empty() && line.sections.size() != 1) {
    throw UsageError("--output takes one section");
  }
}

}  // namespace

CommandLine parse(int argc, char** argv) {
  std::string letters = ":";  // a missing value is told from an unknown option
  std::vector<option> options;
  for (const auto& option : kOptions) {
    const int has_argument = option.argument != nullptr ? required_argument : no_argument;
    options.push_back({option.name, has_argument, nullptr, option.code});
    if (option.code > 255) continue;
    letters += static_cast<char>(option.code);
    if (option.argument != nullptr) letters += ':';
  }
  options.push_back({});

  CommandLine line;
  opterr = 0;
  for (int code;
       (code = ::getopt_long(argc, argv, letters.c_str(), options.data(), nullptr)) != -1;) {
    if (code == '?' || code == ':') {
      const bool letter = code == '?' && optopt > 0 && optopt < 256;
      const std::string word =
          letter ? std::string("-") + static_cast<char>(optopt) : argv[optind - 1];
      throw UsageError(code == '?' ? "unknown option '" + word + "'" : word + " takes a value");
    }
    for (const auto& option : kOptions) {
      if (option.code == code) line.filters.given |= option.filter;
    }
    take(code, optarg, line);
  }
  for (; optind < argc; ++optind) line.sections.push_back(known_section(argv[optind]));
  choose_sections(line);
  return line;
}

std::string help() {
  std::string text =
      "Usage: utility-host-report [OPTION...] [SECTION...]\n"
      "Reports on this host: all sections, when none is named, that heed the options.\n\n";
  const auto add = [&text](std::string left, std::size_t width, const char* right) {
    left.resize(std::max(left.size() + 2, width), ' ');
    text.append(left).append(right).append("\n");
  };
  for (const auto& option : kOptions) {
    std::string left = option.code > 255
                           ? "      --"
                           : std::string("  -") + static_cast<char>(option.code) + ", --";
    left += option.name;
    if (option.argument != nullptr) left.append(" ").append(option.argument);
    add(left, 26, option.help);
  }
  text +=
      "\nSections and their columns (+ from 120, ++ from 160 characters of the terminal's "
      "width,\n* when asked for by --output):\n";
  for (const Section* section : kSections) {
    text.append("\n");
    add(section->name, 14, section->help);
    for (const Column& column : section->columns) {
      const char* mark = column.from_width == kAsked   ? " *"
                         : column.from_width == kWider ? " ++"
                         : column.from_width == kWide  ? " +"
                                                       : "";
      add(std::string("    ") + column.name + mark, 22, column.help);
    }
  }
  return text;
}

}  // namespace report
