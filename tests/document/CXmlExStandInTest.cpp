#include <gtest/gtest.h>
#include <litexml.h>

#include <functional>
#include <set>
#include <stdexcept>

#include "utility/CXmlEx.h"

// A document library whose every call can throw. It notes calls and objects.
namespace {

enum class Throw { kOwn, kForeign };

struct Library {
  std::string calls;
  int count = 0;
  int fail_at = 0;
  Throw kind = Throw::kOwn;
  std::set<const void*> live;
  int load = 1, save = 1;
  bool has_root = true;
  /// Which selections match, in order; "y" or "n".
  std::string matches = "y";
  std::size_t selections = 0;
};
Library g_library;

void call(const std::string& name) {
  g_library.calls += (g_library.calls.empty() ? "" : " ") + name;
  if (++g_library.count != g_library.fail_at) return;
  if (g_library.kind == Throw::kOwn) throw CLiteXmlException("own");
  throw std::out_of_range("foreign");
}

/// Every object is released once, before its release may fail.
template <typename T>
void end(const T* object, const std::string& name) {
  EXPECT_EQ(g_library.live.erase(object), 1U) << name;
  delete object;
  call(name);
}

struct Element final : ILiteXmlElement {
  explicit Element(std::string what) : name(std::move(what)) { g_library.live.insert(this); }
  static Element* select(const char* path) {
    const std::size_t i = g_library.selections++;
    const bool match = i < g_library.matches.size() && g_library.matches[i] == 'y';
    return match ? new Element(path) : nullptr;
  }
  std::string get_text() override { return call("get_text"), "text"; }
  void set_text(const char* value) override { call(std::string("set_text=") + value); }
  void set_attribute(const char* key, const char* value) override {
    call(std::string("set_attribute=") + key + ":" + value);
  }
  std::string get_attribute(const char* key) override {
    return call(std::string("get_attribute=") + key), "attribute";
  }
  void append_child(ILiteXmlElement* child) override {
    call("append=" + name + "<" + static_cast<Element*>(child)->name);
  }
  ILiteXmlElement* select_single_node(const char* path) override {
    return call(std::string("select=") + path), select(path);
  }
  void release() override { end(this, "~" + name); }
  std::string name;
};

struct Document final : ILiteXmlDocument {
  Document() { g_library.live.insert(this); }
  int load(const char* path) override { return call(std::string("load=") + path), g_library.load; }
  ILiteXmlElement* get_root() override {
    return call("root"), g_library.has_root ? new Element("root") : nullptr;
  }
  ILiteXmlElement* create_element(const char* name) override {
    return call(std::string("create=") + name), new Element(std::string("+") + name);
  }
  int save(const char* path) override { return call(std::string("save=") + path), g_library.save; }
  void release() override { end(this, "~doc"); }
};

}  // namespace

ILiteXmlDocument* newXmlDocument() {
  return call("new"), new Document;
}

namespace {

using utility::CXmlEx;

TEST(CXmlExStandInTest, EveryObjectIsReleasedOnceOnEveryPath) {
  std::string value;
  const auto write = [] { return CXmlEx::write_xml_node("f", "a/b", "v"); };
  const auto read = [&value] { return CXmlEx::read_xml_node("f", "a/b", value); };
  const auto add = [] { return CXmlEx::add_xml_xpath_node("f", "a/b"); };
  const auto with = [](const std::function<void(Library&)>& change) {
    Library library;
    change(library);
    return library;
  };
  const Library plain;
  const auto unloaded = with([](Library& l) { l.load = 0; });
  const auto rootless = with([](Library& l) { l.has_root = false; });
  const auto no_match = with([](Library& l) { l.matches = "n"; });
  const auto parent_only = with([](Library& l) { l.matches = "ny"; });
  const struct {
    const char* sentence;
    std::function<bool()> operation;
    Library library;
    bool result;
    std::string value;
    std::string calls;
  } kRows[] = {
      {"write a node", write, plain, true, "",
       "new load=f root select=a/b set_text=v save=f ~a/b ~root ~doc"},
      {"save says 0", write, with([](Library& l) { l.save = 0; }), false, "",
       "new load=f root select=a/b set_text=v save=f ~a/b ~root ~doc"},
      {"save below 0", write, with([](Library& l) { l.save = -1; }), false, "",
       "new load=f root select=a/b set_text=v save=f ~a/b ~root ~doc"},
      {"load below 0 is no failure", read, with([](Library& l) { l.load = -1; }), true, "text",
       "new load=f root select=a/b get_text ~a/b ~root ~doc"},
      {"write, not loaded", write, unloaded, false, "", "new load=f ~doc"},
      {"write, no match", write, no_match, false, "", "new load=f root select=a/b ~root ~doc"},
      {"write, no root", write, rootless, false, "", "new load=f root ~doc"},
      {"write an attribute", [] { return CXmlEx::write_xml_attribute("f", "a", "n", "v"); }, plain,
       true, "", "new load=f root select=a set_attribute=n:v save=f ~a ~root ~doc"},
      {"read, no match", read, no_match, false, "", "new load=f root select=a/b ~root ~doc"},
      {"read an attribute", [&value] { return CXmlEx::read_xml_attribute("f", "a", "n", value); },
       plain, true, "attribute", "new load=f root select=a get_attribute=n ~a ~root ~doc"},
      {"add, not loaded", add, unloaded, true, "", "new load=f ~doc"},
      {"add, there already", add, plain, true, "", "new load=f root select=a/b ~a/b ~root ~doc"},
      {"add", add, parent_only, true, "",
       "new load=f root select=a/b create=b select=a append=a<+b save=f ~a ~+b ~root ~doc"},
      {"add without a parent", add, with([](Library& l) { l.matches = "nn"; }), false, "",
       "new load=f root select=a/b create=b select=a ~+b ~root ~doc"},
      {"add without a slash", [] { return CXmlEx::add_xml_xpath_node("f", "a"); }, parent_only,
       true, "", "new load=f root select=a create=a select=a append=a<+a save=f ~a ~+a ~root ~doc"},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.sentence);
    g_library = row.library;
    value.clear();
    EXPECT_EQ(row.operation(), row.result);
    EXPECT_EQ(g_library.calls, row.calls);
    EXPECT_EQ(value, row.value);
    EXPECT_TRUE(g_library.live.empty());

    const int calls = g_library.count;
    value = "untouched";
    for (int fail_at = 1; fail_at <= calls; ++fail_at) {
      for (const Throw kind : {Throw::kOwn, Throw::kForeign}) {
        g_library = row.library;
        g_library.fail_at = fail_at;
        g_library.kind = kind;
        if (kind == Throw::kOwn) {
          EXPECT_FALSE(row.operation()) << fail_at;
        } else {
          EXPECT_THROW(row.operation(), std::out_of_range) << fail_at;
        }
        EXPECT_TRUE(g_library.live.empty()) << fail_at << ": " << g_library.calls;
        const std::string last = fail_at == 1 ? "new" : "~doc";
        EXPECT_EQ(g_library.calls.substr(g_library.calls.size() - last.size()), last) << fail_at;
      }
    }
    EXPECT_EQ(value, "untouched");
  }
}

}  // namespace
