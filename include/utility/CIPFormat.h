#pragma once

#include <string>
#include <vector>

#include "utility/Export.h"

/// @file
/// Addresses of both kinds, `utility::CIPFormat`, and what it needs outside the namespace.

/// Returns `value` with its four bytes in reverse order, whatever the host's byte order.
UTILITY_API unsigned int ipv6_ntohl(unsigned int value);

/// One address or one range of addresses, as `CIPFormat::add_ip_to_range` records it.
struct IPRangeExpress {
  /// Decimal text of the range's last address, NUL-terminated; empty for a single address.
  char end_text[64] = {};
  /// Decimal text of the range's first address, or of the single address, NUL-terminated.
  char begin_text[64] = {};
  /// 1 for a single address, 0 for a range.
  int is_single = 0;
};

namespace utility {

/// Text forms of IPv4 and IPv6 addresses, and membership in lists of addresses and ranges.
///
/// Three forms of an address meet here:
/// - the word form of IPv6: four `unsigned int` in host byte order. Word k holds the 16-bit group
///   2k in its high half and group 2k+1 in its low half; group 0 is the leftmost of the text.
/// - the byte form of IPv6: sixteen bytes as they travel on the wire.
/// - the IPv4 value: one `unsigned int` with the first dotted part in the highest byte.
///
/// The full text form has eight groups of four upper-case digits
/// ("0000:0000:0000:0000:0000:FFFF:C0A8:0101").
///
/// A NULL argument never crashes: a NULL text reads as one that does not parse (for the forms that
/// parse nothing, as the empty text), and nothing is written through a NULL output.
///
/// All operations may run on any number of threads at once. A list of ranges must not change while
/// another thread tests against it.
class UTILITY_API CIPFormat {
 public:
  /// The shared object, which holds no data. It is never destroyed; do not delete it.
  static CIPFormat* instance();

  /// Reads dotted IPv4 text.
  ///
  /// Lenient on purpose: fewer than four parts fill the high bytes only ("10.1" is 10.1.0.0, "" is
  /// 0.0.0.0), an empty part is 0, and everything after the fourth part is ignored ("1.2.3.4.9").
  /// A "/" ends the number of its part, so "1.2.3.4/24" is 1.2.3.4.
  ///
  /// @return 1, or 0 when a part is above 255 or another character comes before the end of the
  ///         fourth part. On failure `*value` is untouched.
  int ipv4_to_i(const char* text, unsigned int* value);

  /// The same as a result: the value, or 0 when `text` does not parse.
  unsigned int ipv4_str_to_uint(const char* text);

  /// Writes the dotted text of `value` with its NUL.
  ///
  /// @param buffer  room for 16 bytes.
  /// @param value   the IPv4 value.
  /// @return the number of characters written, without the NUL.
  int ipv4_to_str(char* buffer, unsigned int value);

  /// The dotted text of `value`.
  std::string ipv4_uint_to_str(const unsigned int& value);

  /// Tells what one colon-separated field of IPv6 text is.
  ///
  /// @return 1 for the empty field, 0 for a group of one to four hexadecimal digits, 2 for dotted
  ///         IPv4 of 7 to 15 characters that `ipv4_to_i` accepts, -1 for anything else.
  int ipv6_address_field_type_get(const char* field);

  /// Reads IPv6 text into the word form.
  ///
  /// White space is ignored wherever it stands. Lenient on purpose: one colon too many at either
  /// end is tolerated when the rest is complete (":1:2:3:4:5:6:7:8"), a "::" among eight groups
  /// inserts nothing, and dotted IPv4 may stand in any position.
  ///
  /// @param text   at most 127 characters, white space included; longer texts do not parse. No
  ///               address has more than 66 without white space.
  /// @param bits   128. Fewer bits make an address of `bits` / 16 groups, which fill the words from
  ///               the left; with no group, or more than eight, nothing parses.
  /// @param words  receives the four words.
  /// @return 1, or 0 when `text` does not parse. On failure `words` is untouched.
  int ipv6_to_i(const char* text, int bits, unsigned int* words);

  /// Writes the full form of the four `words` with its NUL.
  ///
  /// @param buffer  room for 40 bytes.
  /// @param words   the word form; only read.
  void ipv6_to_str(char* buffer, unsigned int* words);

  /// Reads IPv6 text, as `ipv6_to_i` does for 128 bits, into the byte form.
  ///
  /// @param text   IPv6 text.
  /// @param bytes  receives sixteen bytes; zeros when `text` does not parse.
  void ipv6_str_to_uint8_array(const char* text, unsigned char* bytes);

  /// The full form of the sixteen `bytes` of a byte form; empty for NULL.
  std::string ipv6_uint8_array_to_str(const unsigned char* bytes);

  /// Shortens IPv6 text that is written with eight groups.
  ///
  /// Groups lose their leading zeros and come out in upper case; one run of zero groups becomes
  /// "::". This is not the usual canonical text: a run that reaches the last group is never
  /// shortened, a single zero group is, and the leftmost of the longest runs is taken. Eight zero
  /// groups give "::". Fields are cut to four characters; one that is no number reads as 0.
  ///
  /// @return the short form; `text` itself when `is_not_need_compress_ipv6` holds for it or memory
  ///         is short; empty for NULL.
  std::string ipv6_zero_compress(const char* text);

  /// True when `text` holds "::" already or does not hold exactly seven colons.
  bool is_not_need_compress_ipv6(const char* text);

  /// True when `field` reads as hexadecimal 0; so does a field that is no number.
  bool is_zero_area(const char* field);

  /// `field` read as a hexadecimal number and written in upper case without leading zeros.
  std::string delete_leading_zero(const char* field);

  /// Removes every white-space character (blank, `\t`, `\n`, `\v`, `\f`, `\r`) from `text`, in
  /// place.
  ///
  /// @return `text`.
  char* string_white_space_trim(char* text);

  /// How many times `c` occurs in `text`.
  int string_char_count(const char* text, char c);

  /// Makes IPv4-mapped IPv6 text: "::ffff:" followed by `text` as it is.
  ///
  /// @return the mapped text; empty when `text` holds no "." or holds a ":". Nothing else is
  ///         checked.
  std::string ipv4_to_ipv6(const std::string& text);

  /// Takes the dotted IPv4 text out of an IPv4-mapped address.
  ///
  /// The last 32 bits must be two groups of four hexadecimal digits ("::ffff:c0a8:0101", in either
  /// case). A dotted tail, as `ipv4_to_ipv6` writes it, is not understood: "::ffff:1.2.3.4" gives
  /// "1.0.0.0".
  ///
  /// @return the dotted text; empty when `text` holds neither "::ffff:" nor its written-out form
  ///         "0000:0000:0000:0000:0000:ffff:".
  std::string ipv6_to_ipv4(const std::string& text);

  /// Brings an address, dotted IPv4 (which is mapped) or IPv6, to the full form.
  ///
  /// @return 0, or 1 when `text` does not parse. On failure `out` is untouched.
  int format_ip_address(const char* text, std::string& out);

  // Addresses are compared by their decimal text: the four words printed in decimal, one after the
  // other. The longer text is the greater, then the digits decide. Among IPv4 addresses that is
  // their numeric order; among other IPv6 addresses it is not always.

  /// Appends the address or the range "first-last" that `expression` holds to `ranges`.
  ///
  /// Addresses are dotted IPv4, which is mapped, or IPv6; a range has both of one kind, and white
  /// space in them is ignored. There is no prefix-length form: "10.0.0.0/8" is the single address
  /// 10.0.0.0. An expression that is empty or does not parse appends nothing. Neither the order of
  /// the two addresses nor duplicates are looked at.
  void add_ip_to_range(const std::string& expression, std::vector<IPRangeExpress>& ranges);

  /// True when the address `ip`, dotted IPv4 or IPv6, matches one of `ranges`.
  ///
  /// A range matches from its first to its last address, both included, and never when they are
  /// reversed. A single address matches as well when its decimal text only begins with that of
  /// `ip`. An address that does not parse matches nothing.
  bool is_ip_in_range(const char* ip, std::vector<IPRangeExpress>& ranges);

  /// True when `ip` lies between `begin` and `end`, both included.
  ///
  /// All three are IPv6 text (mapped text such as "::ffff:10.0.0.1" too, plain dotted IPv4 not);
  /// what does not parse counts as "::".
  bool ipv6_in_range(const std::string& begin, const std::string& end, const std::string& ip);
};

}  // namespace utility
