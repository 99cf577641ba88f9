#include "utility/TarvelVersion.h"

#include <cstdlib>

#include "base/text.h"

namespace utility {
namespace {

// The part of a version text that holds the numbers.
std::string numeric_part(const std::string& text) {
  std::string part = text;
  const std::size_t mark = text.find_first_of("(_-");
  if (mark != std::string::npos) {
    const bool number_first = text[0] >= '0' && text[0] <= '9';
    part = number_first ? text.substr(0, mark) : text.substr(mark + 1);
  }
  CStr::trim(part);
  return part;
}

}  // namespace

TarvelVersion::TarvelVersion(const std::string& text) : m_version(text), m_regular(false) {
  m_regular = analyze_version(m_version, m_parts);
}

bool TarvelVersion::is_regular_ver() const { return m_regular; }

bool TarvelVersion::analyze_version(const std::string& text, std::vector<int>& parts) {
  if (std::count(text.begin(), text.end(), '.') < 2) return false;

  for (const std::string& piece : detail::split(".", numeric_part(text))) {
    parts.push_back(static_cast<int>(std::strtol(piece.c_str(), nullptr, 10)));
  }
  return true;
}

bool TarvelVersion::operator==(const TarvelVersion& other) const {
  return m_parts == other.m_parts;
}

bool TarvelVersion::operator!=(const TarvelVersion& other) const { return !(*this == other); }

bool TarvelVersion::operator>=(const TarvelVersion& other) const { return !(*this < other); }

bool TarvelVersion::operator>(const TarvelVersion& other) const { return !(*this <= other); }

bool TarvelVersion::operator<=(const TarvelVersion& other) const {
  return *this == other || *this < other;
}

bool TarvelVersion::operator<(const TarvelVersion& other) const {
  const auto [mine, theirs] =
      std::mismatch(m_parts.begin(), m_parts.end(), other.m_parts.begin(), other.m_parts.end());
  if (mine == m_parts.end() || theirs == other.m_parts.end()) return false;
  return *mine < *theirs;
}

}  // namespace utility
