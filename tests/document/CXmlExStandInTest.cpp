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
  int fail_at = 1000;
  /// A failure is the library's own; or not, and then all calls behind it fail as well.
  bool foreign = false;
  std::string calls = {};
  int count = 0;
  std::set<const void*> live = {};
};
Library g_library;

void call(const std::string& name) {
  g_library.calls += name + " ";
  const int behind = ++g_library.count - g_library.fail_at;
  if (behind < 0 || (behind > 0 && !g_library.foreign)) return;
  if (g_library.foreign) throw std::out_of_range("foreign");
  throw CLiteXmlException("own");
}

/// A document or an element. Each is released once; its release may fail after that.
struct Object final : ILiteXmlDocument, ILiteXmlElement {
  explicit Object(std::string what) : name(std::move(what)) { g_library.live.insert(this); }
  void release() override {
    const std::string released = "~" + name;
    EXPECT_EQ(g_library.live.erase(this), 1U) << released;
    delete this;
    call(released);
  }
  int load(const char* path) override { return call("load=" + std::string(path)), g_library.load; }
  int save(const char* path) override { return call("save=" + std::string(path)), g_library.save; }
  ILiteXmlElement* get_root() override {
    return call("root"), g_library.matches == "-" ? nullptr : new Object("root");
  }
  ILiteXmlElement* create_element(const char* tag) override {
    return call("+" + std::string(tag)), new Object("+" + std::string(tag));
  }
  ILiteXmlElement* select_single_node(const char* path) override {
    call(path);
    const bool match = g_library.matches.front() == 'y';
    g_library.matches.erase(0, 1);
    return match ? new Object(path) : nullptr;
  }
  void append_child(ILiteXmlElement* child) override {
    call(name + "<" + static_cast<Object*>(child)->name);
  }
  std::string get_text() override { return call("get"), "text"; }
  void set_text(const char* value) override { call("set=" + std::string(value)); }
  std::string get_attribute(const char* key) override { return call(key), "attribute"; }
  void set_attribute(const char* key, const char* value) override {
    call(key + std::string("=") + value);
  }
  std::string name;
};

}  // namespace

ILiteXmlDocument* newXmlDocument() {
  return call("new"), new Object("doc");
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
    for (int fail_at = g_library.count; fail_at > 0; --fail_at) {
      for (const bool foreign : {false, true}) {
        g_library = row.library;
        g_library.fail_at = fail_at;
        g_library.foreign = foreign;
        if (foreign) {
          EXPECT_THROW(row.operation(), std::out_of_range) << fail_at;
        } else {
          EXPECT_FALSE(row.operation()) << fail_at;
        }
        EXPECT_TRUE(g_library.live.empty()) << fail_at << ": " << g_library.calls;
        EXPECT_EQ(g_library.calls.find("~doc ") == std::string::npos, fail_at == 1) << fail_at;
      }
    }
    EXPECT_EQ(value, "untouched");
  }
}

}  // namespace
