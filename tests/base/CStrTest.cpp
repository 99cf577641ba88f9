#include "utility/CStr.h"

#include <gtest/gtest.h>

#include "support/cases.h"

using utility::CStr;
using S = std::string;

// Text that is split is an element of the list that receives the pieces.
TEST(CStr, EditsSplitsAndReads) {
  const auto words = [](Words& list) { CStr::ext_line(list, list[0]); };
  const auto at_text = [](const S& at, Words& list) { CStr::ext_line(at, list, list[0]); };
  const auto at_bytes = [](const S& at, Words& list) { CStr::ext_line_strtok(at, list, list[0]); };
  run_cases(FIXTURES "/texts.txt",
            {{"trim", call(CStr::trim)},
             {"left_trim", call(CStr::left_trim)},
             {"right_trim", call(CStr::right_trim)},
             {"trim_byte", call<void(char, S&)>(CStr::trim_byte)},
             {"left_trim_byte", call<void(char, S&)>(CStr::left_trim_byte)},
             {"trim_set", call<void(const S&, S&)>(CStr::trim_byte)},
             {"right_trim_set", call<void(const S&, S&)>(CStr::right_trim_byte)},
             {"string_replace", call(CStr::string_replace)},
             {"trim_remark", call<void(const S&, const S&, S&)>(CStr::trim_remark)},
             {"trim_to_end", call<void(const S&, S&)>(CStr::trim_remark)},
             {"words", call(words)},
             {"at_text", call(at_text)},
             {"at_bytes", call(at_bytes)},
             {"atoll", call(CStr::atoll)},
             {"atol", call(CStr::atol)},
             {"atoull", call(CStr::atoull)},
             {"lltoa", call(CStr::lltoa)},
             {"ulltoa", call(CStr::ulltoa)}});
}
