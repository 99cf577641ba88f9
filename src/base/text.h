#pragma once

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

#include "utility/CStr.h"

// Small questions about texts that several families ask.
namespace utility::detail {

/// What the C library's "%s" and "%d" skip in the "C" locale.
inline constexpr char kWhiteSpace[] = " \t\n\v\f\r";

/// What CStr::trim takes off; form feed and vertical tab are content to it.
inline constexpr char kTrimSet[] = " \t\r\n";

/// The first word of `text`: up to the next white space, empty when there is nothing else.
inline std::string_view first_word(const char* text) noexcept {
  const char* begin = text + std::strspn(text, kWhiteSpace);
  return {begin, std::strcspn(begin, kWhiteSpace)};
}

inline bool begins_with(std::string_view text, std::string_view prefix) noexcept {
  return text.substr(0, prefix.size()) == prefix;
}

inline bool ends_with(std::string_view text, std::string_view suffix) noexcept {
  return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

inline bool contains(std::string_view text, std::string_view part) noexcept {
  return text.find(part) != std::string_view::npos;
}

/// `texts`, one after the other with `separator` between them.
template <class List>
std::string joined(const List& texts, const char* separator) {
  std::string all;
  const char* before = "";
  for (const auto& text : texts) {
    all.append(before).append(text);
    before = separator;
  }
  return all;
}

/// The words of `text`, and its pieces between `separator`s, as CStr::ext_line finds them.
inline std::vector<std::string> words_of(const std::string& text) {
  std::vector<std::string> words;
  CStr::ext_line(words, text);
  return words;
}
inline std::vector<std::string> split(const char* separator, const std::string& text) {
  std::vector<std::string> pieces;
  CStr::ext_line(separator, pieces, text);
  return pieces;
}

/// True when `list`, an array of texts, has exactly `text`.
template <class List>
bool is_one_of(const List& list, std::string_view text) noexcept {
  return std::find(std::begin(list), std::end(list), text) != std::end(list);
}

}  // namespace utility::detail
