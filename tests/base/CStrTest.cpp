#include "utility/CStr.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>

using utility::CStr;
using std::string_literals::operator""s;
using Fields = std::vector<std::string>;
using Edit = std::function<void(std::string&)>;
using Split = std::function<void(Fields&, const std::string&)>;

namespace {

Edit replace(const char* from, const char* to) {
  return [=](std::string& text) { CStr::string_replace(text, from, to); };
}
Edit cut(const char* open, const char* close) {
  return [=](std::string& text) { CStr::trim_remark(open, close, text); };
}
Edit trim_set(const char* set) {
  return [=](std::string& text) { CStr::trim_byte(set, text); };
}
Split at_bytes(const char* set) {
  return [=](Fields& fields, auto& text) { CStr::ext_line_strtok(set, fields, text); };
}
Split at_text(const char* separator) {
  return [=](Fields& fields, auto& text) { CStr::ext_line(separator, fields, text); };
}

}  // namespace

TEST(CStr, EditsTexts) {
  const struct {
    const char* sentence;
    Edit edit;
    std::string text, expected;
  } rows[] = {
      {"only white space empties", CStr::trim, " \t\r\n", ""},
      {"only white space, from the left", CStr::left_trim, " \t\r\n", ""},
      {"only white space, from the right", CStr::right_trim, " \t\r\n", ""},
      {"both ends", CStr::trim, "\t a b \r\n", "a b"},
      {"the left end", CStr::left_trim, "\t a b \r\n", "a b \r\n"},
      {"the right end", CStr::right_trim, "\t a b \r\n", "\t a b"},
      {"form feed and vertical tab are content", CStr::trim, "\f a\v", "\f a\v"},
      {"a NUL byte is content", CStr::trim, " \0 "s, "\0"s},
      {"a NUL byte on the left is content", CStr::left_trim, " \0 "s, "\0 "s},
      {"a NUL byte on the right is content", CStr::right_trim, " \0 "s, " \0"s},
      {"an empty text", CStr::trim, "", ""},
      {"a set of bytes, mixed", trim_set("\"'"), "\"'x\"'", "x"},
      {"an empty set trims nothing", trim_set(""), " x ", " x "},
      {"a set that leaves nothing", trim_set("ab"), "abba", ""},
      {"a byte at both ends", [](auto& text) { CStr::trim_byte('"', text); }, "\"\"a\"", "a"},
      {"a byte on the left", [](auto& text) { CStr::left_trim_byte('x', text); }, "xxaxx", "axx"},
      {"a set on the right", [](auto& text) { CStr::right_trim_byte("x", text); }, "axx", "a"},
      {"the replacement is not searched", replace("a", "aa"), "aaa", "aaaaaa"},
      {"what is joined is not searched", replace("aa", "b"), "aaa", "ba"},
      {"nothing to look for", replace("", "x"), "aaa", "aaa"},
      {"removed", replace("ab", ""), "xaby", "xy"},
      {"not found", replace("z", "w"), "xy", "xy"},
      {"several remarks", cut("/*", "*/"), "a/*x*/b/*y*/c", "abc"},
      {"no close marker", cut("/*", "*/"), "a/*x", "a/*x"},
      {"equal markers match inside the open one", cut("##", "##"), "a##b##c", "abc"},
      {"a close marker inside the open one", cut("/*/", "*/"), "a/*/b*/c", "ab*/c"},
      {"two empty markers", cut("", ""), "abc", "abc"},
      {"what is joined is searched again", cut("<", ">"), "a<<x>>b", "a>b"},
      {"an open marker made by the cut", cut("<!", "!>"), "<<!x!>!y!>z", "z"},
      {"a remark to the end of the line", [](auto& text) { CStr::trim_remark("#", text); },
       "k=1 # note # more", "k=1 "},
  };
  for (const auto& row : rows) {
    std::string text = row.text;
    row.edit(text);
    EXPECT_EQ(text, row.expected) << row.sentence;
  }
}

TEST(CStr, SplittersDropEmptyFieldsAndAppend) {
  const Split words = [](Fields& fields, auto& text) { CStr::ext_line(fields, text); };
  const struct {
    const char* sentence;
    Split split;
    std::string text;
    Fields expected;
  } rows[] = {
      {"a set of bytes", at_bytes(",;"), ",a;,b,", {"kept", "a", "b"}},
      {"a text up to its NUL", at_bytes(","), "a,b\0,c"s, {"kept", "a", "b"}},
      {"an empty text", at_bytes(","), "", {"kept"}},
      {"an empty set", at_bytes(""), "a", {"kept"}},
      {"a separator string", at_text(", "), ", a, , b,c, ", {"kept", "a", "b,c"}},
      {"an empty separator", at_text(""), "ab", {"kept"}},
      {"the rest after the last one", at_text(","), ",a,,b", {"kept", "a", "b"}},
      {"words", words, " a  b\tc\v\fd\n", {"kept", "a", "b", "c", "d"}},
      {"no word", words, " \n", {"kept"}},
  };
  for (const auto& row : rows) {
    Fields fields{"kept"};
    row.split(fields, row.text);
    EXPECT_EQ(fields, row.expected) << row.sentence;
  }
  // The text may be an element of the list, which moves as it grows.
  for (const Split& split : {at_bytes(","), at_text(","), words}) {
    Fields fields{"a text that is no short one,b\tc"};
    const std::string copy = fields[0];
    Fields expected = fields;
    split(expected, copy);
    split(fields, fields[0]);
    EXPECT_EQ(fields, expected);
  }
}

TEST(CStr, NumbersReadAsAStreamReadsThem) {
  constexpr auto kMin = std::numeric_limits<long long>::min();
  constexpr auto kMax = std::numeric_limits<unsigned long long>::max();
  const struct {
    std::string text;
    long long number;
    unsigned long long wrapped;
  } rows[] = {
      {"", 0, 0},
      {"x1", 0, 0},
      {"-", 0, 0},
      {"+-5", 0, 0},
      {"42abc", 42, 42},
      {"  7 8", 7, 7},
      {"0x10", 0, 0},
      {"\v\f\n+012", 12, 12},
      {"-12", -12, kMax - 11},
      {"-1", -1, kMax},
      {"9223372036854775807", 9223372036854775807LL, 9223372036854775807ULL},
      {"9223372036854775808", 0, 9223372036854775808ULL},
      {"-9223372036854775808", kMin, 9223372036854775808ULL},
      {"-9223372036854775809", 0, 9223372036854775807ULL},
      {"18446744073709551615", 0, kMax},
      {"18446744073709551616", 0, 0},
      {"99999999999999999999999", 0, 0},
  };
  for (const auto& [text, number, wrapped] : rows) {
    EXPECT_EQ(CStr::atoll(text), number) << text;
    EXPECT_EQ(CStr::atol(text), number) << text;
    EXPECT_EQ(CStr::atoull(text), wrapped) << text;
  }
  EXPECT_EQ(CStr::ulltoa(kMax), "18446744073709551615");
  EXPECT_EQ(CStr::lltoa(kMin), "-9223372036854775808");
  EXPECT_EQ(CStr::lltoa(0), "0");
}
