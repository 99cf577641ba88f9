#pragma once

#include <memory>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "charset.h"
#include "markup.h"

namespace litexml {

class Place;

/// A part of the text, and what it becomes.
struct Edit {
  Range range;
  std::string with;
};

/// The text of a document, or of one element that belongs to none yet, with the parsed tree of it.
///
/// The text is the truth: edits are made in it, and the tree is built anew when it is next needed.
class Source {
 public:
  Source() = default;
  /// For a lone element.
  explicit Source(std::string text) : text_(std::move(text)) {}
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  /// Takes the bytes of a file; false when they are no XML document.
  bool load(std::string file);
  /// The bytes as they are to be saved.
  const std::string& bytes() const { return converted_ ? file_ : text_; }
  /// The encoding of callers' strings.
  const Charset& charset() const { return caller_charset_; }

  /// The text in UTF-8, or as it is where its encoding is unknown.
  std::string_view text() const { return text_; }
  /// The root element; null in an empty document.
  pugi::xml_node root();
  /// The element whose name begins at `at`.
  pugi::xml_node find(std::size_t at);

  /// Makes all the edits, which stand in order and apart, or throws and makes none.
  void apply(const std::vector<Edit>& edits);
  /// Takes over the places in `lone`, whose text now stands at `at`.
  static void adopt(const std::shared_ptr<Source>& source, Source& lone, std::size_t at);

 private:
  friend class Place;
  bool parse();
  std::vector<Edit> in_file(const std::vector<Edit>& edits) const;

  std::string text_;
  /// The file's own bytes, kept in step with the text where that is converted.
  std::string file_;
  bool converted_ = false;
  Charset charset_;
  Charset caller_charset_;
  pugi::xml_document tree_;
  bool parsed_ = false;
  std::vector<Place*> places_;
};

/// Where the name of an element begins. Moves along when the text before it is edited.
class Place {
 public:
  Place(std::shared_ptr<Source> source, std::size_t at);
  ~Place();
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;

  const std::shared_ptr<Source>& source() const { return source_; }
  std::size_t at() const { return at_; }

 private:
  friend class Source;
  std::shared_ptr<Source> source_;
  std::size_t at_;
};

}  // namespace litexml
