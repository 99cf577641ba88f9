#include "utility/CXmlEx.h"

#include <gtest/gtest.h>
#include <litexml.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "support/cases.h"
#include "support/sandbox.h"

namespace {

namespace fs = std::filesystem;
using utility::CXmlEx;

// Holds what a rewrite from a tree would lose: blanks in tags, both kinds of quote, references, a
// DTD.
const std::string kConfig = sandbox::read_file(FIXTURES "/config.xml");
std::string s_file = "c.xml";

bool text(const std::string& xpath, const std::string& value) {
  return CXmlEx::write_xml_node(s_file, xpath, value);
}
bool attribute(const std::string& xpath, const std::string& name, const std::string& value) {
  return CXmlEx::write_xml_attribute(s_file, xpath, name, value);
}
bool add(const std::string& xpath) { return CXmlEx::add_xml_xpath_node(s_file, xpath); }

/// The file after the text of a node of `document` is set.
std::string edited(const std::string& document, const char* xpath, const std::string& value) {
  sandbox::write_file("c.xml", document);
  EXPECT_TRUE(text(xpath, value)) << xpath;
  return sandbox::read_file("c.xml");
}
/// The node's text, or its attribute where `name` is given.
std::string get(const std::string& xpath, const char* name = nullptr) {
  std::string value = "unread";
  const bool done = name == nullptr ? CXmlEx::read_xml_node(s_file, xpath, value)
                                    : CXmlEx::read_xml_attribute(s_file, xpath, name, value);
  EXPECT_EQ(done, value != "unread");
  return value;
}
/// What xmllint takes the string value of `xpath` to be, with a line end.
std::string lint(const std::string& xpath) {
  return sandbox::output_of("xmllint --xpath 'string(" + xpath + ")' c.xml 2>&1");
}

}  // namespace

TEST(CXmlEx, ReadsAndChangesNothingButThePlace) {
  // A check of `change(row)`, which the file is to show and an independent parser to understand.
  const auto changes = [](auto change) {
    return [change](const Case& row) {
      sandbox::write_file("c.xml", kConfig);
      EXPECT_TRUE(change(row));
      std::string expected = kConfig;
      expected.replace(expected.find(row["before"]), row["before"].size(), row["after"]);
      EXPECT_EQ(sandbox::read_file("c.xml"), expected);
      EXPECT_EQ(lint("/config/mixed/b"), "bold\n");
    };
  };
  const auto set_text = [](const Case& row) { return text(row["xpath"], row["value"]); };
  const auto set_attribute = [](const Case& row) {
    return attribute(row["xpath"], row["name"], row["value"]);
  };
  const auto read = [](const Case& row) { row.expect("value", get(row["xpath"])); };
  for_each_case(FIXTURES "/edits.txt",
                {{"text", changes(set_text)},
                 {"attribute", changes(set_attribute)},
                 {"add", changes([](const Case& row) { return add(row["xpath"]); })},
                 {"read", [read](const Case& row) {
                    sandbox::write_file("c.xml", kConfig);
                    read(row);
                  }}});
  EXPECT_EQ(get("s:server", "name") + get("s:server", "none"), "a\"b");
  EXPECT_EQ(edited("<a>\n <b/>text</a>", "/a", "x"), "<a>\n <b/>x</a>") << "layout before a child";
  sandbox::write_file("c.xml", kConfig);
  EXPECT_TRUE(text("log", "a]]>\r\n\t<!--&amp;") && text("query", "]]>]]&gt;"));
  EXPECT_EQ(lint("/config/log") + lint("/config/query"), "a]]>\r\n\t<!--&amp;\n\n]]>]]&gt; \n");
}

TEST(CXmlEx, RefusesWithoutTouchingTheFile) {
  sandbox::write_file("c.xml", kConfig);
  const auto before = fs::last_write_time("c.xml");
  for (const char* path : {"none", "@version", "log/text()", "count(log)", "a[", "", "\x01"}) {
    EXPECT_FALSE(text(path, "x") || attribute(path, "a", "x")) << path;
    EXPECT_EQ(get(path) + get(path, "a"), "unreadunread") << path;
  }
  EXPECT_FALSE(text("log", "\x01") || text("log", "\xd6\xd0") || attribute("log", "a b", "x"));
  EXPECT_FALSE(add("none/new") || add("new") || add("list/item[@id='3']"));
  EXPECT_TRUE(add("list/item"));
  EXPECT_EQ(fs::last_write_time("c.xml"), before);
  EXPECT_EQ(sandbox::read_file("c.xml"), kConfig);
  sandbox::write_file("none", "");
  sandbox::write_file("cut", "<a><b></a>");
  for (const char* bad : {"missing", ".", "none", "cut", "/dev/zero"}) {
    s_file = bad;
    EXPECT_FALSE(text("/a", "x") || attribute("/a", "b", "x")) << bad;
    EXPECT_EQ(get("/a") + get("/a", "b"), "unreadunread") << bad;
    EXPECT_TRUE(add("/a/b")) << bad << ": counts as done";
  }
  EXPECT_FALSE(fs::exists("missing") || fs::file_size("none") > 0);

  s_file = sandbox::write_file("c.xml", kConfig);
  const auto with_little_room = [] {
    const rlimit limit{kConfig.size() + 10, kConfig.size() + 10};
    static_cast<void>(::signal(SIGXFSZ, SIG_IGN));
    ::setrlimit(RLIMIT_FSIZE, &limit);
    ::_exit(text("empty", std::string(100, 'x')) || add("list/a_name_too_many") ? 1 : 0);
  };
  EXPECT_EXIT(with_little_room(), testing::ExitedWithCode(0), "");
  EXPECT_EQ(sandbox::read_file("c.xml"), kConfig) << "a failed save";
}

TEST(CXmlEx, KeepsOtherEncodings) {
  // In GBK, 81 5D ends in what looks like "]", 82 5C in a backslash, which no name may hold.
  const std::string head = "<?xml version=\"1.0\" encoding=\"GBK\"?>\n<r><\xd6\xd0\x82\x5c>";
  const std::string tail =
      "</\xd6\xd0\x82\x5c><!--\x82\x5c--><n a='\xd6\xd0'/>"
      "<t><![CDATA[\x81\x5d]>]]></t></r>\n";
  sandbox::write_file("c.xml", head + "&#20013;x" + tail);
  EXPECT_EQ(get("\xd6\xd0\x82\x5c") + get("n[@a='\xd6\xd0']", "a"), "\xd6\xd0x\xd6\xd0");
  EXPECT_EQ(get("t"), "\x81\x5d]>");
  EXPECT_FALSE(text("t", "\xff\xff"));
  EXPECT_EQ(edited(head + tail, "\xd6\xd0\x82\x5c", "\xb9\xfa<"), head + "\xb9\xfa&lt;" + tail);
  EXPECT_EQ(lint("/r/*[1]"), "\xe5\x9b\xbd<\n");
  const std::string lower_case = "<?xml version='1.0' encoding='gbk'?>";
  EXPECT_EQ(edited(lower_case + "<a/>", "/a", "\xd6\xd0"), lower_case + "<a>\xd6\xd0</a>");
  EXPECT_EQ(lint("/a"), "\xe4\xb8\xad\n");
  for (const std::string none : {"", "<?xml version='1.0' encoding='UTF-16'?>"}) {
    EXPECT_EQ(edited(none + "<a>\xd6\xd0</a>", "/a", "\xb9\xfa"), none + "<a>\xb9\xfa</a>");
  }
  const auto utf16 = [](const std::u16string& text) {
    return std::string(reinterpret_cast<const char*>(text.data()), 2 * text.size());
  };
  const std::string wide = utf16(u"\ufeff<a>x</a>");
  EXPECT_EQ(edited(wide, "/a", "\xe4\xb8\xad"), utf16(u"\ufeff<a>\u4e2d</a>"));
  sandbox::write_file("c.xml", "\xff\xfe<r>x</r>\n");
  EXPECT_FALSE(text("/r", "")) << "one byte less, and it were valid UTF-16";
  std::string large = "<r>";
  while (large.size() < 10'000'000) large += "<e i='1'>text\n<!-- c --></e>\n";
  EXPECT_TRUE(edited(large + "<last/></r>", "last", "x") == large + "<last>x</last></r>");
}

TEST(CXmlEx, TheDocumentTakesManyEdits) {
  sandbox::write_file("c.xml", kConfig);
  ILiteXmlDocument* const document = newXmlDocument();
  ASSERT_NE(document->load("c.xml"), 0);
  ILiteXmlElement* const root = document->get_root();
  ILiteXmlElement* const item = root->select_single_node("list/item[2]");
  ILiteXmlElement* const fresh = document->create_element("fresh");
  ILiteXmlElement* const inner = document->create_element("inner");
  fresh->set_attribute("a", "1");
  fresh->append_child(inner);
  inner->set_text("deep");
  root->set_attribute("shifted", "yes");
  EXPECT_THROW(fresh->append_child(item), CLiteXmlException) << "only what was created";
  item->append_child(fresh);
  inner->set_text("deeper");
  item->set_text("text");
  EXPECT_THROW(item->append_child(fresh), CLiteXmlException) << "it is in already";
  EXPECT_EQ(inner->get_text() + fresh->get_attribute("a") + item->get_text(), "deeper1text");
  EXPECT_GT(document->save("c.xml"), 0);
  for (ILiteXmlElement* element : {inner, fresh, item, root}) element->release();
  document->release();
  EXPECT_EQ(lint("/config[@shifted=\"yes\"]/list/item[2]/fresh[@a=1]/inner"), "deeper\n");
}
