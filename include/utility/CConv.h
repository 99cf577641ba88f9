#pragma once

#include <string>

#include "utility/Export.h"

namespace utility {

/// Character-set conversion between GBK, UTF-8 and the wide "UNICODE" form, and URL
/// percent-encoding.
///
/// The conversions run the C library's iconv(3) with the code-set names "GBK", "UTF-8" and
/// "UNICODE"; where the host has no converter for a pair they convert nothing. "UNICODE" is what
/// iconv makes of it: 16-bit units, a byte-order mark in front on output, no matter how wide
/// `wchar_t` is.
///
/// Each call opens and closes its own converter, so all operations may run on any number of threads
/// at once.
class UTILITY_API CConv {
 public:
  /// Converts the GBK text `in` to UTF-8.
  ///
  /// The result is not NUL-terminated and bytes of `out` after it keep their value.
  ///
  /// @param in       NUL-terminated text.
  /// @param out      receives the result; null asks for the size only.
  /// @param outSize  bytes that `out` has room for.
  /// @return the bytes written, or, for a null `out`, the bytes to provide: 3 for each byte of `in`
  ///         and 1. 0 when `in` is null, no converter can be opened, `in` holds an invalid or
  ///         incomplete sequence, or `out` is too small; on failure `out` keeps what was converted
  ///         before the failing character.
  static int gbk_to_utf8(unsigned char* in, unsigned char* out, int outSize);

  /// Converts the UTF-8 text `in` to GBK; as `gbk_to_utf8`, but all of `out` is zeroed first.
  static int utf8_to_gbk(unsigned char* in, unsigned char* out, int outSize);

  /// Converts the beginning of the wide text `in` from "UNICODE" to UTF-8.
  ///
  /// As many *bytes* of `in` are read as it has wide characters: a quarter of the text, taken as
  /// 16-bit units. Otherwise as `utf8_to_gbk`.
  ///
  /// @return as `gbk_to_utf8`; for a null `out` 6 for each wide character of `in` and 1.
  static int unicode_to_utf8(const wchar_t* in, char* out, int outSize);

  /// Converts the UTF-8 text `in` to "UNICODE"; otherwise as `utf8_to_gbk`.
  ///
  /// @param in       NUL-terminated text.
  /// @param out      receives the result; null asks for the size only.
  /// @param outSize  the room in `out` in bytes, not in wide characters.
  /// @return as `gbk_to_utf8`, in bytes; for a null `out` 6 for each byte of `in` and 1.
  static int utf8_to_unicode(const char* in, wchar_t* out, int outSize);

  /// Converts the GBK text `text` to UTF-8.
  ///
  /// @return the converted text up to its first NUL; where the conversion fails, what was converted
  ///         before the failing character. Empty for a null or empty `text` and without memory.
  static std::string gbk_to_utf8_string(const char* text);
  /// Converts the UTF-8 text `text` to GBK; otherwise as `gbk_to_utf8_string`.
  static std::string utf8_to_gbk_string(const char* text);
  /// Converts as `unicode_to_utf8` does.
  ///
  /// @return the converted text up to its first NUL; empty for a null `text`, when the conversion
  ///         fails and without memory.
  static std::string unicode_to_utf8_string(const wchar_t* text);
  /// Converts as `utf8_to_unicode` does, so each wide character of the result holds two units, the
  /// byte-order mark being the first.
  ///
  /// @return the units up to the first wide character that is zero; empty for a null or empty
  ///         `text`, when the conversion fails and without memory.
  static std::wstring utf8_to_unicode_string(const char* text);

  /// Percent-encodes `text` up to its first NUL.
  ///
  /// Letters, digits, "-", "." and "_" stay, a blank becomes "+", every other byte ("~" too)
  /// becomes "%" and two upper-case hex digits.
  ///
  /// @return the encoded text; empty without memory.
  static std::string url_encode(const std::string& text);
  /// Decodes percent-encoded text: "+" becomes a blank, "%" with two hex digits the byte they
  /// spell.
  ///
  /// A "%" without two hex digits after it stays as it is.
  ///
  /// @return the decoded text up to its first NUL, so "%00" ends it.
  static std::string url_decode(const std::string& text);
  /// `url_encode` of a C string; empty for a null `text`.
  static std::string url_string(const char* text);
  /// `url_encode` of the UTF-8 form of the GBK text `text`; empty for a null `text`.
  static std::string gbk_to_utf8_url_string(const char* text);

  /// Tells whether the GBK text `text` holds a character after the row of full-width punctuation
  /// (lead byte 0xA3).
  ///
  /// A byte counts as a lead byte only where another byte follows; the last byte is never looked
  /// at. Full-width blanks (0xA1 0xA1) and characters of row 0xA3 are stepped over as a pair, any
  /// other byte up to 0xA2 alone.
  static bool has_chinese_char(const std::string& text);

  /// Kept for old callers: does nothing, leaves its arguments alone and returns 0.
  static int wchar_to_mbyte(const wchar_t* text, const unsigned long& length,
                            unsigned long& outLength);
  /// Kept for old callers: does nothing, leaves its arguments alone and returns 0.
  static int mbyte_to_wchar(const char* text, const unsigned long& length,
                            unsigned long& outLength);
  /// Kept for old callers: does nothing and leaves its arguments alone.
  static void wchar_to_mbyte2(const wchar_t* text, const unsigned long& length, std::string& out);
  /// Kept for old callers: does nothing and leaves its arguments alone.
  static void mbyte_to_wchar2(const char* text, const unsigned long& length, std::wstring& out);
};

}  // namespace utility
