// Texts, versions, dumps and character sets: operations that undo, repeat or bound each other.
#include <vector>

#include "fuzz.h"
#include "utility/CBigInt.h"
#include "utility/CConv.h"
#include "utility/CDump.h"
#include "utility/CStr.h"
#include "utility/CTime.h"
#include "utility/TarvelVersion.h"

using namespace utility;

namespace {

void check_splitting(const std::string& separators, const std::string& text) {
  std::vector<std::string> pieces;
  CStr::ext_line_strtok(separators, pieces, text);
  for (const std::string& piece : pieces) {
    check(!piece.empty() && (piece + "x").find_first_of(separators.c_str()) >= piece.size(),
          "a piece is filled and free of separators");
  }
  pieces.assign(1, text);
  std::vector<std::string> same = pieces;
  CStr::ext_line(separators, pieces, pieces[0]);
  CStr::ext_line(separators, same, text);
  check(pieces == same, "a text may be an element of the list that it is split into");
  for (std::string once : {text, separators}) {
    CStr::trim(once);
    std::string twice = once;
    CStr::trim(twice);
    check(twice == once && text.size() + separators.size() >= once.size(), "trimmed is trimmed");
  }
  std::string replaced = text;
  CStr::string_replace(replaced, separators, "");
  CStr::trim_remark(separators, replaced);
  check(replaced.size() <= text.size(), "what is taken out makes a text no longer");
}

void check_versions(const std::string& first, const std::string& second) {
  const TarvelVersion a(first);
  const TarvelVersion b(second);
  check((a == b) == (b == a) && (a != b) == !(a == b) && a == a, "equal is equal both ways");
  check(!(a < b && b < a) && (a <= b) == (a == b || a < b), "less is less one way");
  check((a > b) == !(a <= b) && (a >= b) == !(a < b), "greater is what is not less");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const unsigned long width = input.byte();
  const std::string first = input.text('\n');
  std::string second = input.rest();
  check_splitting(first, second);
  check_versions(first, second);
  std::string forward;
  std::string backward;
  check(CBigInt::sub(first.c_str(), second.c_str(), forward) ==
                -CBigInt::sub(second.c_str(), first.c_str(), backward) &&
            forward == backward,
        "a difference has one size");

  CDump::setmaxline(width);
  std::string room(width * 8, 'x');
  CDump::sndump(room.data(), room.size() / 2, second.data(), second.size());
  check(room.find_first_not_of('x', room.size() / 2) == std::string::npos, "a dump has its room");
  std::string format = first;
  CTime::chtm_base(static_cast<long>(width) << 24, 8, format.data(), room.data(),
                   static_cast<int>(room.size() / 2));
  check(room.find_first_not_of('x', room.size() / 2) == std::string::npos, "a time has its room");

  const std::string gbk = CConv::utf8_to_gbk_string(second.c_str());
  const std::string utf8 = CConv::gbk_to_utf8_string(gbk.c_str());
  check(CConv::utf8_to_gbk_string(utf8.c_str()) == gbk, "GBK gives itself back through UTF-8");
  CConv::gbk_to_utf8_string(second.c_str());
  CConv::utf8_to_unicode_string(second.c_str());
  CConv::has_chinese_char(second);
  return 0;
}
