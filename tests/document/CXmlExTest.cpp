#include "utility/CXmlEx.h"

#include <gtest/gtest.h>
#include <litexml.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include "support/temp_dir.h"

namespace {

using utility::CXmlEx;

// What a rewrite from a tree would lose: blanks in tags, both kinds of quote, references, a DTD.
constexpr char kConfig[] =
    "\xef\xbb\xbf<?xml  version='1.0'\tencoding=\"UTF-8\" ?>\r\n"
    "<!-- head > -->\n"
    "<!DOCTYPE config [ <!ENTITY who \"me > you\"> ]>\n"
    "<?keep this=\"> </config>\"?>\n"
    "<config xmlns:s='urn:s'  version = '1'>\n"
    "\t<s:server   name='a&quot;b'\n  port=\"1\" />\n"
    "  <log><!-- c1 --> old &#65;&amp;B <!-- </log> --></log>\n"
    "  <query><![CDATA[a < b]]> </query>\n"
    "  <list>\n    <item id=\"1\">\xe4\xb8\xad</item>\n    <item id=\"2\"></item>\n  </list >\n"
    "  <mixed>one<b>bold</b>two<b/> </mixed>\n"
    "  <blank>   </blank><empty/>\n"
    "</config>\n<!-- tail -->\n";

struct Document {
  explicit Document(const char* file) {
    EXPECT_NE(handle->load(file), 0);
    root = own(handle->get_root());
  }
  using Element = std::unique_ptr<ILiteXmlElement, void (*)(ILiteXmlElement*)>;
  static Element own(ILiteXmlElement* element) {
    return {element, [](ILiteXmlElement* e) { e->release(); }};
  }
  std::unique_ptr<ILiteXmlDocument, void (*)(ILiteXmlDocument*)> handle{
      newXmlDocument(), [](ILiteXmlDocument* d) { d->release(); }};
  Element root{nullptr, nullptr};
};

class CXmlExTest : public ::testing::Test {
 protected:
  /// What xmllint takes the string value of `xpath` to be.
  std::string lint(const std::string& xpath) const {
    const std::string command =
        "xmllint --xpath \"string(" + xpath + ")\" " + file_ + " > " + (dir_ / "lint") + " 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0) << dir_.read("lint");
    std::string text = dir_.read("lint");
    if (!text.empty()) text.pop_back();
    return text;
  }
  TempDir dir_;
  std::string file_ = dir_.write("c.xml", kConfig);
};

TEST_F(CXmlExTest, ReadsTextAndAttributes) {
  const struct {
    const char* sentence;
    const char* xpath;
    const char* expected;
  } kRows[] = {
      {"references are resolved, comments left out", "log", " old A&B "},
      {"a path may begin at the document", "/config/log", " old A&B "},
      {"a CDATA section is text, blanks beside it are layout", "query", "a < b"},
      {"blank text is text where it is all", "blank", "   "},
      {"blanks between child elements are layout", "list", ""},
      {"text of children is not the element's", "mixed", "onetwo"},
      {"bytes as they are in the file", "list/item[@id='1']", "\xe4\xb8\xad"},
      {"an element without content", "empty", ""},
      {"the first match counts", "list/item", "\xe4\xb8\xad"},
  };
  for (const auto& row : kRows) {
    std::string value = "untouched";
    EXPECT_TRUE(CXmlEx::read_xml_node(file_, row.xpath, value)) << row.sentence;
    EXPECT_EQ(value, row.expected) << row.sentence;
  }
  std::string value;
  EXPECT_TRUE(CXmlEx::read_xml_attribute(file_, "s:server", "name", value));
  EXPECT_EQ(value, "a\"b");
  EXPECT_TRUE(CXmlEx::read_xml_attribute(file_, "s:server", "none", value));
  EXPECT_EQ(value, "");
}

TEST_F(CXmlExTest, ChangesNothingButThePlace) {
  const auto text = [this](const char* xpath, const char* value) {
    return CXmlEx::write_xml_node(file_, xpath, value);
  };
  const auto attribute = [this](const char* xpath, const char* name, const char* value) {
    return CXmlEx::write_xml_attribute(file_, xpath, name, value);
  };
  const auto add = [this](const char* xpath) { return CXmlEx::add_xml_xpath_node(file_, xpath); };
  const struct {
    const char* sentence;
    std::function<bool()> edit;
    const char* before;
    const char* after;
  } kRows[] = {
      {"text is escaped", [&] { return text("list/item", "<&>\"\r\n"); }, "\xe4\xb8\xad<",
       "&lt;&amp;&gt;\"&#13;\n<"},
      {"the first text is replaced, other text goes, comments stay",
       [&] { return text("log", "new"); }, "--> old &#65;&amp;B <!--", "-->new<!--"},
      {"text among children", [&] { return text("mixed", "x"); }, "one<b>bold</b>two<b/> ",
       "x<b>bold</b><b/> "},
      {"CDATA stays CDATA", [&] { return text("query", "x]]>y"); }, "a < b", "x]]]]><![CDATA[>y"},
      {"but not with a CR", [&] { return text("query", "\r"); }, "<![CDATA[a < b]]>", "&#13;"},
      {"an empty element is opened", [&] { return text("empty", "x"); }, "<empty/>",
       "<empty>x</empty>"},
      {"text goes into an element without any", [&] { return text("list/item[2]", "x"); },
       "\"2\"><", "\"2\">x<"},
      {"emptied", [&] { return text("blank", ""); }, ">   <", "><"},
      {"an attribute keeps its quotes", [&] { return attribute("s:server", "name", "'\t\"<"); },
       "a&quot;b", "&#39;&#9;\"&lt;"},
      {"a new attribute goes behind the others", [&] { return attribute("s:server", "x", "\"'"); },
       "port=\"1\" />", "port=\"1\" x=\"&quot;'\" />"},
      {"the root's too", [&] { return attribute(".", "version", "2"); }, "'1'>", "'2'>"},
      {"a new element goes last", [&] { return add("list/new"); }, "\n  </list >",
       "\n  <new/></list >"},
      {"into an empty element", [&] { return add("/config/empty/new"); }, "<empty/>",
       "<empty><new/></empty>"},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.sentence);
    dir_.write("c.xml", kConfig);
    EXPECT_TRUE(row.edit());
    std::string expected = kConfig;
    const std::size_t at = expected.find(row.before);
    ASSERT_NE(at, std::string::npos);
    expected.replace(at, std::strlen(row.before), row.after);
    EXPECT_EQ(dir_.read("c.xml"), expected);
    EXPECT_EQ(lint("/config/mixed/b"), "bold") << "for an independent parser";
  }
  EXPECT_TRUE(text("log", "a]]>\r\n\t<!--&amp;") && text("query", "]]>]]&gt;"));
  EXPECT_EQ(lint("/config/log"), "a]]>\r\n\t<!--&amp;");
  EXPECT_EQ(lint("/config/query"), "]]>]]&gt; ");
}

TEST_F(CXmlExTest, RefusesWithoutTouchingTheFile) {
  std::string value = "untouched";
  const auto path_rows = {"none", "@version", "log/text()", "count(log)", "a[", "", "log/\x01"};
  std::vector<std::function<bool()>> refused = {
      [&] { return CXmlEx::write_xml_node(file_, "log", "\x01"); },
      [&] { return CXmlEx::write_xml_node(file_, "log", "\xd6\xd0"); },
      [&] { return CXmlEx::write_xml_attribute(file_, "log", "a b", "x"); },
      [&] { return CXmlEx::write_xml_attribute(file_, "none", "a", "x"); },
      [&] { return CXmlEx::read_xml_attribute(file_, "none", "a", value); },
      [&] { return CXmlEx::add_xml_xpath_node(file_, "none/new"); },
      [&] { return CXmlEx::add_xml_xpath_node(file_, "new"); },
      [&] { return CXmlEx::add_xml_xpath_node(file_, "list/item[@id='3']"); },
      [&] { return !CXmlEx::add_xml_xpath_node(file_, "list/item"); },
  };
  for (const char* path : path_rows) {
    refused.emplace_back([&, path] { return CXmlEx::write_xml_node(file_, path, "x"); });
    refused.emplace_back([&, path] { return CXmlEx::read_xml_node(file_, path, value); });
  }
  for (const std::string& bad : {dir_ / "missing", dir_.path(), dir_.write("e", ""),
                                 dir_.write("cut", "<a><b></a>"), std::string("/dev/zero")}) {
    refused.emplace_back([&, bad] { return CXmlEx::write_xml_node(bad, "/a", "x"); });
    refused.emplace_back([&, bad] { return CXmlEx::read_xml_node(bad, "/a", value); });
    refused.emplace_back([&, bad] { return !CXmlEx::add_xml_xpath_node(bad, "/a/b"); });
  }
  struct stat before {};
  ASSERT_EQ(::stat(file_.c_str(), &before), 0);
  for (std::size_t i = 0; i < refused.size(); ++i) EXPECT_FALSE(refused[i]()) << "row " << i;
  EXPECT_EQ(value, "untouched");
  struct stat after {};
  ASSERT_EQ(::stat(file_.c_str(), &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_EQ(after.st_size, before.st_size);
  EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
  EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
  EXPECT_EQ(dir_.read("missing") + dir_.read("e"), "");
}

TEST_F(CXmlExTest, AFailedSaveLeavesTheFile) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{sizeof kConfig + 10, sizeof kConfig + 10};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    ::_exit(CXmlEx::write_xml_node(file_, "empty", std::string(100, 'x')) ? 1 : 0);
  }
  int status = 1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(dir_.read("c.xml"), kConfig);
}

// GBK: "zhong" is D6 D0; 81 5D ends in what looks like "]", 82 5C in a backslash.
TEST_F(CXmlExTest, KeepsOtherEncodings) {
  const std::string head = "<?xml version=\"1.0\" encoding=\"GBK\"?>\n<r>";
  const std::string tail = "<!--\x82\x5c--><n a='\xd6\xd0'/><t><![CDATA[\x81\x5d]>]]></t></r>\n";
  dir_.write("c.xml", head + "<\xd6\xd0\x82\x5c>&#20013;x</\xd6\xd0\x82\x5c>" + tail);
  std::string value;
  EXPECT_TRUE(CXmlEx::read_xml_node(file_, "\xd6\xd0\x82\x5c", value));
  EXPECT_EQ(value, "\xd6\xd0x");
  EXPECT_TRUE(CXmlEx::read_xml_node(file_, "t", value));
  EXPECT_EQ(value, "\x81\x5d]>");
  EXPECT_TRUE(CXmlEx::write_xml_node(file_, "\xd6\xd0\x82\x5c", "\xb9\xfa<"));
  EXPECT_FALSE(CXmlEx::write_xml_node(file_, "t", "\xff\xff"));
  EXPECT_TRUE(CXmlEx::read_xml_attribute(file_, "n[@a='\xd6\xd0']", "a", value));
  EXPECT_EQ(value, "\xd6\xd0");
  EXPECT_EQ(dir_.read("c.xml"), head + "<\xd6\xd0\x82\x5c>\xb9\xfa&lt;</\xd6\xd0\x82\x5c>" + tail);
  EXPECT_EQ(lint("/r/*[1]"), "\xe5\x9b\xbd<");

  dir_.write("gbk", "<?xml version=\"1.0\"?><r><a>\xd6\xd0</a></r>");
  EXPECT_TRUE(CXmlEx::write_xml_node(dir_ / "gbk", "a", "\xb9\xfa")) << "undeclared: bytes";
  EXPECT_EQ(dir_.read("gbk"), "<?xml version=\"1.0\"?><r><a>\xb9\xfa</a></r>");

  const std::string utf16 =
      "printf '<r><a>x</a> \\344\\270\\255</r>' | iconv -t UTF-16 -f UTF-8 > ";
  ASSERT_EQ(std::system((utf16 + file_).c_str()), 0);
  EXPECT_TRUE(CXmlEx::write_xml_node(file_, "a", "\xe4\xb8\xad"));
  EXPECT_EQ(lint("/r"), "\xe4\xb8\xad \xe4\xb8\xad");
}

TEST_F(CXmlExTest, TakesLargeFiles) {
  std::string big = "<r>";
  for (int i = 0; big.size() < 10'000'000; ++i) {
    big += "<e i='" + std::to_string(i) + "'>text\n<!-- c --></e>\n";
  }
  dir_.write("c.xml", big + "<last/></r>");
  EXPECT_TRUE(CXmlEx::write_xml_node(file_, "last", "x"));
  EXPECT_EQ(dir_.read("c.xml"), big + "<last>x</last></r>");
}

TEST_F(CXmlExTest, TheDocumentTakesManyEdits) {
  Document document(file_.c_str());
  const auto list = Document::own(document.root->select_single_node("list"));
  const auto item = Document::own(list->select_single_node("item[2]"));
  const auto fresh = Document::own(document.handle->create_element("fresh"));
  const auto inner = Document::own(document.handle->create_element("inner"));
  fresh->set_attribute("a", "1");
  fresh->append_child(inner.get());
  inner->set_text("deep");
  document.root->set_attribute("shifted", "yes");
  item->append_child(fresh.get());
  list->set_attribute("b", "2");
  inner->set_text("deeper");
  item->set_text("text");
  EXPECT_THROW(item->append_child(fresh.get()), CLiteXmlException) << "it is in already";
  EXPECT_THROW(item->append_child(nullptr), CLiteXmlException);
  EXPECT_EQ(inner->get_text() + fresh->get_attribute("a") + item->get_text(), "deeper1text");
  EXPECT_GT(document.handle->save(file_.c_str()), 0);
  EXPECT_NE(dir_.read("c.xml").find("<list b=\"2\">\n    <item id=\"1\">\xe4\xb8\xad</item>\n    "
                                    "<item id=\"2\">text<fresh a=\"1\"><inner>deeper</inner>"
                                    "</fresh></item>\n  </list >"),
            std::string::npos);
  EXPECT_EQ(lint("/config/@shifted"), "yes");
}

}  // namespace
