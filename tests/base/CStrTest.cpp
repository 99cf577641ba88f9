#include "utility/CStr.h"

#include <gtest/gtest.h>

#include <limits>

using utility::CStr;
using Fields = std::vector<std::string>;

TEST(CStr, TrimmingTakesFourBytesOnly) {
  const struct {
    const char* sentence;
    std::string text, left, right, both;
  } rows[] = {
      {"only white space empties", " \t\r\n", "", "", ""},
      {"both ends", "\t a b \r\n", "a b \r\n", "\t a b", "a b"},
      {"form feed and vertical tab are content", "\f a\v", "\f a\v", "\f a\v", "\f a\v"},
      {"a NUL byte is content", std::string(" \0 ", 3), std::string("\0 ", 2),
       std::string(" \0", 2), std::string("\0", 1)},
      {"empty", "", "", "", ""},
  };
  for (const auto& row : rows) {
    std::string left = row.text, right = row.text, both = row.text;
    CStr::left_trim(left);
    CStr::right_trim(right);
    CStr::trim(both);
    EXPECT_EQ(left, row.left) << row.sentence;
    EXPECT_EQ(right, row.right) << row.sentence;
    EXPECT_EQ(both, row.both) << row.sentence;
  }
}

TEST(CStr, ByteTrimmingTakesTheCallersSet) {
  const struct {
    const char* sentence;
    std::string set, text, expected;
  } rows[] = {
      {"both kinds of quotes, mixed", "\"'", "\"'x\"'", "x"},
      {"an empty set trims nothing", "", " x ", " x "},
      {"nothing left", "ab", "abba", ""},
  };
  for (const auto& row : rows) {
    std::string text = row.text;
    CStr::trim_byte(row.set, text);
    EXPECT_EQ(text, row.expected) << row.sentence;
  }
  std::string text = "\"\"a\"";
  CStr::trim_byte('"', text);
  EXPECT_EQ(text, "a");
  text = "xxaxx";
  CStr::left_trim_byte('x', text);
  EXPECT_EQ(text, "axx");
  CStr::right_trim_byte("x", text);
  EXPECT_EQ(text, "a");
}

TEST(CStr, ReplacingNeverSearchesTheReplacement) {
  const struct {
    std::string text, from, to, expected;
  } rows[] = {
      {"aaa", "a", "aa", "aaaaaa"}, {"aaa", "", "x", "aaa"}, {"aaa", "aa", "b", "ba"},
      {"xaby", "ab", "", "xy"},     {"xy", "z", "w", "xy"},
  };
  for (const auto& row : rows) {
    std::string text = row.text;
    CStr::string_replace(text, row.from, row.to);
    EXPECT_EQ(text, row.expected) << row.text << ": " << row.from << " by " << row.to;
  }
}

TEST(CStr, RemarksAreCut) {
  const struct {
    const char* sentence;
    std::string open, close, text, expected;
  } rows[] = {
      {"several", "/*", "*/", "a/*x*/b/*y*/c", "abc"},
      {"no close marker", "/*", "*/", "a/*x", "a/*x"},
      {"equal markers match inside the open one", "##", "##", "a##b##c", "abc"},
      {"close found inside the open marker", "/*/", "*/", "a/*/b*/c", "ab*/c"},
      {"two empty markers", "", "", "abc", "abc"},
      {"what is joined is searched again", "<", ">", "a<<x>>b", "a>b"},
      {"an open marker made by the cut", "<!", "!>", "<<!x!>!y!>z", "z"},
  };
  for (const auto& row : rows) {
    std::string text = row.text;
    CStr::trim_remark(row.open, row.close, text);
    EXPECT_EQ(text, row.expected) << row.sentence;
  }
  std::string line = "key=1 # note # more";
  CStr::trim_remark("#", line);
  EXPECT_EQ(line, "key=1 ");
}

TEST(CStr, NumbersReadAsAStreamReadsThem) {
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
      {"\v\f\n+012", 12, 12},
      {"0x10", 0, 0},
      {"-12", -12, kMax - 11},
      {"-1", -1, kMax},
      {"9223372036854775807", 9223372036854775807LL, 9223372036854775807ULL},
      {"9223372036854775808", 0, 9223372036854775808ULL},
      {"-9223372036854775808", std::numeric_limits<long long>::min(), 9223372036854775808ULL},
      {"-9223372036854775809", 0, 9223372036854775807ULL},
      {"18446744073709551615", 0, kMax},
      {"18446744073709551616", 0, 0},
      {"99999999999999999999999", 0, 0},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(CStr::atoll(row.text), row.number) << row.text;
    EXPECT_EQ(CStr::atol(row.text), row.number) << row.text;
    EXPECT_EQ(CStr::atoull(row.text), row.wrapped) << row.text;
  }
  EXPECT_EQ(CStr::ulltoa(kMax), "18446744073709551615");
  EXPECT_EQ(CStr::lltoa(std::numeric_limits<long long>::min()), "-9223372036854775808");
  EXPECT_EQ(CStr::lltoa(0), "0");
}

TEST(CStr, SplittersDropEmptyFieldsAndAppend) {
  const struct {
    const char* sentence;
    void (*split)(Fields&);
    Fields expected;
  } rows[] = {
      {"a set of bytes",
       [](Fields& list) { CStr::ext_line_strtok(",;", list, ",a;,b,"); },
       {"kept", "a", "b"}},
      {"a text up to its NUL",
       [](Fields& list) { CStr::ext_line_strtok(",", list, std::string("a,b\0,c", 6)); },
       {"kept", "a", "b"}},
      {"an empty text", [](Fields& list) { CStr::ext_line_strtok(",", list, ""); }, {"kept"}},
      {"an empty set", [](Fields& list) { CStr::ext_line_strtok("", list, "a"); }, {"kept"}},
      {"a separator string",
       [](Fields& list) { CStr::ext_line(", ", list, ", a, , b,c, "); },
       {"kept", "a", "b,c"}},
      {"an empty separator", [](Fields& list) { CStr::ext_line("", list, "ab"); }, {"kept"}},
      {"the rest behind the last one",
       [](Fields& list) { CStr::ext_line(",", list, ",a,,b"); },
       {"kept", "a", "b"}},
      {"words",
       [](Fields& list) { CStr::ext_line(list, " a  b\tc\v\fd\n"); },
       {"kept", "a", "b", "c", "d"}},
      {"no word", [](Fields& list) { CStr::ext_line(list, " \n"); }, {"kept"}},
  };
  for (const auto& row : rows) {
    Fields list{"kept"};
    row.split(list);
    EXPECT_EQ(list, row.expected) << row.sentence;
  }
}
