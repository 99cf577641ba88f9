#include "utility/CConv.h"

#include <charconv>
#include <cstring>
#include <cwchar>
#include <limits>

#include "base/handles.h"
#include "base/hex.h"
#include "base/iconv.h"
#include "base/paths.h"

namespace utility {

using namespace detail;

namespace {

struct CodeSets {
  const char* from;
  const char* to;
};
constexpr CodeSets kGbkToUtf8 = {"GBK", "UTF-8"};
constexpr CodeSets kUtf8ToGbk = {"UTF-8", "GBK"};
constexpr CodeSets kUnicodeToUtf8 = {"UNICODE", "UTF-8"};
constexpr CodeSets kUtf8ToUnicode = {"UTF-8", "UNICODE"};

std::size_t convert(const CodeSets& sets, const void* in, std::size_t in_size, void* out,
                    std::size_t out_size) noexcept {
  Iconv converter(sets.to, sets.from);
  if (!converter) return 0;
  std::string_view bytes(static_cast<const char*>(in), in_size);
  char* end = static_cast<char*>(out);
  std::size_t room = out_size;
  return converter.convert(bytes, end, room) ? out_size - room : 0;
}

int as_int(std::size_t size) noexcept {
  constexpr int kMax = std::numeric_limits<int>::max();
  return size > std::size_t{kMax} ? kMax : static_cast<int>(size);
}

/// The buffer forms once `in` is known to be there: `units` are what is both counted and handed on.
int convert_buffer(const CodeSets& sets, const void* in, std::size_t units, std::size_t growth,
                   void* out, int out_size, bool zero_first) noexcept {
  if (out == nullptr) return as_int(units * growth + 1);
  if (out_size <= 0) return 0;
  const auto room = static_cast<std::size_t>(out_size);
  if (zero_first) std::memset(out, 0, room);
  return as_int(convert(sets, in, units, out, room));
}

/// The string forms that give narrow text: whatever was converted, even before a failure, or with
/// `whole` only what was converted to its end.
std::string convert_text(const CodeSets& sets, const void* text, std::size_t units,
                         std::size_t growth, bool whole) {
  const std::size_t size = units * growth + 1;
  const Buffer buffer = make_buffer(size);
  if (units == 0 || !buffer) return {};
  if (convert(sets, text, units, buffer.get(), size) == 0 && whole) return {};
  return {buffer.get(), ::strnlen(buffer.get(), size)};
}

bool stays_in_url(char c) noexcept {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' ||
         c == '.' || c == '_';
}

}  // namespace

int CConv::gbk_to_utf8(unsigned char* in, unsigned char* out, int outSize) {
  if (in == nullptr) return 0;
  const std::size_t length = std::strlen(reinterpret_cast<const char*>(in));
  return convert_buffer(kGbkToUtf8, in, length, 3, out, outSize, false);
}

int CConv::utf8_to_gbk(unsigned char* in, unsigned char* out, int outSize) {
  if (in == nullptr) return 0;
  const std::size_t length = std::strlen(reinterpret_cast<const char*>(in));
  return convert_buffer(kUtf8ToGbk, in, length, 3, out, outSize, true);
}

int CConv::unicode_to_utf8(const wchar_t* in, char* out, int outSize) {
  if (in == nullptr) return 0;
  return convert_buffer(kUnicodeToUtf8, in, std::wcslen(in), 6, out, outSize, true);
}

int CConv::utf8_to_unicode(const char* in, wchar_t* out, int outSize) {
  if (in == nullptr) return 0;
  return convert_buffer(kUtf8ToUnicode, in, std::strlen(in), 6, out, outSize, true);
}

std::string CConv::gbk_to_utf8_string(const char* text) {
  return convert_text(kGbkToUtf8, text, std::strlen(or_empty(text)), 3, false);
}

std::string CConv::utf8_to_gbk_string(const char* text) {
  return convert_text(kUtf8ToGbk, text, std::strlen(or_empty(text)), 1, false);
}

std::string CConv::unicode_to_utf8_string(const wchar_t* text) {
  return text == nullptr ? "" : convert_text(kUnicodeToUtf8, text, std::wcslen(text), 6, true);
}

std::wstring CConv::utf8_to_unicode_string(const char* text) {
  if (text == nullptr || *text == '\0') return {};
  const std::size_t length = std::strlen(text);
  // `size` wide characters are taken but only as many bytes are filled: the rest ends the text.
  const std::size_t size = length * 6 + 1;
  const std::unique_ptr<wchar_t[]> buffer(new (std::nothrow) wchar_t[size]());
  if (!buffer || convert(kUtf8ToUnicode, text, length, buffer.get(), size) == 0) return {};
  return {buffer.get(), ::wcsnlen(buffer.get(), size)};
}

std::string CConv::url_encode(const std::string& text) {
  const std::size_t length = std::strlen(text.c_str());
  const Buffer buffer = make_buffer(3 * length + 1);
  if (!buffer) return {};
  char* end = buffer.get();
  for (std::size_t i = 0; i < length; ++i) {
    const char c = text[i];
    if (stays_in_url(c)) {
      *end++ = c;
    } else if (c == ' ') {
      *end++ = '+';
    } else {
      *end++ = '%';
      const auto byte = static_cast<unsigned char>(c);
      end = put_hex(end, &byte, 1, 'A');
    }
  }
  return {buffer.get(), end};
}

std::string CConv::url_decode(const std::string& text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '+') {
      c = ' ';
    } else if (c == '%' && text.size() - i > 2) {
      const char* const digits = text.data() + i + 1;
      unsigned char byte = 0;
      if (std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
        c = static_cast<char>(byte);
        i += 2;
      }
    }
    if (c == '\0') break;
    decoded += c;
  }
  return decoded;
}

std::string CConv::url_string(const char* text) {
  return text == nullptr ? std::string() : url_encode(text);
}

std::string CConv::gbk_to_utf8_url_string(const char* text) {
  return url_encode(gbk_to_utf8_string(text));
}

bool CConv::has_chinese_char(const std::string& text) {
  for (std::size_t i = 0; i + 1 < text.size(); ++i) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const auto next = static_cast<unsigned char>(text[i + 1]);
    if (lead > 0xA3) return true;
    if (lead == 0xA3 || (lead == 0xA1 && next == 0xA1)) ++i;
  }
  return false;
}

int CConv::wchar_to_mbyte(const wchar_t*, const unsigned long&, unsigned long&) { return 0; }

int CConv::mbyte_to_wchar(const char*, const unsigned long&, unsigned long&) { return 0; }

void CConv::wchar_to_mbyte2(const wchar_t*, const unsigned long&, std::string&) {}

void CConv::mbyte_to_wchar2(const char*, const unsigned long&, std::wstring&) {}

}  // namespace utility
