#include "utility/CXmlEx.h"

#include <litexml.h>

#include <exception>
#include <memory>

namespace utility {
namespace {

/// Keeps what a release throws: a destructor cannot let it out.
struct Release {
  std::exception_ptr* failure;

  template <class Object>
  void operator()(Object* object) const noexcept {
    try {
      object->release();
    } catch (...) {
      *failure = std::current_exception();
    }
  }
};
using Document = std::unique_ptr<ILiteXmlDocument, Release>;
using Element = std::unique_ptr<ILiteXmlElement, Release>;

/// Lets `work(document, root)` answer for the document in `file`; without that it is `unreadable`.
template <class Work>
bool with_document(const std::string& file, bool unreadable, Work work) {
  bool done = unreadable;
  std::exception_ptr failure;
  try {
    {
      const Document document(newXmlDocument(), {&failure});
      if (document != nullptr && document->load(file.c_str()) != 0)
        done = work(*document, Element(document->get_root(), {&failure}));
    }
    if (failure != nullptr) std::rethrow_exception(failure);
    return done;
  } catch (const CLiteXmlException&) {
    return false;
  }
}

Element select(const Element& root, const std::string& xpath) {
  return {root != nullptr ? root->select_single_node(xpath.c_str()) : nullptr, root.get_deleter()};
}

/// Lets `act(document, node)` answer for the node at `xpath`; false without it.
template <class Act>
bool with_node(const std::string& file, const std::string& xpath, Act act) {
  return with_document(file, false, [&](ILiteXmlDocument& document, const Element& root) {
    const Element node = select(root, xpath);
    return node != nullptr && act(document, *node);
  });
}

/// The same for what `get(node)` reads; `value` is set when all else has gone well.
template <class Get>
bool read_node(const std::string& file, const std::string& xpath, std::string& value, Get get) {
  std::string text;
  const bool done = with_node(file, xpath, [&](ILiteXmlDocument&, ILiteXmlElement& node) {
    text = get(node);
    return true;
  });
  if (done) value = std::move(text);
  return done;
}

}  // namespace

bool CXmlEx::write_xml_node(const std::string& file, const std::string& xpath,
                            const std::string& value) {
  return with_node(file, xpath, [&](ILiteXmlDocument& document, ILiteXmlElement& node) {
    node.set_text(value.c_str());
    return document.save(file.c_str()) > 0;
  });
}

bool CXmlEx::write_xml_attribute(const std::string& file, const std::string& xpath,
                                 const std::string& name, const std::string& value) {
  return with_node(file, xpath, [&](ILiteXmlDocument& document, ILiteXmlElement& node) {
    node.set_attribute(name.c_str(), value.c_str());
    return document.save(file.c_str()) > 0;
  });
}

bool CXmlEx::read_xml_node(const std::string& file, const std::string& xpath, std::string& value) {
  return read_node(file, xpath, value, [](ILiteXmlElement& node) { return node.get_text(); });
}

bool CXmlEx::read_xml_attribute(const std::string& file, const std::string& xpath,
                                const std::string& name, std::string& value) {
  return read_node(file, xpath, value,
                   [&](auto& node) { return node.get_attribute(name.c_str()); });
}

bool CXmlEx::add_xml_xpath_node(const std::string& file, const std::string& xpath) {
  // A file that cannot be read counts as done; callers rely on it.
  return with_document(file, true, [&](ILiteXmlDocument& document, const Element& root) {
    if (select(root, xpath) != nullptr) return true;
    const std::size_t slash = xpath.rfind('/');
    const bool split = slash != std::string::npos;
    const std::string name = split ? xpath.substr(slash + 1) : xpath;
    const Element element(document.create_element(name.c_str()), root.get_deleter());
    const Element parent = select(root, split ? xpath.substr(0, slash) : xpath);
    if (element == nullptr || parent == nullptr) return false;
    parent->append_child(element.get());
    return document.save(file.c_str()) > 0;
  });
}

}  // namespace utility
