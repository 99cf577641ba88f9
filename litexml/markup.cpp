#include "markup.h"

#include <algorithm>

#include "litexml.h"

namespace litexml {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kCdataOpen = "<![CDATA[";
constexpr std::string_view kCdataClose = "]]>";

/// `at`, which a search returned.
std::size_t found(std::size_t at) {
  if (at == std::string_view::npos) throw CLiteXmlException("the document is not well-formed");
  return at;
}

std::size_t skip_blanks(std::string_view text, std::size_t at) {
  return found(text.find_first_not_of(kBlanks, at));
}

bool stands_at(std::string_view text, std::size_t at, std::string_view mark) {
  return text.substr(at, mark.size()) == mark;
}

/// Behind the comment, CDATA section or instruction that begins at `at`; `at` itself for a tag.
std::size_t skip_opaque(std::string_view text, std::size_t at) {
  struct Form {
    std::string_view open;
    std::string_view close;
  };
  constexpr Form kForms[] = {{"<!--", "-->"}, {kCdataOpen, kCdataClose}, {"<?", "?>"}};
  for (const Form& form : kForms) {
    if (!stands_at(text, at, form.open)) continue;
    return found(text.find(form.close, at + form.open.size())) + form.close.size();
  }
  return at;
}

std::string escape(std::string_view value, std::string_view special) {
  std::string out;
  for (const char c : value) {
    if (special.find(c) == std::string_view::npos) {
      out += c;
    } else {
      switch (c) {
        case '&':
          out += "&amp;";
          break;
        case '<':
          out += "&lt;";
          break;
        case '>':
          out += "&gt;";
          break;
        case '"':
          out += "&quot;";
          break;
        default:
          out += "&#" + std::to_string(c) + ";";
      }
    }
  }
  return out;
}

}  // namespace

std::size_t tag_close(std::string_view text, std::size_t name) {
  std::size_t at = found(text.find_first_of("\"'>", name));
  while (text[at] != '>') {
    at = found(text.find(text[at], at + 1));
    at = found(text.find_first_of("\"'>", at + 1));
  }
  return at;
}

bool is_self_closed(std::string_view text, std::size_t close) { return text[close - 1] == '/'; }

std::string_view tag_name(std::string_view text, std::size_t name) {
  return text.substr(name, found(text.find_first_of(" \t\r\n/>", name)) - name);
}

Attribute find_attribute(std::string_view text, std::size_t name, std::string_view attribute) {
  std::size_t end = name + tag_name(text, name).size();
  for (;;) {
    const std::size_t at = skip_blanks(text, end);
    if (text[at] == '>' || text[at] == '/') return {false, '"', {end, 0}};
    const std::size_t name_end = found(text.find_first_of(" \t\r\n=", at));
    const std::size_t equals = skip_blanks(text, name_end);
    const std::size_t open = skip_blanks(text, equals + 1);
    const std::size_t close = found(text.find(text[open], open + 1));
    if (text.substr(at, name_end - at) == attribute) {
      return {true, text[open], {open + 1, close - open - 1}};
    }
    end = close + 1;
  }
}

std::size_t content_end(std::string_view text, std::size_t close) {
  std::size_t at = close + 1;
  for (int depth = 1;;) {
    at = found(text.find('<', at));
    const std::size_t skipped = skip_opaque(text, at);
    if (skipped != at) {
      at = skipped;
      continue;
    }
    const std::size_t end = tag_close(text, at + 1);
    if (stands_at(text, at, "</")) {
      if (--depth == 0) return at;
    } else if (!is_self_closed(text, end)) {
      ++depth;
    }
    at = end + 1;
  }
}

Range text_range(std::string_view text, std::size_t content) {
  return {content, found(text.find('<', content)) - content};
}

Range cdata_range(std::string_view text, std::size_t content) {
  const std::size_t at = content - kCdataOpen.size();
  return {at, found(text.find(kCdataClose, content)) + kCdataClose.size() - at};
}

// Parsers turn a bare CR into LF, and in attributes every blank into a space.
std::string as_text(std::string_view value) { return escape(value, "&<>\r"); }

std::string as_attribute(std::string_view value, char quote) {
  return escape(value, quote == '"' ? "&<\"\t\n\r" : "&<'\t\n\r");
}

std::string as_cdata(std::string_view value) {
  std::string out(kCdataOpen);
  for (std::size_t at = value.find(kCdataClose); at != std::string_view::npos;
       at = value.find(kCdataClose)) {
    // The end mark is split over two sections.
    out.append(value.substr(0, at + 2)).append(kCdataClose).append(kCdataOpen);
    value.remove_prefix(at + 2);
  }
  return out.append(value).append(kCdataClose);
}

bool is_blank(std::string_view text) {
  return text.find_first_not_of(kBlanks) == std::string_view::npos;
}

bool is_name(std::string_view name) {
  const auto begins = [](unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == ':' || c >= 0x80;
  };
  const auto goes_on = [begins](unsigned char c) {
    return begins(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
  };
  return !name.empty() && begins(static_cast<unsigned char>(name.front())) &&
         std::all_of(name.begin(), name.end(), goes_on);
}

bool is_writable(std::string_view value) {
  return std::none_of(value.begin(), value.end(), [](unsigned char c) {
    return c < ' ' && c != '\t' && c != '\n' && c != '\r';
  });
}

}  // namespace litexml
