#include "utility/CXmlEx.h"

#include <gtest/gtest.h>
#include <litexml.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>

#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using utility::CXmlEx;

// What a rewrite from a tree would lose: blanks in tags, both kinds of quote, references, a DTD.
constexpr char kConfig[] =
    "\xef\xbb\xbf<?xml  version='1.0'\tencoding=\"UTF-8\" ?>\r\n<!-- head > -->\n"
    "<!DOCTYPE config [ <!ENTITY who \"me > you\"> ]>\n<?keep this=\"> </config>\"?>\n"
    "<config xmlns:s='urn:s'  version = '1'>\n\t<s:server   name='a&quot;b'\n  port=\"1\" />\n"
    "  <log><!-- c1 --> old &#65;&amp;B <!-- </log> --></log>\n"
    "  <query>\n<![CDATA[a < b]]> </query>\n"
    "  <list>\n    <item id=\"1\">\xe4\xb8\xad</item>\n    <item id=\"2\"></item>\n  </list >\n"
    "  <mixed>one<b>bold</b>two<b/> </mixed>\n  <blank>   </blank><empty/>\n"
    "</config>\n<!-- tail -->\n";

class CXmlExTest : public ::testing::Test {
 protected:
  bool text(const char* xpath, const std::string& value) const {
    return CXmlEx::write_xml_node(file_, xpath, value);
  }
  bool attribute(const char* xpath, const char* name, const char* value) const {
    return CXmlEx::write_xml_attribute(file_, xpath, name, value);
  }
  bool add(const char* xpath) const { return CXmlEx::add_xml_xpath_node(file_, xpath); }
  /// The file with the text of a node set.
  std::string edited(const char* xpath, const std::string& value) const {
    EXPECT_TRUE(text(xpath, value)) << xpath;
    return dir_.read("c.xml");
  }
  /// The node's text, or its attribute where `name` is given.
  std::string get(const char* xpath, const char* name = nullptr) const {
    std::string value = "unread";
    const bool done = name == nullptr ? CXmlEx::read_xml_node(file_, xpath, value)
                                      : CXmlEx::read_xml_attribute(file_, xpath, name, value);
    EXPECT_EQ(done, value != "unread");
    return value;
  }
  /// What xmllint takes the string value of `xpath` to be.
  std::string lint(const std::string& xpath) const {
    const std::string out = dir_ / "lint";
    const std::string command = "xmllint --xpath \"string(" + xpath + ")\" " + file_;
    EXPECT_EQ(std::system((command + " > " + out + " 2>&1").c_str()), 0) << dir_.read("lint");
    const std::string value = dir_.read("lint");
    return value.substr(0, value.size() - 1);
  }
  TempDir dir_;
  std::string file_ = dir_.write("c.xml", kConfig);
};

TEST_F(CXmlExTest, ReadsTextAndAttributes) {
  const std::pair<const char*, const char*> kRows[] = {{"log", " old A&B "},
                                                       {"/config/log", " old A&B "},
                                                       {"query", "a < b"},
                                                       {"blank", "   "},
                                                       {"list", ""},
                                                       {"mixed", "onetwo"},
                                                       {"list/item[@id='2']", ""},
                                                       {"list/item", "\xe4\xb8\xad"}};
  for (const auto& [xpath, expected] : kRows) EXPECT_EQ(get(xpath), expected) << xpath;
  EXPECT_EQ(get("s:server", "name") + get("s:server", "none"), "a\"b");
}

TEST_F(CXmlExTest, ChangesNothingButThePlace) {
  // Without a name it is the text that is set; without a value an element is added.
  const struct {
    const char *xpath, *name, *value, *before, *after;
  } kRows[] = {
      {"list/item", nullptr, "<&>\r\n", "\xe4\xb8\xad<", "&lt;&amp;&gt;&#13;\n<"},
      {"log", nullptr, "new", "--> old &#65;&amp;B <!--", "-->new<!--"},
      {"mixed", nullptr, "x", "one<b>bold</b>two<b/> ", "x<b>bold</b><b/> "},
      {"query", nullptr, "x]]>y", "a < b", "x]]]]><![CDATA[>y"},
      {"query", nullptr, "\r", "\n<![CDATA[a < b]]> <", "&#13;<"},
      {"empty", nullptr, "x", "<empty/>", "<empty>x</empty>"},
      {"list/item[2]", nullptr, "x", "\"2\"><", "\"2\">x<"},
      {"blank", nullptr, "", ">   <", "><"},
      {"s:server", "name", "'\t\"<", "a&quot;b", "&#39;&#9;\"&lt;"},
      {"s:server", "x", "\"'\n", "\"1\" />", "\"1\" x=\"&quot;'&#10;\" />"},
      {".", "version", "2", "'1'>", "'2'>"},
      {"/config/new", nullptr, nullptr, "\n</config>\n<!", "\n<new/></config>\n<!"},
      {"/config/empty/new", nullptr, nullptr, "<empty/>", "<empty><new/></empty>"},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.after);
    dir_.write("c.xml", kConfig);
    EXPECT_TRUE(row.value == nullptr  ? add(row.xpath)
                : row.name == nullptr ? text(row.xpath, row.value)
                                      : attribute(row.xpath, row.name, row.value));
    std::string expected = kConfig;
    expected.replace(expected.find(row.before), std::strlen(row.before), row.after);
    EXPECT_EQ(dir_.read("c.xml"), expected);
    EXPECT_EQ(lint("/config/mixed/b"), "bold") << "for an independent parser";
  }
  dir_.write("c.xml", "<a>\n <b/>text</a>");
  EXPECT_EQ(edited("/a", "x"), "<a>\n <b/>x</a>") << "layout before an earlier child stays";
  dir_.write("c.xml", kConfig);
  EXPECT_TRUE(text("log", "a]]>\r\n\t<!--&amp;") && text("query", "]]>]]&gt;"));
  EXPECT_EQ(lint("/config/log") + lint("/config/query"), "a]]>\r\n\t<!--&amp;\n]]>]]&gt; ");
}

TEST_F(CXmlExTest, RefusesWithoutTouchingTheFile) {
  const auto before = fs::last_write_time(file_);
  for (const char* path : {"none", "@version", "log/text()", "count(log)", "a[", "", "\x01"}) {
    EXPECT_FALSE(text(path, "x") || attribute(path, "a", "x")) << path;
    EXPECT_EQ(get(path) + get(path, "a"), "unreadunread") << path;
  }
  EXPECT_FALSE(text("log", "\x01") || text("log", "\xd6\xd0") || attribute("log", "a b", "x"));
  EXPECT_FALSE(add("none/new") || add("new") || add("list/item[@id='3']"));
  EXPECT_TRUE(add("list/item"));
  EXPECT_EQ(fs::last_write_time(file_), before);
  EXPECT_EQ(dir_.read("c.xml"), kConfig);
  for (const std::string& bad : {dir_ / "missing", dir_.path(), dir_.write("none", ""),
                                 dir_.write("cut", "<a><b></a>"), std::string("/dev/zero")}) {
    file_ = bad;
    EXPECT_FALSE(text("/a", "x") || attribute("/a", "b", "x")) << bad;
    EXPECT_EQ(get("/a") + get("/a", "b"), "unreadunread") << bad;
    EXPECT_TRUE(add("/a/b")) << bad << ": counts as done";
  }
  EXPECT_EQ(dir_.read("missing") + dir_.read("none"), "");
}

TEST_F(CXmlExTest, AFailedSaveLeavesTheFile) {
  const auto with_little_room = [this] {
    const rlimit limit{sizeof kConfig + 10, sizeof kConfig + 10};
    static_cast<void>(::signal(SIGXFSZ, SIG_IGN));
    ::setrlimit(RLIMIT_FSIZE, &limit);
    ::_exit(text("empty", std::string(100, 'x')) || add("list/a_name_too_many") ? 1 : 0);
  };
  EXPECT_EXIT(with_little_room(), testing::ExitedWithCode(0), "");
  EXPECT_EQ(dir_.read("c.xml"), kConfig);
}

TEST_F(CXmlExTest, KeepsOtherEncodings) {
  // In GBK, 81 5D ends in what looks like "]", 82 5C in a backslash, which no name may hold.
  const std::string head = "<?xml version=\"1.0\" encoding=\"GBK\"?>\n<r><\xd6\xd0\x82\x5c>";
  const std::string tail =
      "</\xd6\xd0\x82\x5c><!--\x82\x5c--><n a='\xd6\xd0'/>"
      "<t><![CDATA[\x81\x5d]>]]></t></r>\n";
  dir_.write("c.xml", head + "&#20013;x" + tail);
  EXPECT_EQ(get("\xd6\xd0\x82\x5c") + get("n[@a='\xd6\xd0']", "a"), "\xd6\xd0x\xd6\xd0");
  EXPECT_EQ(get("t"), "\x81\x5d]>");
  EXPECT_FALSE(text("t", "\xff\xff"));
  EXPECT_EQ(edited("\xd6\xd0\x82\x5c", "\xb9\xfa<"), head + "\xb9\xfa&lt;" + tail);
  EXPECT_EQ(lint("/r/*[1]"), "\xe5\x9b\xbd<");

  const std::string lower_case = "<?xml version='1.0' encoding='gbk'?>";
  dir_.write("c.xml", lower_case + "<a/>");
  EXPECT_EQ(edited("/a", "\xd6\xd0"), lower_case + "<a>\xd6\xd0</a>");
  EXPECT_EQ(lint("/a"), "\xe4\xb8\xad");

  for (const std::string none : {"", "<?xml version='1.0' encoding='UTF-16'?>"}) {
    dir_.write("c.xml", none + "<a>\xd6\xd0</a>");
    EXPECT_EQ(edited("/a", "\xb9\xfa"), none + "<a>\xb9\xfa</a>") << "bytes are bytes";
  }
  const auto utf16 = [](const std::u16string& text) {
    return std::string(reinterpret_cast<const char*>(text.data()), 2 * text.size());
  };
  dir_.write("c.xml", utf16(u"\ufeff<a>x</a>"));
  EXPECT_EQ(edited("/a", "\xe4\xb8\xad"), utf16(u"\ufeff<a>\u4e2d</a>"));

  dir_.write("c.xml", "\xff\xfe<r>x</r>\n");
  EXPECT_FALSE(text("/r", "")) << "one byte less, and it were valid UTF-16";

  std::string large = "<r>";
  while (large.size() < 10'000'000) large += "<e i='1'>text\n<!-- c --></e>\n";
  dir_.write("c.xml", large + "<last/></r>");
  EXPECT_TRUE(edited("last", "x") == large + "<last>x</last></r>");
}

TEST_F(CXmlExTest, TheDocumentTakesManyEdits) {
  ILiteXmlDocument* const document = newXmlDocument();
  ASSERT_NE(document->load(file_.c_str()), 0);
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
  EXPECT_GT(document->save(file_.c_str()), 0);
  for (ILiteXmlElement* element : {inner, fresh, item, root}) element->release();
  document->release();
  EXPECT_EQ(lint("/config[@shifted='yes']/list/item[2]/fresh[@a=1]/inner"), "deeper");
}

}  // namespace
