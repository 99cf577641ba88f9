// Texts, versions, dumps and character sets: operations that undo, repeat or bound each other.
#include "fuzz.h"

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
  std::string once = text;
  CStr::trim(once);
  std::string twice = once;
  CStr::trim(twice);
  check(twice == once && once.size() <= text.size(), "trimmed is trimmed");
  CStr::string_replace(twice, separators, "");
  CStr::trim_remark(separators, twice);
  CStr::trim_remark(separators, once, twice);
  check(twice.size() <= once.size(), "what is taken out makes a text no longer");
}

void check_versions(const TarvelVersion& a, const TarvelVersion& b) {
  check((a == b) == (b == a) && (a != b) == !(a == b) && a == TarvelVersion(a),
        "equal is equal both ways");
  check(!(a < b && b < a) && (a <= b) == (a == b || a < b), "less is less one way");
  check((a > b) == !(a <= b) && (a >= b) == !(a < b), "greater is what is not less");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const int width = input.byte();
  std::string first = input.text('\n'), second = input.rest(), forward, backward;
  check_splitting(first, second);
  check_versions(TarvelVersion(first), TarvelVersion(second));
  const int order = CBigInt::sub(first.c_str(), second.c_str(), forward);
  check(CBigInt::sub(second.c_str(), first.c_str(), backward) == -order && forward == backward,
        "a difference has one size");

  CDump::setmaxline(static_cast<unsigned long>(width));
  std::string room(static_cast<std::size_t>(width) * 8, 'x');
  CDump::sndump(room.data(), room.size() / 2, second.data(), second.size());
  CTime::chtm_base(long{width} << 24, 8, first.data(), room.data(), width * 4);
  check(room.find_first_not_of('x', room.size() / 2) == std::string::npos,
        "both keep to their room");

  const std::string gbk = CConv::utf8_to_gbk_string(second.c_str());
  const std::string utf8 = CConv::gbk_to_utf8_string(gbk.c_str());
  check(CConv::utf8_to_gbk_string(utf8.c_str()) == gbk, "GBK gives itself back through UTF-8");
  CConv::gbk_to_utf8_string(second.c_str());
  CConv::utf8_to_unicode_string(second.c_str());
  CConv::has_chinese_char(second);
  return 0;
}
