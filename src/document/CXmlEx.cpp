#include "utility/CXmlEx.h"

#include <litexml.h>

#include <memory>

namespace utility {
namespace {

struct Release {
  template <class Object>
  void operator()(Object* object) const noexcept {
    object->release();
  }
};
using Document = std::unique_ptr<ILiteXmlDocument, Release>;
using Element = std::unique_ptr<ILiteXmlElement, Release>;

/// Lets `work(document, root)` answer for the document in `file`; without that it is `unreadable`.
template <class Work>
bool with_document(const std::string& file, bool unreadable, Work work) {
  try {
    const Document document(newXmlDocument());
    if (document == nullptr || document->load(file.c_str()) == 0) return unreadable;
    const Element root(document->get_root());
    return work(*document, root.get());
  } catch (const CLiteXmlException&) {
    return false;
  }
}

Element select(ILiteXmlElement* root, const std::string& xpath) {
  return Element(root != nullptr ? root->select_single_node(xpath.c_str()) : nullptr);
}

/// Lets `act(document, node)` answer for the node at `xpath`; false without it.
template <class Act>
bool with_node(const std::string& file, const std::string& xpath, Act act) {
  return with_document(file, false, [&](ILiteXmlDocument& document, ILiteXmlElement* root) {
    const Element node = select(root, xpath);
    return node != nullptr && act(document, *node);
  });
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
  return with_node(file, xpath, [&](ILiteXmlDocument&, ILiteXmlElement& node) {
    value = node.get_text();
    return true;
  });
}

bool CXmlEx::read_xml_attribute(const std::string& file, const std::string& xpath,
                                const std::string& name, std::string& value) {
  return with_node(file, xpath, [&](ILiteXmlDocument&, ILiteXmlElement& node) {
    value = node.get_attribute(name.c_str());
    return true;
  });
}

bool CXmlEx::add_xml_xpath_node(const std::string& file, const std::string& xpath) {
  // A file that cannot be read counts as done; callers rely on it.
  return with_document(file, true, [&](ILiteXmlDocument& document, ILiteXmlElement* root) {
    if (select(root, xpath) != nullptr) return true;
    const std::size_t slash = xpath.rfind('/');
    const bool split = slash != std::string::npos;
    const std::string name = split ? xpath.substr(slash + 1) : xpath;
    const Element element(document.create_element(name.c_str()));
    const Element parent = select(root, split ? xpath.substr(0, slash) : xpath);
    if (element == nullptr || parent == nullptr) return false;
    parent->append_child(element.get());
    return document.save(file.c_str()) > 0;
  });
}

}  // namespace utility
