#pragma once

#include <string>

#include "utility/Export.h"

namespace utility {

/// One-shot access to a node of an XML file: each call opens the file, works on one node, and saves
/// only if it changed something.
///
/// The work is done by the document library `liblitexml_linux.so`. The path expression goes to it
/// unchanged: an XPath 1.0 expression, evaluated at the root element ("server/port" is below the
/// root, "/config/server/port" names the root too); the first match counts, and it must be an
/// element.
///
/// Strings are bytes in the file's own encoding, as its declaration has it (UTF-8 without one), and
/// end at their first NUL byte. Values are plain text; what XML needs escaped is escaped. An edit
/// keeps every byte of the file outside the place edited. The file is rewritten in place, so owner,
/// mode and links stay; it is not locked. It is written at once: a crash leaves the old file or the
/// new one, the latter perhaps with blanks after it up to the old size.
///
/// A malformed expression, a value that XML or the encoding cannot hold, and whatever else the
/// document library refuses read as false. Only what is no `CLiteXmlException` of that library,
/// memory running short above all, passes through as the exception it is. Everything obtained is
/// released on every path. All operations may run on several threads at once, on different files.
class UTILITY_API CXmlEx {
 public:
  /// Sets the text of the node at `xpath`; its child elements stay.
  ///
  /// @return false when the file cannot be read as XML, nothing matches, or saving fails. On
  ///         failure the file is as it was, unless the disk fails in the middle of writing.
  static bool write_xml_node(const std::string& file, const std::string& xpath,
                             const std::string& value);

  /// Sets the attribute `name` of the node at `xpath`, which need not have it yet.
  ///
  /// @return as `write_xml_node`; false also when `name` is no XML name.
  static bool write_xml_attribute(const std::string& file, const std::string& xpath,
                                  const std::string& name, const std::string& value);

  /// Reads the text of the node at `xpath`: its own text and CDATA sections, joined, without that
  /// of its child elements and without the line breaks and blanks between these.
  ///
  /// @return false when the file cannot be read as XML or nothing matches. On failure `value` is
  ///         untouched.
  static bool read_xml_node(const std::string& file, const std::string& xpath, std::string& value);

  /// Reads the attribute `name` of the node at `xpath`; a missing attribute reads as an empty
  /// value.
  ///
  /// @return as `read_xml_node`.
  static bool read_xml_attribute(const std::string& file, const std::string& xpath,
                                 const std::string& name, std::string& value);

  /// Creates the last step of `xpath` as an empty element if nothing matches `xpath`. The steps
  /// before the last "/" must match already; after it stands the name of the new element.
  ///
  /// @return true when the element was there (the file is not saved then), when it was added, and
  ///         also when the file is missing or cannot be read as XML. False, with the file as it
  ///         was, when the parent is missing, the last step is no plain name, or saving fails.
  static bool add_xml_xpath_node(const std::string& file, const std::string& xpath);
};

}  // namespace utility
