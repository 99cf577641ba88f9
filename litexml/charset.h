#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace litexml {

/// The encoding of a document. The library works on UTF-8; this turns file bytes and callers'
/// strings into it and back.
class Charset {
 public:
  /// Takes bytes as they are.
  Charset() = default;
  explicit Charset(std::string name) : name_(std::move(name)) {}

  /// What the byte order mark of `file` says, else its declaration, else UTF-8.
  static Charset detect(std::string_view file);

  /// False where the bytes are the text already.
  bool converts() const;
  /// True where callers' strings cannot hold the encoding and are UTF-8 instead.
  bool is_wide() const;

  /// Converts all of `bytes`; false, with `out` unspecified, when something in it cannot be
  /// converted.
  bool to_utf8(std::string_view bytes, std::string& out) const;
  bool from_utf8(std::string_view text, std::string& out) const;
  /// How many bytes of `file` make the first `length` bytes of its UTF-8 text.
  std::size_t bytes_before(std::string_view file, std::size_t length) const;

 private:
  std::string name_;
};

}  // namespace litexml
