#include "utility/CXmlEx.h"

#include <gtest/gtest.h>
#include <litexml.h>
#include <sys/resource.h>

#include <csignal>

#include "support/cases.h"
#include "support/sandbox.h"

using utility::CXmlEx;

TEST(CXmlEx, ReadsAndEditsInPlace) {
  static_cast<void>(::signal(SIGXFSZ, SIG_IGN));
  const auto limit_files = [](rlim_t size) {
    const rlimit limit{size, RLIM_INFINITY};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  };
  run_cases(FIXTURES "/edits.txt", {{"read_xml_node", call(CXmlEx::read_xml_node)},
                                    {"read_xml_attribute", call(CXmlEx::read_xml_attribute)},
                                    {"write_xml_node", call(CXmlEx::write_xml_node)},
                                    {"write_xml_attribute", call(CXmlEx::write_xml_attribute)},
                                    {"add_xml_xpath_node", call(CXmlEx::add_xml_xpath_node)},
                                    {"limit_files", call(limit_files)}});
}

TEST(CXmlEx, TheDocumentTakesManyEdits) {
  sandbox::write_file("c.xml", sandbox::read_file(FIXTURES "/config.xml"));
  ILiteXmlDocument* const document = newXmlDocument();
  ASSERT_NE(document->load("c.xml"), 0);
  ILiteXmlElement* const root = document->get_root();
  ILiteXmlElement* const item = root->select_single_node("list/item[2]");
  ILiteXmlElement* const fresh = document->create_element("fresh");
  ILiteXmlElement* const inner = document->create_element("inner");
  fresh->set_attribute("a", "1");
  fresh->append_child(inner);
  EXPECT_THROW(root->append_child(inner), CLiteXmlException) << "it is in the other";
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
  EXPECT_EQ(sandbox::output_of("xmllint --xpath 'string(/config[@shifted=\"yes\"]/list/item[2]/"
                               "fresh[@a=1]/inner)' c.xml"),
            "deeper\n");
}
