#include <gtest/gtest.h>
#include <litexml.h>

#include <functional>
#include <set>
#include <stdexcept>

#include "utility/CXmlEx.h"

// A document library whose every call can throw. It notes calls and objects.
namespace {

struct Library {
  int load = 1;
  int save = 1;
  /// What the selections find, in order; "-" as the first means that there is no root.
  std::string matches = "y";
  int fail_at = 0;
  bool foreign = false;
  std::string calls = {};
  int count = 0;
  std::set<const void*> live = {};
};
Library g_library;

void call(const std::string& name) {
  g_library.calls += name + " ";
  if (++g_library.count != g_library.fail_at) return;
  if (g_library.foreign) throw std::out_of_range("foreign");
  throw CLiteXmlException("own");
}

/// Every object is released once; its release may fail after that.
template <typename T>
void end(const T* object, const std::string& name) {
  EXPECT_EQ(g_library.live.erase(object), 1U) << name;
  delete object;
  call(name);
}

struct Element final : ILiteXmlElement {
  explicit Element(std::string what) : name(std::move(what)) { g_library.live.insert(this); }
  std::string get_text() override { return call("get"), "text"; }
  void set_text(const char* value) override { call(std::string("set=") + value); }
  void set_attribute(const char* key, const char* value) override {
    call(std::string(key) + "=" + value);
  }
  std::string get_attribute(const char* key) override { return call(key), "attribute"; }
  void append_child(ILiteXmlElement* child) override {
    call(name + "<" + static_cast<Element*>(child)->name);
  }
  ILiteXmlElement* select_single_node(const char* path) override {
    call(path);
    const bool match = g_library.matches.front() == 'y';
    g_library.matches.erase(0, 1);
    return match ? new Element(path) : nullptr;
  }
  void release() override { end(this, "~" + name); }
  std::string name;
};

struct Document final : ILiteXmlDocument {
  Document() { g_library.live.insert(this); }
  int load(const char* path) override { return call(std::string("load=") + path), g_library.load; }
  ILiteXmlElement* get_root() override {
    return call("root"), g_library.matches == "-" ? nullptr : new Element("root");
  }
  ILiteXmlElement* create_element(const char* name) override {
    return call(std::string("+") + name), new Element(std::string("+") + name);
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
  const auto set = [] { return CXmlEx::write_xml_node("f", "a/b", "v"); };
  const auto set_key = [] { return CXmlEx::write_xml_attribute("f", "a", "key", "v"); };
  const auto get = [&value] { return CXmlEx::read_xml_node("f", "a/b", value); };
  const auto get_key = [&value] { return CXmlEx::read_xml_attribute("f", "a", "key", value); };
  const auto add = [] { return CXmlEx::add_xml_xpath_node("f", "a/b"); };
  const auto add_flat = [] { return CXmlEx::add_xml_xpath_node("f", "a"); };
  const struct {
    std::function<bool()> operation;
    Library library;
    bool result;
    std::string calls, value;
  } kRows[] = {
      {set, {1, 1, "y"}, true, "root a/b set=v save=f ~a/b ~root ", ""},
      {set, {1, 0, "y"}, false, "root a/b set=v save=f ~a/b ~root ", ""},
      {set, {1, -1, "y"}, false, "root a/b set=v save=f ~a/b ~root ", ""},
      {set, {0, 1, "y"}, false, "", ""},
      {set, {1, 1, "n"}, false, "root a/b ~root ", ""},
      {set, {1, 1, "-"}, false, "root ", ""},
      {set_key, {1, 1, "y"}, true, "root a key=v save=f ~a ~root ", ""},
      {get, {-1, 0, "y"}, true, "root a/b get ~a/b ~root ", "text"},
      {get, {1, 1, "n"}, false, "root a/b ~root ", ""},
      {get_key, {1, 0, "y"}, true, "root a key ~a ~root ", "attribute"},
      {add, {0, 1, "y"}, true, "", ""},
      {add, {1, 0, "y"}, true, "root a/b ~a/b ~root ", ""},
      {add, {1, 1, "ny"}, true, "root a/b +b a a<+b save=f ~a ~+b ~root ", ""},
      {add, {1, 1, "nn"}, false, "root a/b +b a ~+b ~root ", ""},
      {add_flat, {1, 1, "ny"}, true, "root a +a a a<+a save=f ~a ~+a ~root ", ""},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.calls);
    g_library = row.library;
    value.clear();
    EXPECT_EQ(row.operation(), row.result);
    EXPECT_EQ(g_library.calls, "new load=f " + row.calls + "~doc ");
    EXPECT_EQ(value, row.value);
    EXPECT_TRUE(g_library.live.empty());

    value = "untouched";
    for (int fail = 2 * g_library.count + 1; fail > 1; --fail) {
      g_library = row.library;
      g_library.fail_at = fail / 2;
      g_library.foreign = fail % 2 == 1;
      if (g_library.foreign) {
        EXPECT_THROW(row.operation(), std::out_of_range) << fail / 2;
      } else {
        EXPECT_FALSE(row.operation()) << fail / 2;
      }
      EXPECT_TRUE(g_library.live.empty()) << fail / 2 << ": " << g_library.calls;
      const std::string last = fail / 2 == 1 ? "new " : "~doc ";
      EXPECT_EQ(g_library.calls.substr(g_library.calls.size() - last.size()), last);
    }
    EXPECT_EQ(value, "untouched");
  }
}

}  // namespace
