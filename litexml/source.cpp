#include "source.h"

#include <algorithm>
#include <utility>

#include "litexml.h"

namespace litexml {

bool Source::load(std::string file) {
  charset_ = Charset::detect(file);
  std::string text;
  const bool known = charset_.to_utf8(file, text);
  if (!known) charset_ = Charset();
  caller_charset_ = charset_.is_wide() ? Charset("UTF-8") : charset_;
  converted_ = known && text != file;
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

void Source::replace(const Range& range, std::string_view with) {
  if (converted_) {
    std::string bytes;
    if (!charset_.from_utf8(with, bytes)) throw CLiteXmlException("not in the document's encoding");
    const std::size_t begin = charset_.bytes_before(file_, range.at);
    const std::size_t end = charset_.bytes_before(file_, range.at + range.length);
    file_.replace(begin, end - begin, bytes);
  }
  text_.replace(range.at, range.length, with);
  parsed_ = false;
  for (Place* place : places_) {
    if (place->at_ >= range.at + range.length) place->at_ += with.size() - range.length;
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
