#include "utility/Base64.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

namespace utility {
namespace {

constexpr char CHAR_TABLE[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned char kPad = '=';
constexpr std::uint32_t kNone = 0xFFFFFFFF;

using ByteTable = std::array<std::uint32_t, 256>;

constexpr ByteTable make_index_table() {
  ByteTable table{};
  for (std::uint32_t& value : table) value = kNone;
  for (std::uint32_t i = 0; i < 64; ++i) table[static_cast<unsigned char>(CHAR_TABLE[i])] = i;
  return table;
}
constexpr ByteTable INDEX_TABLE = make_index_table();

// 1 for each byte that belongs to base64 text.
constexpr std::array<unsigned char, 256> make_kept_table() {
  std::array<unsigned char, 256> table{};
  for (std::size_t i = 0; i < 256; ++i) table[i] = INDEX_TABLE[i] != kNone || i == kPad ? 1 : 0;
  return table;
}
constexpr std::array<unsigned char, 256> kKept = make_kept_table();

// Two characters for each 12 bits: a group of three bytes takes two loads instead of four.
struct CharPairs {
  std::array<char, std::size_t{2} * 4096> text{};

  constexpr CharPairs() {
    for (std::size_t i = 0; i < 4096; ++i) {
      text[2 * i] = CHAR_TABLE[i >> 6];
      text[2 * i + 1] = CHAR_TABLE[i & 63];
    }
  }
};
constexpr CharPairs kCharPairs;

/// The three bytes of a group of 24 bits, in the order in which they lie in memory.
constexpr std::uint32_t in_memory_order(std::uint32_t group) {
  return (group & 0xFF) << 16 | (group & 0xFF00) | group >> 16;
}

// INDEX_TABLE moved to each of the four places of a group, so that a group is the "or" of four
// loads. A byte outside the alphabet sets the top byte, which no group uses.
constexpr std::uint32_t kBadGroup = 0xFF000000;
constexpr ByteTable make_place_table(unsigned shift) {
  ByteTable table{};
  for (std::size_t i = 0; i < 256; ++i) {
    const std::uint32_t value = INDEX_TABLE[i];
    table[i] = value == kNone ? kBadGroup : in_memory_order(value << shift);
  }
  return table;
}
constexpr std::array<ByteTable, 4> kPlaces = {make_place_table(18), make_place_table(12),
                                              make_place_table(6), make_place_table(0)};

using Bytes = std::unique_ptr<unsigned char[]>;

Bytes make_bytes(std::size_t size) noexcept {
  return Bytes(new (std::nothrow) unsigned char[size]);
}

void hand_out(unsigned char*& out, unsigned long& out_len, Bytes bytes, std::size_t size) noexcept {
  out_len = bytes ? size : 0;
  if (bytes) out = bytes.release();
}

void put_pair(unsigned char* out, std::uint64_t twelve_bits) noexcept {
  std::memcpy(out, &kCharPairs.text[2 * std::size_t{twelve_bits}], 2);
}

/// Encodes the three bytes on top of `bits`.
void put_group(unsigned char* out, std::uint64_t bits) noexcept {
  put_pair(out, bits >> 52);
  put_pair(out + 2, bits >> 40 & 0xFFF);
}

void encode_into(unsigned char* out, const unsigned char* in, std::size_t size) noexcept {
  // Two groups to a load, which reads two bytes more.
  for (; size >= 8; size -= 6, in += 6, out += 8) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, in, sizeof bits);
    bits = __builtin_bswap64(bits);
    put_group(out, bits);
    put_group(out + 4, bits << 24);
  }
  while (size > 0) {
    const std::size_t taken = size < 3 ? size : 3;
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < taken; ++i) bits |= std::uint64_t{in[i]} << (56 - 8 * i);
    put_group(out, bits);
    if (taken < 3) out[3] = kPad;
    if (taken < 2) out[2] = kPad;
    size -= taken, in += taken, out += 4;
  }
}

/// Copies what belongs to base64 text and returns its count.
std::size_t keep_base64(unsigned char* out, const unsigned char* in, std::size_t size) noexcept {
  std::size_t count = 0;
  for (std::size_t i = 0; i < size; ++i) {
    out[count] = in[i];  // written always, counted where it stays: no branch to guess
    count += kKept[in[i]];
  }
  return count;
}

/// The count of bytes that `size` characters (a multiple of 4) decode to.
std::size_t decoded_size(const unsigned char* text, std::size_t size) noexcept {
  if (size == 0) return 0;
  std::size_t padding = 0;
  if (text[size - 1] == kPad) padding = text[size - 2] == kPad ? 2 : 1;
  return size - padding - size / 4;
}

/// Decodes a group whose pads count as 63, the marker of INDEX_TABLE cut to six bits.
std::uint32_t read_padded_group(const unsigned char* in) noexcept {
  std::uint32_t group = 0;
  for (int i = 0; i < 4; ++i) group = group << 6 | (INDEX_TABLE[in[i]] & 63);
  return in_memory_order(group);
}

/// Decodes text that holds nothing but the alphabet and pads. This is what decoding means.
void decode_filtered(unsigned char* out, std::size_t out_size, const unsigned char* in) noexcept {
  while (out_size > 0) {
    const std::uint32_t group = read_padded_group(in);
    const std::size_t count = out_size < 3 ? out_size : 3;
    std::memcpy(out, &group, count);
    out_size -= count, in += 4, out += count;
  }
}

/// The same in one pass over text that needs no filter; false, with `out` half written, where a
/// byte is met that does. Pads are expected in the last group only.
bool decode_clean(unsigned char* out, std::size_t out_size, const unsigned char* in) noexcept {
  // Whole words are written, each with a byte that the next group overwrites.
  for (; out_size > 3; out_size -= 3, in += 4, out += 3) {
    const std::uint32_t group =
        kPlaces[0][in[0]] | kPlaces[1][in[1]] | kPlaces[2][in[2]] | kPlaces[3][in[3]];
    if (group >= kBadGroup) return false;
    std::memcpy(out, &group, sizeof group);
  }
  if (out_size == 0) return true;
  for (std::size_t i = 0; i <= out_size; ++i) {
    if (INDEX_TABLE[in[i]] == kNone) return false;
  }
  decode_filtered(out, out_size, in);
  return true;
}

/// Decodes `size` characters, a multiple of 4, and hands the bytes out; false, with nothing handed
/// out, where they need a filter and are not `filtered`.
bool decode_text(unsigned char*& out, unsigned long& out_len, const unsigned char* in,
                 std::size_t size, bool filtered) noexcept {
  const std::size_t count = decoded_size(in, size);
  Bytes bytes = make_bytes(count);
  if (bytes && !decode_clean(bytes.get(), count, in)) {
    if (!filtered) return false;
    decode_filtered(bytes.get(), count, in);
  }
  hand_out(out, out_len, std::move(bytes), count);
  return true;
}

using BufferForm = void (*)(unsigned char*&, unsigned long&, const unsigned char*, unsigned long);

/// A buffer form's result as a string; empty where nothing is handed out.
std::string run(BufferForm form, const std::string& in) {
  unsigned char* out = nullptr;
  unsigned long length = 0;
  form(out, length, reinterpret_cast<const unsigned char*>(in.data()), in.size());
  const Bytes owner(out);
  return {reinterpret_cast<const char*>(out), length};
}

}  // namespace

void Base64::encode(unsigned char*& out, unsigned long& outLen, const unsigned char* in,
                    unsigned long inLen) {
  outLen = 0;
  if (inLen == 0) return;
  const std::size_t size = (inLen + 2) / 3 * 4;
  Bytes text = make_bytes(size);
  if (text) encode_into(text.get(), in, inLen);
  hand_out(out, outLen, std::move(text), size);
}

void Base64::removeNonBase64Chars(unsigned char*& out, unsigned long& outLen,
                                  const unsigned char* in, unsigned long inLen) {
  Bytes kept = make_bytes(inLen);
  const std::size_t count = kept ? keep_base64(kept.get(), in, inLen) : 0;
  hand_out(out, outLen, std::move(kept), count);
}

void Base64::decode(unsigned char*& out, unsigned long& outLen, const unsigned char* in,
                    unsigned long inLen) {
  outLen = 0;
  if (inLen == 0 || (inLen % 4 == 0 && decode_text(out, outLen, in, inLen, false))) return;
  unsigned char* kept = nullptr;
  unsigned long count = 0;
  removeNonBase64Chars(kept, count, in, inLen);
  const Bytes filtered(kept);
  if (filtered && count % 4 == 0) decode_text(out, outLen, kept, count, true);
}

std::string Base64::encode(const std::string& bytes) { return run(encode, bytes); }

std::string Base64::decode(const std::string& text) { return run(decode, text); }

}  // namespace utility
