#include <string_view>

#include "utility/CBinHex.h"
#include "utility/Ciphers.h"

namespace utility {
namespace {

constexpr std::string_view sbox = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::string_view invsbox = "KMLOB165S9GA2X3QVICHJRTZND7PE0Y8WUF4";
static_assert(sbox.size() == 36 && invsbox.size() == 36);

int index_in(std::string_view table, char c) noexcept {
  const std::size_t at = table.find(c);
  return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

/// Replaces each character that has an index by the entry of `images` at that index.
void substitute(std::string& text, int (*index)(char), std::string_view images) {
  for (char& c : text) {
    const int at = index(c);
    if (at >= 0) c = images[static_cast<std::size_t>(at)];
  }
}

/// Nothing comes of an empty text in any round, so the rounds end there.
std::string repeat(std::string (*round)(const std::string&), std::string text, int rounds) {
  for (; rounds > 0 && !text.empty(); --rounds) text = round(text);
  return text;
}

}  // namespace

std::string aes_encrypt(const std::string& text, int rounds) {
  return repeat(aes_encrypt_imp, text, rounds);
}

std::string aes_decrypt(const std::string& text, int rounds) {
  return repeat(aes_decrypt_imp, text, rounds);
}

std::string aes_encrypt_imp(const std::string& text) {
  std::string digits = CBinHex::simple_bin2hex(text);
  substitute(digits, get_sbox_idx, invsbox);
  return digits;
}

std::string aes_decrypt_imp(const std::string& text) {
  std::string digits = text;
  substitute(digits, get_invsbox_idx, sbox);
  return CBinHex::simple_hex2bin(digits);
}

int get_sbox_idx(char c) { return index_in(sbox, c); }

int get_invsbox_idx(char c) { return index_in(invsbox, c); }

}  // namespace utility
