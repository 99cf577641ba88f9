// XML files: four lines (two path expressions, an attribute's name and the text to write, which
// ends at a RS byte) and a document. What is written is read back, a refusal leaves the file, and
// an edit leaves every byte of the file that is none of its business.
#include <litexml.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <string>
#include <vector>

#include "check.h"
#include "input.h"
#include "lines.h"
#include "scratch.h"
#include "utility/CXmlEx.h"

namespace {

using utility::CXmlEx;

constexpr char kTextEnd = '\x1e';

struct Task {
  std::string path;
  std::string other_path;
  std::string name;
  std::string value;
  std::string document;
};

/// A document's parts in order. A tag that closes itself counts as two, with nothing in between.
struct Parts {
  std::vector<std::string> tags;   // and comments, instructions
  std::vector<std::string> texts;  // in front of the tag of the same number; the last behind all

  explicit Parts(const std::string& document) {
    std::string text;
    for (std::size_t at = 0; at < document.size();) {
      const std::string part = document.substr(at, part_size(document, at));
      at += part.size();
      if (part[0] != '<' || part.compare(0, 9, "<![CDATA[") == 0) {
        text += part;
        continue;
      }
      texts.push_back(text);
      text.clear();
      const bool closes_itself = part.size() > 3 && part.compare(part.size() - 2, 2, "/>") == 0;
      tags.push_back(closes_itself ? part.substr(0, part.size() - 2) + ">" : part);
      if (!closes_itself) continue;
      texts.emplace_back();
      tags.push_back("</" + part.substr(1, part.find_first_of(" \t\r\n/") - 1) + ">");
    }
    texts.push_back(text);
  }

 private:
  static std::size_t part_size(const std::string& document, std::size_t at) {
    const auto from = [&](const std::string& begin, const std::string& end) {
      const std::size_t found = document.find(end, at + begin.size());
      return std::min(found, document.size() - end.size()) + end.size() - at;
    };
    if (document[at] != '<') return std::min(document.find('<', at), document.size()) - at;
    if (document.compare(at, 4, "<!--") == 0) return from("<!--", "-->");
    if (document.compare(at, 9, "<![CDATA[") == 0) return from("<![CDATA[", "]]>");
    if (document.compare(at, 2, "<?") == 0) return from("<?", "?>");
    char quote = '\0';
    for (std::size_t end = at; end < document.size(); ++end) {
      const char c = document[end];
      if (quote == '\0' && c == '>') return end + 1 - at;
      if (c == quote) {
        quote = '\0';
      } else if (quote == '\0' && (c == '"' || c == '\'')) {
        quote = c;
      }
    }
    return document.size() - at;
  }
};

/// False where markup does not stand byte by byte in the file, or there is a DTD.
bool is_plain(const std::string& document) {
  return document.find("encoding") == std::string::npos &&
         document.find("<!D") == std::string::npos && document.find('\0') == std::string::npos &&
         document.compare(0, 2, "\xff\xfe") != 0 && document.compare(0, 2, "\xfe\xff") != 0;
}

std::size_t differences(const std::vector<std::string>& a, const std::vector<std::string>& b) {
  FUZZ_CHECK(a.size() == b.size());
  std::size_t count = 0;
  for (std::size_t i = 0; i < a.size(); ++i) count += a[i] == b[i] ? 0 : 1;
  return count;
}

bool loads(const std::string& path) {
  ILiteXmlDocument* const document = newXmlDocument();
  const bool done = document->load(path.c_str()) != 0;
  document->release();
  return done;
}

class Session {
 public:
  Session(const Task& task, scratch::File& file) : task_(task), file_(file) {}

  void write_text() {
    file_.write(task_.document);
    if (!CXmlEx::write_xml_node(file_.path(), task_.path, task_.value)) return check_untouched();
    check_saved();
    if (!is_plain(task_.document)) return;
    std::string read;
    if (selects_the_same()) {
      FUZZ_CHECK(CXmlEx::read_xml_node(file_.path(), task_.path, read));
      check_text(read);
    }
    FUZZ_CHECK(Parts(task_.document).tags == Parts(file_.read()).tags);
  }

  void write_attribute() {
    file_.write(task_.document);
    if (!CXmlEx::write_xml_attribute(file_.path(), task_.path, task_.name, task_.value)) {
      return check_untouched();
    }
    check_saved();
    if (!is_plain(task_.document)) return;
    std::string read;
    if (selects_the_same()) {
      FUZZ_CHECK(CXmlEx::read_xml_attribute(file_.path(), task_.path, task_.name, read));
      check_attribute(read);
    }
    const Parts before(task_.document);
    const Parts after(file_.read());
    FUZZ_CHECK(before.texts == after.texts && differences(before.tags, after.tags) <= 1);
  }

  void add_node() {
    file_.write(task_.document);
    const bool done = CXmlEx::add_xml_xpath_node(file_.path(), task_.path);
    if (file_.read() == task_.document) return;
    FUZZ_CHECK(done);
    check_saved();
    if (!is_plain(task_.document)) return;
    const Parts before(task_.document);
    const Parts after(file_.read());
    const std::string name = up_to_nul(task_.path.substr(task_.path.rfind('/') + 1));
    const auto [old, added] =
        std::mismatch(before.tags.begin(), before.tags.end(), after.tags.begin(), after.tags.end());
    FUZZ_CHECK(after.tags.size() == before.tags.size() + 2);
    FUZZ_CHECK(*added == "<" + name + ">" && *(added + 1) == "</" + name + ">");
    FUZZ_CHECK(std::equal(old, before.tags.end(), added + 2));
  }

  /// Reads tell the same each time and leave the file; loading and saving leaves it as well.
  void read() {
    file_.write(task_.document);
    std::string text = "unread";
    std::string attribute = "unread";
    const bool found = CXmlEx::read_xml_node(file_.path(), task_.path, text);
    FUZZ_CHECK(found || text == "unread");
    if (CXmlEx::read_xml_attribute(file_.path(), task_.path, task_.name, attribute)) {
      // A reference may name what is no character: such a text cannot be read.
      FUZZ_CHECK(found || !is_plain(task_.document) ||
                 task_.document.find("&#") != std::string::npos);
    } else {
      FUZZ_CHECK(attribute == "unread");
    }
    ILiteXmlDocument* const document = newXmlDocument();
    if (document->load(file_.path().c_str()) != 0) {
      FUZZ_CHECK(document->save(file_.path().c_str()) > 0);
    }
    document->release();
    check_untouched();
  }

  /// Two elements of one document, edited in turn: neither edit shows in the other.
  void edit_two() {
    file_.write(task_.document);
    ILiteXmlDocument* const document = newXmlDocument();
    std::vector<ILiteXmlElement*> held;
    if (document->load(file_.path().c_str()) != 0) {
      held.push_back(document->get_root());
      for (const std::string* path : {&task_.path, &task_.other_path}) select(held, *path);
      if (held.size() == 3) edit(*document, held);
    }
    for (ILiteXmlElement* element : held) element->release();
    document->release();
  }

 private:
  /// True for a path of names alone: it asks for nothing that an edit changes.
  bool selects_the_same() const {
    return std::all_of(task_.path.begin(), task_.path.end(), [](char c) {
      return std::isalnum(static_cast<unsigned char>(c)) || c == '/';
    });
  }

  void check_saved() const { FUZZ_CHECK(loads(file_.path())); }
  void check_untouched() const { FUZZ_CHECK(file_.read() == task_.document); }

  static void select(std::vector<ILiteXmlElement*>& held, const std::string& path) {
    try {
      ILiteXmlElement* const match = held[0]->select_single_node(path.c_str());
      if (match != nullptr) held.push_back(match);
    } catch (const CLiteXmlException&) {
      return;
    }
  }

  void edit(ILiteXmlDocument& document, std::vector<ILiteXmlElement*>& held) {
    ILiteXmlElement& first = *held[1];
    ILiteXmlElement& second = *held[2];
    try {
      const std::string text = second.get_text();
      const std::string kept = second.get_attribute(task_.name.c_str());
      second.set_attribute("fuzz", "2");
      first.set_attribute("fuzz", "1");
      const bool same = second.get_attribute("fuzz") == "1";
      first.set_attribute(task_.name.c_str(), task_.value.c_str());
      check_attribute(first.get_attribute(task_.name.c_str()));
      first.set_text(task_.value.c_str());
      check_text(first.get_text());
      if (!same) FUZZ_CHECK(second.get_text() == text);
      if (!same && task_.name != "fuzz") {
        FUZZ_CHECK(second.get_attribute(task_.name.c_str()) == kept);
      }
      held.push_back(document.create_element("fuzz"));
      second.append_child(held.back());
      held.back()->set_text("new");
      FUZZ_CHECK(document.save(file_.path().c_str()) > 0);
      check_saved();
    } catch (const CLiteXmlException&) {
      return;
    }
  }

  // An encoding may have several forms for a character, and gives back its own.
  void check_attribute(const std::string& read) const {
    FUZZ_CHECK(read == up_to_nul(task_.value) || !is_plain(task_.document));
  }
  /// Blank text goes for layout where the element holds more.
  void check_text(const std::string& read) const {
    const std::string value = up_to_nul(task_.value);
    const bool blank = value.find_first_not_of(" \t\r\n") == std::string::npos;
    if (!blank || !read.empty()) check_attribute(read);
  }

  const Task& task_;
  scratch::File& file_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static scratch::File file("t.xml");
  Input input(data, size);
  Task task;
  task.path = input.text('\n');
  task.other_path = input.text('\n');
  task.name = input.text('\n');
  task.value = input.text(kTextEnd);
  task.document = input.rest();
  Session session(task, file);
  session.read();
  session.write_text();
  session.write_attribute();
  session.add_node();
  session.edit_two();
  return 0;
}
