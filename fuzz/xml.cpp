// XML files: what is written is read back, what is refused leaves the file, and writing the same
// again changes nothing.
#include "fuzz.h"
#include "utility/CXmlEx.h"

using utility::CXmlEx;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const ScratchFile file("t.xml");
  Input input(data, size);
  const std::string path = input.text('\n');
  const std::string new_path = input.text('\n');
  const std::string name = input.text('\n');
  const std::string value = input.text('\x1e');
  const std::string document = input.rest();
  const std::string& xml = file.path;
  const std::string c_value = value.c_str();
  std::string seen = "kept";

  file.write(document);
  if (!CXmlEx::read_xml_node(xml, path, seen)) check(seen == "kept", "a refusal leaves the value");
  check(read_file(xml) == document, "reading changes nothing");

  if (CXmlEx::write_xml_node(xml, path, value)) {
    const std::string written = read_file(xml);
    check(CXmlEx::read_xml_node(xml, path, seen) && (seen == c_value || seen.size() < value.size()),
          "text is read back");
    check(CXmlEx::write_xml_node(xml, path, seen) && read_file(xml).size() <= written.size(),
          "text written again is the same");
  } else {
    check(read_file(xml) == document, "refused text leaves the file");
  }

  file.write(document);
  if (CXmlEx::write_xml_attribute(xml, path, name, value)) {
    const std::string written = read_file(xml);
    check(CXmlEx::read_xml_attribute(xml, path, name, seen) && seen == c_value,
          "an attribute is read back");
    check(CXmlEx::write_xml_attribute(xml, path, name, value) && read_file(xml) == written,
          "an attribute written again is the same");
  } else {
    check(read_file(xml) == document, "a refused attribute leaves the file");
  }

  file.write(document);
  if (CXmlEx::add_xml_xpath_node(xml, new_path)) {
    const std::string added = read_file(xml);
    check(CXmlEx::add_xml_xpath_node(xml, new_path) && read_file(xml) == added,
          "what is there is not added");
  } else {
    check(read_file(xml) == document, "a refused element leaves the file");
  }
  return 0;
}
