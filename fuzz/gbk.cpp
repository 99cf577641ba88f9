// Code sets: the first byte chooses the conversion, the second the room for its result, the others
// are the text. iconv(3) tells what comes out; valid text comes back from the other code set.
#include <iconv.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "check.h"
#include "input.h"
#include "lines.h"
#include "utility/CConv.h"

namespace {

using utility::CConv;

struct Converter {
  Converter(const char* from, const char* to) : handle(iconv_open(to, from)) {
    FUZZ_CHECK(handle != reinterpret_cast<iconv_t>(-1));
  }
  ~Converter() { iconv_close(handle); }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  iconv_t handle;
};

/// A pair of code sets, with a converter that stays open so that its tables stay loaded.
struct Pair {
  Pair(const char* from_set, const char* to_set)
      : from(from_set), to(to_set), keeper(from_set, to_set) {}
  const char* from;
  const char* to;
  Converter keeper;
};

struct Converted {
  std::string bytes;  // also those in front of a failing character
  bool complete;
};

Converted converted(const Pair& pair, const std::string& text, std::size_t room) {
  std::string out(room, '\0');
  std::string in = text;
  char* from = in.data();
  char* to = out.data();
  std::size_t left = in.size();
  // Each time a new one: a byte-order mark counts once in a converter's life.
  const Converter converter(pair.from, pair.to);
  const std::size_t result = iconv(converter.handle, &from, &left, &to, &room);
  out.resize(static_cast<std::size_t>(to - out.data()));
  return {out, result != static_cast<std::size_t>(-1)};
}

/// What a buffer form returns and leaves in a buffer of `room` bytes that were '#'.
template <typename Form>
void check_buffer(Form form, const Pair& pair, const std::string& text, std::size_t room,
                  bool zeroes) {
  const Converted expected = converted(pair, text, room);
  std::string left = expected.bytes;
  left.resize(room, zeroes ? '\0' : '#');
  std::vector<unsigned char> out(room, '#');
  unsigned char nothing = 0;
  const int result = form(room > 0 ? out.data() : &nothing, static_cast<int>(room));
  FUZZ_CHECK(result == (expected.complete ? static_cast<int>(expected.bytes.size()) : 0));
  FUZZ_CHECK(std::string(out.begin(), out.end()) == left);
}

unsigned char* bytes_of(const std::string& text) {
  return reinterpret_cast<unsigned char*>(const_cast<char*>(text.data()));
}

void gbk_to_utf8(const std::string& text, std::size_t room) {
  static const Pair pair("GBK", "UTF-8");
  const int size = static_cast<int>(3 * text.size() + 1);
  const Converted all = converted(pair, text, 3 * text.size() + 1);
  FUZZ_CHECK(CConv::gbk_to_utf8(bytes_of(text), nullptr, 0) == size);
  check_buffer(
      [&](unsigned char* out, int n) { return CConv::gbk_to_utf8(bytes_of(text), out, n); }, pair,
      text, room, false);
  const std::string utf8 = CConv::gbk_to_utf8_string(text.c_str());
  FUZZ_CHECK(utf8 == up_to_nul(all.bytes));
  FUZZ_CHECK(CConv::gbk_to_utf8_url_string(text.c_str()) == CConv::url_encode(utf8));
  if (all.complete) FUZZ_CHECK(CConv::utf8_to_gbk_string(utf8.c_str()) == text);
}

void utf8_to_gbk(const std::string& text, std::size_t room) {
  static const Pair pair("UTF-8", "GBK");
  const int size = static_cast<int>(3 * text.size() + 1);
  const Converted all = converted(pair, text, 3 * text.size() + 1);
  FUZZ_CHECK(CConv::utf8_to_gbk(bytes_of(text), nullptr, 0) == size);
  check_buffer(
      [&](unsigned char* out, int n) { return CConv::utf8_to_gbk(bytes_of(text), out, n); }, pair,
      text, room, true);
  const std::string gbk = CConv::utf8_to_gbk_string(text.c_str());
  FUZZ_CHECK(gbk == up_to_nul(all.bytes));
  if (all.complete) FUZZ_CHECK(CConv::gbk_to_utf8_string(gbk.c_str()) == text);
}

void utf8_to_unicode(const std::string& text, std::size_t room) {
  static const Pair pair("UTF-8", "UNICODE");
  const Converted all = converted(pair, text, 6 * text.size() + 1);
  FUZZ_CHECK(CConv::utf8_to_unicode(text.c_str(), nullptr, 0) ==
             static_cast<int>(6 * text.size() + 1));
  // Wide characters for the alignment; the room is in bytes.
  check_buffer(
      [&](unsigned char* out, int n) {
        std::vector<wchar_t> wide(room / sizeof(wchar_t) + 1);
        std::memcpy(wide.data(), out, room);
        const int result = CConv::utf8_to_unicode(text.c_str(), wide.data(), n);
        std::memcpy(out, wide.data(), room);
        return result;
      },
      pair, text, room, true);

  std::wstring units((all.bytes.size() + 3) / 4, L'\0');
  if (!units.empty()) std::memcpy(units.data(), all.bytes.data(), all.bytes.size());
  if (!all.complete || text.empty()) units.clear();
  FUZZ_CHECK(CConv::utf8_to_unicode_string(text.c_str()) == units.c_str());
}

void unicode_to_utf8(const std::string& bytes, std::size_t room) {
  static const Pair pair("UNICODE", "UTF-8");
  std::vector<wchar_t> wide(bytes.size() / sizeof(wchar_t) + 1);
  if (wide.size() > 1) std::memcpy(wide.data(), bytes.data(), (wide.size() - 1) * sizeof(wchar_t));
  const std::size_t length = std::wcslen(wide.data());
  const std::string text = bytes.substr(0, length);
  FUZZ_CHECK(CConv::unicode_to_utf8(wide.data(), nullptr, 0) == static_cast<int>(6 * length + 1));
  check_buffer(
      [&](unsigned char* out, int n) {
        return CConv::unicode_to_utf8(wide.data(), reinterpret_cast<char*>(out), n);
      },
      pair, text, room, true);
  const Converted all = converted(pair, text, 6 * length + 1);
  FUZZ_CHECK(CConv::unicode_to_utf8_string(wide.data()) ==
             (all.complete ? up_to_nul(all.bytes) : ""));
}

bool plain_has_chinese_char(const std::string& text) {
  std::size_t at = 0;
  while (at + 1 < text.size()) {
    const std::string pair = text.substr(at, 2);
    if (bytes_of(pair)[0] >= 0xA4) return true;
    at += pair == "\xA1\xA1" || pair[0] == '\xA3' ? 2 : 1;
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const unsigned char conversion = input.byte();
  const std::size_t room = input.byte();
  const std::string bytes = input.rest();
  const std::string text = up_to_nul(bytes);
  switch (conversion) {
    case 'g':
      gbk_to_utf8(text, room);
      break;
    case 'u':
      utf8_to_gbk(text, room);
      break;
    case 'w':
      utf8_to_unicode(text, room);
      break;
    case 'n':
      unicode_to_utf8(bytes, room);
      break;
    case 'c':
      FUZZ_CHECK(CConv::has_chinese_char(bytes) == plain_has_chinese_char(bytes));
      break;
    default:
      break;
  }
  return 0;
}
