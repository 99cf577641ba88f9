#include "litexml.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "base/handles.h"
#include "base/io.h"
#include "source.h"

namespace litexml {
namespace {

using utility::detail::Fd;

/// Opens a regular file; waits for nobody where it is something else.
Fd open_regular(const char* path, int flags, struct stat& st) noexcept {
  Fd fd(::open(path, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0666));
  if (fd && (::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode))) fd.reset();
  return fd;
}

bool read_file(const char* path, std::string& bytes) {
  struct stat st {};
  const Fd fd = open_regular(path, O_RDONLY, st);
  if (!fd) return false;
  bytes.reserve(static_cast<std::size_t>(st.st_size) + 1);
  std::array<char, 65536> block;
  ssize_t count = 0;
  while ((count = ::read(fd.get(), block.data(), block.size())) > 0) {
    bytes.append(block.data(), static_cast<std::size_t>(count));
  }
  return count == 0;
}

/// Takes back what was added to a file of `size` bytes.
void cut_back(int fd, off_t size) noexcept {
  [[maybe_unused]] const int ignored = ::ftruncate(fd, size);
}

/// Takes the room for `size` bytes; the file stays as long as it is, where its system can do that.
bool reserve(int fd, off_t size, off_t before) noexcept {
  // The process's limit counts for files that grow, so not yet.
  rlimit limit{};
  if (::getrlimit(RLIMIT_FSIZE, &limit) == 0 && static_cast<rlim_t>(size) > limit.rlim_cur) {
    return false;
  }
  int result = 0;
  do {
    result = size == 0 || ::fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, size) == 0 ? 0 : errno;
    if (result == EOPNOTSUPP) result = ::posix_fallocate(fd, 0, size);
  } while (result == EINTR);
  // Part of the room may have been added before it ran out.
  if (result != 0 && size > before) cut_back(fd, before);
  return result == 0;
}

bool write_file(const char* path, std::string bytes) {
  struct stat st {};
  Fd fd = open_regular(path, O_WRONLY | O_CREAT, st);
  const auto size = static_cast<off_t>(bytes.size());
  if (!fd || !reserve(fd.get(), size, st.st_size)) return false;
  // Blanks over the old file's end, so that a crash before it is cut off leaves XML all the same.
  if (size < st.st_size) bytes.resize(static_cast<std::size_t>(st.st_size), ' ');
  if (!utility::detail::write_all(fd.get(), bytes)) {
    // Where nothing was written the file is as it was again.
    if (size > st.st_size) cut_back(fd.get(), st.st_size);
    return false;
  }
  return ::ftruncate(fd.get(), size) == 0 && ::close(fd.release()) == 0;
}

std::string decode(const Charset& charset, const char* string) {
  std::string text;
  if (string == nullptr || !charset.to_utf8(string, text)) {
    throw CLiteXmlException("a string is not in the document's encoding");
  }
  if (!is_writable(text)) throw CLiteXmlException("XML has no form for a control character");
  return text;
}

std::string encode(const Charset& charset, std::string_view text) {
  std::string string;
  if (!charset.from_utf8(text, string)) {
    throw CLiteXmlException("the document's encoding has no form for a character");
  }
  return string;
}

std::string decode_name(const Charset& charset, const char* string) {
  std::string name = decode(charset, string);
  if (!is_name(name)) throw CLiteXmlException("not a name: " + name);
  return name;
}

std::size_t offset_of(const pugi::xml_node& node) {
  const std::ptrdiff_t offset = node.offset_debug();
  if (offset < 0) throw CLiteXmlException("a node has no place in the text");
  return static_cast<std::size_t>(offset);
}

bool is_text(const pugi::xml_node& node) {
  return node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata;
}

/// True for text that is no layout: blank text beside something else is.
bool counts(const pugi::xml_node& node) {
  return node.type() == pugi::node_cdata ||
         (node.type() == pugi::node_pcdata &&
          (!is_blank(node.value()) || (!node.previous_sibling() && !node.next_sibling())));
}

pugi::xml_node first_text(const pugi::xml_node& element, bool (*is_it)(const pugi::xml_node&)) {
  for (const pugi::xml_node child : element.children()) {
    if (is_it(child)) return child;
  }
  return {};
}

class Element final : public ILiteXmlElement {
 public:
  Element(std::shared_ptr<Source> source, std::size_t at, const Charset& charset, bool lone)
      : place_(std::move(source), at), charset_(charset), lone_(lone) {}

  std::string get_text() override;
  void set_text(const char* value) override;
  void set_attribute(const char* name, const char* value) override;
  std::string get_attribute(const char* name) override;
  void append_child(ILiteXmlElement* child) override;
  ILiteXmlElement* select_single_node(const char* path) override;
  void release() override { delete this; }

 private:
  Source& source() const { return *place_.source(); }
  pugi::xml_node node() const { return source().find(place_.at()); }
  /// Puts `content` at the beginning or the end of the element; returns where it is then.
  std::size_t insert(std::string_view content, bool at_end);
  /// Where a text or CDATA section stands, marks included.
  Range extent(const pugi::xml_node& text) const;

  Place place_;
  Charset charset_;
  bool lone_;
};

std::string Element::get_text() {
  std::string text;
  for (const pugi::xml_node child : node().children()) {
    if (counts(child)) text += child.value();
  }
  return encode(charset_, text);
}

void Element::set_text(const char* value) {
  const std::string text = decode(charset_, value);
  const pugi::xml_node element = node();
  pugi::xml_node place = first_text(element, counts);
  if (!place) place = first_text(element, is_text);
  // A CR survives only as a reference, which a CDATA section cannot hold.
  const bool cdata = place.type() == pugi::node_cdata && text.find('\r') == std::string::npos;
  const std::string markup = cdata ? as_cdata(text) : as_text(text);
  if (!place) {
    insert(markup, false);
    return;
  }
  // Layout that touches plain text would become part of it.
  pugi::xml_node begin = place;
  pugi::xml_node end = place;
  while (!cdata && is_text(begin.previous_sibling())) begin = begin.previous_sibling();
  while (!cdata && is_text(end.next_sibling())) end = end.next_sibling();
  std::vector<Edit> edits;
  bool touches = false;
  for (const pugi::xml_node child : element.children()) {
    touches = touches || child == begin;
    if (is_text(child) && (touches || counts(child))) {
      edits.push_back({extent(child), child == place ? markup : std::string()});
    }
    touches = touches && child != end;
  }
  source().apply(edits);
}

Range Element::extent(const pugi::xml_node& text) const {
  const std::size_t at = offset_of(text);
  return text.type() == pugi::node_cdata ? cdata_range(source().text(), at)
                                         : text_range(source().text(), at);
}

void Element::set_attribute(const char* name, const char* value) {
  const std::string attribute = decode_name(charset_, name);
  const std::string text = decode(charset_, value);
  const Attribute old = find_attribute(source().text(), place_.at(), attribute);
  const std::string markup = as_attribute(text, old.quote);
  source().apply({{old.value, old.found ? markup : " " + attribute + "=\"" + markup + "\""}});
}

std::string Element::get_attribute(const char* name) {
  return encode(charset_, node().attribute(decode(charset_, name).c_str()).value());
}

std::size_t Element::insert(std::string_view content, bool at_end) {
  const std::string_view text = source().text();
  const std::size_t close = tag_close(text, place_.at());
  if (is_self_closed(text, close)) {
    if (content.empty()) return close;
    const std::string name(tag_name(text, place_.at()));
    source().apply({{{close - 1, 2}, ">" + std::string(content) + "</" + name + ">"}});
    return close;
  }
  const std::size_t at = at_end ? content_end(text, close) : close + 1;
  source().apply({{{at, 0}, std::string(content)}});
  return at;
}

void Element::append_child(ILiteXmlElement* child) {
  auto* const element = static_cast<Element*>(child);
  if (element == nullptr || !element->lone_ || element->place_.source() == place_.source()) {
    throw CLiteXmlException("no element that can be appended");
  }
  const std::shared_ptr<Source> lone = element->place_.source();
  const std::size_t at = insert(lone->text(), true);
  Source::adopt(place_.source(), *lone, at);
  element->lone_ = false;
}

ILiteXmlElement* Element::select_single_node(const char* path) {
  const std::string expression = decode(charset_, path);
  try {
    const pugi::xml_node match = node().select_node(expression.c_str()).node();
    if (match.type() != pugi::node_element) return nullptr;
    return new Element(place_.source(), offset_of(match), charset_, false);
  } catch (const pugi::xpath_exception& error) {
    throw CLiteXmlException(error.what());
  }
}

class Document final : public ILiteXmlDocument {
 public:
  int load(const char* path) override {
    source_ = std::make_shared<Source>();
    std::string bytes;
    if (path == nullptr || !read_file(path, bytes)) return 0;
    if (source_->load(std::move(bytes))) return 1;
    source_ = std::make_shared<Source>();
    return 0;
  }

  ILiteXmlElement* get_root() override {
    const pugi::xml_node root = source_->root();
    return root ? new Element(source_, offset_of(root), source_->charset(), false) : nullptr;
  }

  ILiteXmlElement* create_element(const char* name) override {
    const std::string tag = "<" + decode_name(source_->charset(), name) + "/>";
    return new Element(std::make_shared<Source>(tag), 1, source_->charset(), true);
  }

  int save(const char* path) override {
    return path != nullptr && write_file(path, source_->bytes()) ? 1 : 0;
  }

  void release() override { delete this; }

 private:
  std::shared_ptr<Source> source_ = std::make_shared<Source>();
};

}  // namespace
}  // namespace litexml

CLiteXmlException::~CLiteXmlException() = default;

ILiteXmlDocument* newXmlDocument() { return new litexml::Document; }
