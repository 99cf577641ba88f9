#include "charset.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>

#include "base/iconv.h"

namespace litexml {
namespace {

bool convert(const char* to, const char* from, std::string_view bytes, std::string& out) {
  utility::detail::Iconv converter(to, from);
  if (!converter) return false;
  out.clear();
  std::array<char, 4096> block;
  for (bool more = true; more;) {
    char* end = block.data();
    std::size_t room = block.size();
    if (bytes.empty()) {
      converter.finish(end, room);
      more = false;
    } else if (!converter.convert(bytes, end, room) && errno != E2BIG) {
      return false;
    }
    out.append(block.data(), end);
  }
  return true;
}

bool same_name(const std::string& a, const char* b) { return ::strcasecmp(a.c_str(), b) == 0; }

/// The value of "encoding" in the XML declaration that `file` begins with; empty without one.
std::string declared(std::string_view file) {
  constexpr std::string_view kBlanks = " \t\r\n";
  if (file.substr(0, 5) != "<?xml") return {};
  const std::string_view declaration = file.substr(0, file.find("?>"));
  std::size_t at = declaration.find("encoding");
  if (at == std::string_view::npos) return {};
  at = declaration.find_first_not_of(kBlanks, at + 8);
  if (at == std::string_view::npos || declaration[at] != '=') return {};
  at = declaration.find_first_not_of(kBlanks, at + 1);
  if (at == std::string_view::npos || (declaration[at] != '"' && declaration[at] != '\''))
    return {};
  const std::size_t end = declaration.find(declaration[at], at + 1);
  if (end == std::string_view::npos) return {};
  return std::string(declaration.substr(at + 1, end - at - 1));
}

struct Beginning {
  std::string_view bytes;
  const char* charset;
};
using namespace std::string_view_literals;
/// Byte order marks, and the beginnings of documents that leave them out.
constexpr Beginning kBeginnings[] = {
    {"\xef\xbb\xbf"sv, "UTF-8"}, {"\xff\xfe"sv, "UTF-16LE"}, {"\xfe\xff"sv, "UTF-16BE"},
    {"<\0"sv, "UTF-16LE"},       {"\0<"sv, "UTF-16BE"},
};

}  // namespace

Charset Charset::detect(std::string_view file) {
  for (const Beginning& known : kBeginnings) {
    if (file.substr(0, known.bytes.size()) == known.bytes) return Charset(known.charset);
  }
  const std::string name = declared(file);
  if (name.empty()) return Charset("UTF-8");
  // iconv would take more in a name than names. A declaration that can be read byte by byte is not
  // in a wide encoding, whatever it says.
  const Charset charset(name);
  const bool is_name = std::all_of(name.begin(), name.end(), [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_' || c == '.';
  });
  return is_name && !charset.is_wide() ? charset : Charset();
}

bool Charset::converts() const {
  return !name_.empty() && !same_name(name_, "UTF-8") && !same_name(name_, "UTF8");
}

bool Charset::is_wide() const {
  const std::array<const char*, 4> families{"UTF-16", "UTF-32", "UCS-2", "UCS-4"};
  const auto begins = [this](const char* family) {
    return ::strncasecmp(name_.c_str(), family, std::char_traits<char>::length(family)) == 0;
  };
  return std::any_of(families.begin(), families.end(), begins) ||
         same_name(name_, "ISO-10646-UCS-2");
}

bool Charset::to_utf8(std::string_view bytes, std::string& out) const {
  if (!name_.empty()) return convert("UTF-8", name_.c_str(), bytes, out);
  out = bytes;
  return true;
}

bool Charset::from_utf8(std::string_view text, std::string& out) const {
  if (!name_.empty()) return convert(name_.c_str(), "UTF-8", text, out);
  out = text;
  return true;
}

std::size_t Charset::bytes_before(std::string_view file, std::size_t length) const {
  utility::detail::Iconv converter("UTF-8", name_.c_str());
  std::string_view rest = file;
  std::array<char, 4096> block;
  while (length > 0 && !rest.empty()) {
    char* end = block.data();
    std::size_t room = std::min(block.size(), length);
    const std::size_t before = room;
    if ((!converter.convert(rest, end, room) && errno != E2BIG) || room == before) break;
    length -= before - room;
  }
  return file.size() - rest.size();
}

}  // namespace litexml
