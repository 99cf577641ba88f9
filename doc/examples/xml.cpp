// Reads and edits single nodes of an XML file; everything else in it keeps its bytes.

#include <utility/CXmlEx.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>

int main() {
  using utility::CXmlEx;
  const std::string file = "agent.xml";
  std::ofstream(file) << "<config>\n  <!-- seconds -->\n  <every>60</every>\n</config>\n";

  std::string every;
  if (!CXmlEx::read_xml_node(file, "every", every)) return 1;
  std::printf("every %s seconds\n", every.c_str());

  if (!CXmlEx::write_xml_node(file, "every", "30")) return 1;
  if (!CXmlEx::write_xml_attribute(file, "every", "unit", "s")) return 1;
  if (!CXmlEx::add_xml_xpath_node(file, "/config/log")) return 1;

  std::cout << std::ifstream(file).rdbuf();
  return 0;
}
