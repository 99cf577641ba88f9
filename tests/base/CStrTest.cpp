#include "utility/CStr.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/cases.h"

using utility::CStr;
using Fields = std::vector<std::string>;

namespace {

// A check of what `edit(row, text)` leaves of the text.
template <class Edit>
auto edits(Edit edit) {
  return [edit](const Case& row) {
    std::string text = row["text"];
    edit(row, text);
    row.expect("result", text);
  };
}

// A check of what `split(row, fields, text)` appends, also where the text is an element of the
// list.
template <class Split>
auto splits(Split split) {
  return [split](const Case& row) {
    Fields expected{row["text"]}, fields = expected;
    for (const std::string& field : row.all("field")) expected.push_back(field);
    split(row, fields, fields[0]);
    EXPECT_EQ(fields, expected);
  };
}

void check_number(const Case& row) {
  row.expect("signed", CStr::atoll(row["text"]));
  row.expect("signed", CStr::atol(row["text"]));
  row.expect("unsigned", CStr::ulltoa(CStr::atoull(row["text"])));
}

}  // namespace

TEST(CStr, EditsSplitsAndReads) {
  using S = std::string;
  const auto trim = [](auto&, S& text) { CStr::trim(text); };
  const auto left_trim = [](auto&, S& text) { CStr::left_trim(text); };
  const auto right_trim = [](auto&, S& text) { CStr::right_trim(text); };
  const auto trim_byte = [](auto& row, S& text) { CStr::trim_byte(row["byte"][0], text); };
  const auto trim_set = [](auto& row, S& text) { CStr::trim_byte(row["set"], text); };
  const auto left_byte = [](auto& row, S& text) { CStr::left_trim_byte(row["byte"][0], text); };
  const auto right_set = [](auto& row, S& text) { CStr::right_trim_byte(row["set"], text); };
  const auto replace = [](auto& row, S& text) {
    CStr::string_replace(text, row["from"], row["to"]);
  };
  const auto cut = [](auto& row, S& text) { CStr::trim_remark(row["open"], row["close"], text); };
  const auto cut_end = [](auto& row, S& text) { CStr::trim_remark(row["marker"], text); };
  const auto words = [](auto&, Fields& fields, S& text) { CStr::ext_line(fields, text); };
  const auto at_text = [](auto& row, Fields& fields, S& text) {
    CStr::ext_line(row["separator"], fields, text);
  };
  const auto at_bytes = [](auto& row, Fields& fields, S& text) {
    CStr::ext_line_strtok(row["separator"], fields, text);
  };
  for_each_case(FIXTURES "/texts.txt", {{"trim", edits(trim)},
                                        {"left_trim", edits(left_trim)},
                                        {"right_trim", edits(right_trim)},
                                        {"trim_byte", edits(trim_byte)},
                                        {"trim_byte_set", edits(trim_set)},
                                        {"left_trim_byte", edits(left_byte)},
                                        {"right_trim_byte_set", edits(right_set)},
                                        {"string_replace", edits(replace)},
                                        {"trim_remark", edits(cut)},
                                        {"trim_remark_marker", edits(cut_end)},
                                        {"words", splits(words)},
                                        {"at_text", splits(at_text)},
                                        {"at_bytes", splits(at_bytes)},
                                        {"number", check_number}});
  EXPECT_EQ(CStr::lltoa(std::numeric_limits<long long>::min()), "-9223372036854775808");
}
