#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Where things stand in the text of an XML document that was parsed without an error, and how texts
// are written into it. Every function throws CLiteXmlException where the text is not such a
// document after all: the parser is a little more lenient than this.
namespace litexml {

/// A part of a text.
struct Range {
  std::size_t at;
  std::size_t length;
};

/// One attribute of a start tag, or the place for one.
struct Attribute {
  bool found;
  char quote;
  /// The value between the quotes where `found`; else where a new attribute goes.
  Range value;
};

/// The ">" of the start tag whose name begins at `name`.
std::size_t tag_close(std::string_view text, std::size_t name);
bool is_self_closed(std::string_view text, std::size_t close);
std::string_view tag_name(std::string_view text, std::size_t name);
Attribute find_attribute(std::string_view text, std::size_t name, std::string_view attribute);

/// The "<" of the end tag that belongs to the start tag closed at `close`.
std::size_t content_end(std::string_view text, std::size_t close);

/// The extent of the text, or of the CDATA section with its marks, whose content begins at
/// `content`.
Range text_range(std::string_view text, std::size_t content);
Range cdata_range(std::string_view text, std::size_t content);

/// `value` as text, as a CDATA section, and as an attribute value in quotes of the given kind.
std::string as_text(std::string_view value);
std::string as_cdata(std::string_view value);
std::string as_attribute(std::string_view value, char quote);

bool is_blank(std::string_view text);
/// True for a name that an element or attribute may have.
bool is_name(std::string_view name);
/// True when no character is one that XML has no form for.
bool is_writable(std::string_view value);

}  // namespace litexml
