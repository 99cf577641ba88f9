#pragma once

#include <stdexcept>
#include <string>

/// The interface of `liblitexml_linux.so`, an XML document library: one factory, two abstract
/// classes and one exception type. Nothing else leaves that object.
///
/// Texts, names and path expressions are C strings in the document's own encoding: what its byte
/// order mark or its declaration says, else UTF-8; UTF-8 too where that is UTF-16. In a document
/// whose bytes are not valid in that encoding, or whose encoding is unknown to iconv, bytes are
/// taken as they are; one that begins as UTF-16 and is not valid in it is no XML document.
///
/// A document is edited in its text: everything outside the edited place keeps its bytes, from the
/// declaration, DTD, comments and CDATA sections to the blanks inside tags.
///
/// Any operation may throw `CLiteXmlException`, and std::bad_alloc, but nothing else. One document
/// and its elements may be used on one thread at a time.

#define LITEXML_API __attribute__((visibility("default")))

/// What the library throws: a malformed path expression, a name or text that no document can hold.
class LITEXML_API CLiteXmlException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
  CLiteXmlException(const CLiteXmlException&) = default;
  CLiteXmlException& operator=(const CLiteXmlException&) = default;
  ~CLiteXmlException() override;
};

/// One element of a document, or one not yet appended to any. Released before its document.
class ILiteXmlElement {
 public:
  /// The element's own text: its text and CDATA sections, joined. Blank text counts only where the
  /// element holds nothing else; between child elements it is layout.
  virtual std::string get_text() = 0;

  /// Makes `value` the element's own text; child elements, comments and layout stay. The text goes
  /// where the first of the old stood, or first in the element, and into a CDATA section where that
  /// one was. Blank text beside child elements goes for layout afterwards.
  virtual void set_text(const char* value) = 0;

  /// Sets the attribute `name`; a new one goes after the others.
  virtual void set_attribute(const char* name, const char* value) = 0;

  /// The value of the attribute `name`; empty when there is none.
  virtual std::string get_attribute(const char* name) = 0;

  /// Appends `child`, made by `create_element` and not appended before, as the last thing in this
  /// element. The caller still releases it.
  virtual void append_child(ILiteXmlElement* child) = 0;

  /// The first node, in document order, that the XPath 1.0 expression `path` selects from here.
  ///
  /// @return an element object for the caller to release; null when nothing matches or the match is
  ///         no element.
  virtual ILiteXmlElement* select_single_node(const char* path) = 0;

  /// Ends this object, which cannot fail; the element stays in its document.
  virtual void release() = 0;

 protected:
  ILiteXmlElement() = default;
  ILiteXmlElement(const ILiteXmlElement&) = default;
  ILiteXmlElement& operator=(const ILiteXmlElement&) = default;
  ~ILiteXmlElement() = default;
};

/// One XML document.
class ILiteXmlDocument {
 public:
  /// Reads the regular file `path`. Not 0 when it was read and is an XML document; else the
  /// document is empty.
  virtual int load(const char* path) = 0;

  /// The root element, for the caller to release; null in an empty document.
  virtual ILiteXmlElement* get_root() = 0;

  /// A new, empty element, for the caller to release.
  virtual ILiteXmlElement* create_element(const char* name) = 0;

  /// Writes the document to the regular file `path`.
  ///
  /// The file is rewritten in place, not replaced: owner, mode, security label, hard links and bind
  /// mounts of other programs' files stay as they are. Its room is reserved before the first byte
  /// is changed, so that a full disk or a quota leaves it untouched, and it is written at once: a
  /// crash leaves the old file or the new one, perhaps with blanks after it up to the old size. A
  /// failing disk may leave it half written.
  /// @return greater than 0 on success.
  virtual int save(const char* path) = 0;

  /// Ends this object, which cannot fail.
  virtual void release() = 0;

 protected:
  ILiteXmlDocument() = default;
  ILiteXmlDocument(const ILiteXmlDocument&) = default;
  ILiteXmlDocument& operator=(const ILiteXmlDocument&) = default;
  ~ILiteXmlDocument() = default;
};

/// Makes an empty document, for the caller to release.
extern "C" LITEXML_API ILiteXmlDocument* newXmlDocument();
