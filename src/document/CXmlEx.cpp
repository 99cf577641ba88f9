#include "utility/CXmlEx.h"

#include <litexml.h>

#include <array>

namespace utility {
namespace {

/// One document with the elements obtained from it.
class Session {
 public:
  Session() = default;
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  bool load(const std::string& file) {
    document_ = newXmlDocument();
    return document_ != nullptr && document_->load(file.c_str()) != 0;
  }
  ILiteXmlElement* select(const std::string& xpath) {
    if (root_ == nullptr) root_ = hold(document_->get_root());
    return root_ != nullptr ? hold(root_->select_single_node(xpath.c_str())) : nullptr;
  }
  ILiteXmlElement* create(const std::string& name) {
    return hold(document_->create_element(name.c_str()));
  }
  bool save(const std::string& file) { return document_->save(file.c_str()) > 0; }

  /// Releases what is still held, newest first. Each object is let go before its release is called,
  /// so one that throws is not released again; call again for the rest then.
  void release() {
    while (held_ > 0) elements_[--held_]->release();
    ILiteXmlDocument* const document = document_;
    document_ = nullptr;
    if (document != nullptr) document->release();
  }

 private:
  ILiteXmlElement* hold(ILiteXmlElement* element) {
    if (element != nullptr) elements_[held_++] = element;
    return element;
  }

  ILiteXmlDocument* document_ = nullptr;
  ILiteXmlElement* root_ = nullptr;
  // An operation obtains the root, two matches and a new element at most.
  std::array<ILiteXmlElement*, 4> elements_{};
  std::size_t held_ = 0;
};

/// Releases everything although a failure is on its way already: that one is the one to report.
void release_after_failure(Session& session) noexcept {
  for (bool done = false; !done;) {
    try {
      session.release();
      done = true;
    } catch (...) {
      done = false;
    }
  }
}

/// The frame of every operation: `work` on a session, the releases, and what an exception means.
template <typename Work>
bool run(Work work) {
  Session session;
  try {
    const bool done = work(session);
    session.release();
    return done;
  } catch (const CLiteXmlException&) {
    release_after_failure(session);
    return false;
  } catch (...) {
    release_after_failure(session);
    throw;
  }
}

/// Lets `act(session, node)` work on the node at `xpath`.
template <typename Act>
bool with_node(const std::string& file, const std::string& xpath, Act act) {
  return run([&](Session& session) {
    if (!session.load(file)) return false;
    ILiteXmlElement* const node = session.select(xpath);
    return node != nullptr && act(session, *node);
  });
}

/// Asks the node at `xpath`; `value` is set when everything, the releases included, went well.
template <typename Ask>
bool read_node(const std::string& file, const std::string& xpath, std::string& value, Ask ask) {
  std::string answer;
  const bool done = with_node(file, xpath, [&](Session&, ILiteXmlElement& node) {
    answer = ask(node);
    return true;
  });
  if (done) value = std::move(answer);
  return done;
}

}  // namespace

bool CXmlEx::write_xml_node(const std::string& file, const std::string& xpath,
                            const std::string& value) {
  return with_node(file, xpath, [&](Session& session, ILiteXmlElement& node) {
    node.set_text(value.c_str());
    return session.save(file);
  });
}

bool CXmlEx::write_xml_attribute(const std::string& file, const std::string& xpath,
                                 const std::string& name, const std::string& value) {
  return with_node(file, xpath, [&](Session& session, ILiteXmlElement& node) {
    node.set_attribute(name.c_str(), value.c_str());
    return session.save(file);
  });
}

bool CXmlEx::read_xml_node(const std::string& file, const std::string& xpath, std::string& value) {
  return read_node(file, xpath, value, [](ILiteXmlElement& node) { return node.get_text(); });
}

bool CXmlEx::read_xml_attribute(const std::string& file, const std::string& xpath,
                                const std::string& name, std::string& value) {
  return read_node(file, xpath, value,
                   [&](ILiteXmlElement& node) { return node.get_attribute(name.c_str()); });
}

bool CXmlEx::add_xml_xpath_node(const std::string& file, const std::string& xpath) {
  return run([&](Session& session) {
    // A file that cannot be read counts as done; callers rely on it.
    if (!session.load(file)) return true;
    if (session.select(xpath) != nullptr) return true;
    const std::size_t slash = xpath.rfind('/');
    const bool split = slash != std::string::npos;
    ILiteXmlElement* const element = session.create(split ? xpath.substr(slash + 1) : xpath);
    ILiteXmlElement* const parent = session.select(split ? xpath.substr(0, slash) : xpath);
    if (element == nullptr || parent == nullptr) return false;
    parent->append_child(element);
    return session.save(file);
  });
}

}  // namespace utility
