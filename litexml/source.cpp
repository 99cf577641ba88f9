#include "source.h"

#include <algorithm>
#include <utility>

#include "litexml.h"

namespace litexml {
namespace {

std::string edited(std::string_view text, const std::vector<Edit>& edits) {
  std::string result;
  std::size_t at = 0;
  for (const Edit& edit : edits) {
    result.append(text.substr(at, edit.range.at - at)).append(edit.with);
    at = edit.range.at + edit.range.length;
  }
  return result.append(text.substr(at));
}

}  // namespace

bool Source::load(std::string file) {
  charset_ = Charset::detect(file);
  std::string text;
  if (!charset_.to_utf8(file, text)) {
    // Taken as bytes, it could become valid by an edit, and with that another document.
    if (charset_.is_wide()) return false;
    charset_ = Charset();
  }
  caller_charset_ = charset_.is_wide() ? Charset("UTF-8") : charset_;
  converted_ = charset_.converts();
  text_ = converted_ ? std::move(text) : file;
  if (converted_) file_ = std::move(file);
  return parse() && root();
}

bool Source::parse() {
  // Blank text must be in the tree, for `set_text` to find it. "UTF-8" keeps the parser from
  // converting, so that its places are places in the text.
  constexpr unsigned kFlags =
      pugi::parse_default | pugi::parse_pi | pugi::parse_comments | pugi::parse_ws_pcdata;
  parsed_ = tree_.load_buffer(text_.data(), text_.size(), kFlags, pugi::encoding_utf8);
  return parsed_;
}

pugi::xml_node Source::root() {
  if (!parsed_ && !parse()) return {};
  return tree_.document_element();
}

pugi::xml_node Source::find(std::size_t at) {
  if (!parsed_ && !parse()) throw CLiteXmlException("the document is not well-formed any more");
  const auto place = static_cast<std::ptrdiff_t>(at);
  pugi::xml_node node = tree_;
  do {
    pugi::xml_node next;
    for (const pugi::xml_node child : node.children()) {
      if (child.type() != pugi::node_element) continue;
      if (child.offset_debug() > place) break;
      next = child;
    }
    if (!next) throw CLiteXmlException("the element is gone");
    node = next;
  } while (node.offset_debug() != place);
  return node;
}

// Each place is counted on from the one before, so that many edits cost one pass.
std::vector<Edit> Source::in_file(const std::vector<Edit>& edits) const {
  std::vector<Edit> result;
  std::size_t text_at = 0;
  std::size_t file_at = 0;
  const auto to_file = [&](std::size_t at) {
    const std::string_view rest = std::string_view(file_).substr(file_at);
    file_at += charset_.bytes_before(rest, at - text_at);
    text_at = at;
    return file_at;
  };
  for (const Edit& edit : edits) {
    std::string bytes;
    if (!charset_.from_utf8(edit.with, bytes)) {
      throw CLiteXmlException("the document's encoding has no form for a character");
    }
    const std::size_t begin = to_file(edit.range.at);
    const std::size_t end = to_file(edit.range.at + edit.range.length);
    result.push_back({{begin, end - begin}, std::move(bytes)});
  }
  return result;
}

void Source::apply(const std::vector<Edit>& edits) {
  std::string text = edited(text_, edits);
  if (converted_) file_ = edited(file_, in_file(edits));
  text_ = std::move(text);
  parsed_ = false;
  for (Place* place : places_) {
    const std::size_t before = place->at_;
    for (const Edit& edit : edits) {
      if (before < edit.range.at + edit.range.length) break;
      place->at_ += edit.with.size() - edit.range.length;
    }
  }
}

void Source::adopt(const std::shared_ptr<Source>& source, Source& lone, std::size_t at) {
  source->places_.insert(source->places_.end(), lone.places_.begin(), lone.places_.end());
  for (Place* place : std::exchange(lone.places_, {})) {
    place->at_ += at;
    place->source_ = source;
  }
}

Place::Place(std::shared_ptr<Source> source, std::size_t at) : source_(std::move(source)), at_(at) {
  source_->places_.push_back(this);
}

Place::~Place() {
  auto& places = source_->places_;
  places.erase(std::remove(places.begin(), places.end(), this), places.end());
}

}  // namespace litexml
