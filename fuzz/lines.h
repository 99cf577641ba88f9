#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// How texts are cut, written plainly: what the models of the fuzzers rest on.

/// An input as a text. The byte 0x1F and the byte n behind it stand for 32 n more of the byte
/// before them, up to `most` bytes in all, so that a text too long for a buffer takes no long
/// input.
inline std::string text_of(const std::uint8_t* data, std::size_t size, std::size_t most) {
  std::string text;
  for (std::size_t i = 0; i < size; ++i) {
    if (data[i] == 0x1F && i + 1 < size && !text.empty()) {
      const std::size_t more = std::size_t{data[++i]} * 32;
      text.append(std::min(more, most - std::min(most, text.size())), text.back());
    } else {
      text += static_cast<char>(data[i]);
    }
  }
  return text;
}

/// The lines of `text` as a buffer for `most` bytes gets them from fgets: a longer line comes in
/// pieces, each keeps its line feed, and what stands behind a NUL in it is lost.
inline std::vector<std::string> lines_of(std::string_view text, std::size_t most) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t size = std::min(text.find('\n'), text.size() - 1) + 1;
    const std::string piece(text.substr(0, std::min(size, most)));
    text.remove_prefix(piece.size());
    lines.emplace_back(piece.c_str());  // NOLINT(readability-redundant-string-cstr): up to its NUL
  }
  return lines;
}

/// What white space separates in `text`.
inline std::vector<std::string> words_of(std::string_view text) {
  std::vector<std::string> words;
  bool in_word = false;
  for (const char c : text) {
    const bool space = c == ' ' || (c >= '\t' && c <= '\r');
    if (!space && !in_word) words.emplace_back();
    if (!space) words.back() += c;
    in_word = !space;
  }
  return words;
}

/// What `separator` parts in `text`, empty pieces too.
inline std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts(1);
  for (const char c : text) {
    if (c == separator) {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

/// A text as C functions see it.
inline std::string up_to_nul(const std::string& text) {
  return text.c_str();
}
