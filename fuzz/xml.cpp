// XML files: what is written is read back, what is refused leaves the file, and writing the same
// again changes nothing.
#include "fuzz.h"

using utility::CXmlEx;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string xml = scratch_file("t.xml");
  Input input(data, size);
  const std::string path = input.text('\n'), new_path = input.text('\n'), name = input.text('\n');
  const std::string value = input.text('\x1e'), c_value = value.c_str(), document = input.rest();
  std::string seen = "kept";

  write_file(xml, document);
  if (!CXmlEx::read_xml_node(xml, path, seen)) check(seen == "kept", "a refusal leaves the value");
  check(read_file(xml) == document, "reading changes nothing");

  // Does it to a fresh file twice; the second time must change nothing more than to shorten it.
  const auto twice = [&](auto operation) {
    write_file(xml, document);
    const bool done = operation();
    const std::string written = read_file(xml);
    check(done || written == document, "what is refused leaves the file");
    check(!done || (operation() && read_file(xml).size() <= written.size()), "again is the same");
    return done;
  };
  if (twice([&] { return CXmlEx::write_xml_node(xml, path, value); })) {
    check(CXmlEx::read_xml_node(xml, path, seen), "text is read back");
    check(seen == c_value || seen.size() < value.size(), "it is what was written");
  }
  if (twice([&] { return CXmlEx::write_xml_attribute(xml, path, name, value); })) {
    check(CXmlEx::read_xml_attribute(xml, path, name, seen) && seen == c_value, "so is a value");
  }
  twice([&] { return CXmlEx::add_xml_xpath_node(xml, new_path); });
  return 0;
}
