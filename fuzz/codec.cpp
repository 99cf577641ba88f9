// Base64, hex, URL coding, the substitution cipher and MD5, each against a plain writing of its
// rules. The first byte chooses the coding, the others are its text. Results go to buffers of
// exactly the promised size, where the address sanitizer sees a byte too much.
#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "check.h"
#include "input.h"
#include "lines.h"
#include "utility/Base64.h"
#include "utility/CBinHex.h"
#include "utility/CConv.h"
#include "utility/CHmacMd5.h"
#include "utility/Ciphers.h"
#include "utility/MD5.h"
#include "utility/md5wrapper.h"

namespace {

using Bytes = std::vector<unsigned char>;

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kDigits[] = "0123456789ABCDEF";

const unsigned char* bytes_of(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

// --- Base64

std::string plain_base64(const std::string& bytes) {
  std::string text;
  for (std::size_t bit = 0; bit < bytes.size() * 8; bit += 6) {
    unsigned value = 0;
    for (std::size_t i = bit; i < bit + 6; ++i) {
      const bool set = i / 8 < bytes.size() && (bytes_of(bytes)[i / 8] >> (7 - i % 8) & 1) != 0;
      value = value << 1 | (set ? 1U : 0U);
    }
    text += kAlphabet[value];
  }
  text.append((4 - text.size() % 4) % 4, '=');
  return text;
}

std::string plain_filter(const std::string& text) {
  std::string kept;
  for (const char c : text) {
    if (c != '\0' && (c == '=' || std::strchr(kAlphabet, c) != nullptr)) kept += c;
  }
  return kept;
}

std::string plain_unbase64(const std::string& kept) {
  std::string bits;
  for (const char c : kept) {
    const std::size_t value =
        c == '=' ? 63 : static_cast<std::size_t>(std::strchr(kAlphabet, c) - kAlphabet);
    for (int bit = 5; bit >= 0; --bit) bits += (value >> bit & 1) != 0 ? '1' : '0';
  }
  std::string bytes;
  for (std::size_t i = 0; i < bits.size(); i += 8) {
    bytes += static_cast<char>(std::stoi(bits.substr(i, 8), nullptr, 2));
  }
  for (std::size_t i = 1; i <= 2 && i <= kept.size() && kept[kept.size() - i] == '='; ++i) {
    bytes.pop_back();
  }
  return bytes;
}

struct Handed {
  bool out;
  std::string bytes;
};

template <typename Form>
Handed handed_out(Form form, const std::string& in) {
  unsigned char untouched = 0;
  unsigned char* out = &untouched;
  unsigned long size = 77;
  form(out, size, bytes_of(in), in.size());
  if (out == &untouched) {
    FUZZ_CHECK(size == 0);
    return {false, {}};
  }
  const std::unique_ptr<unsigned char[]> owner(out);
  return {true, {reinterpret_cast<const char*>(out), size}};
}

void base64(const std::string& in) {
  using Form = void (*)(unsigned char*&, unsigned long&, const unsigned char*, unsigned long);
  const std::string text = plain_base64(in);
  const Handed encoded = handed_out(static_cast<Form>(utility::Base64::encode), in);
  FUZZ_CHECK(encoded.out == !in.empty() && encoded.bytes == text);
  FUZZ_CHECK(utility::Base64::encode(in) == text);
  FUZZ_CHECK(utility::Base64::decode(text) == in);

  const std::string kept = plain_filter(in);
  const Handed filtered = handed_out(utility::Base64::removeNonBase64Chars, in);
  FUZZ_CHECK(filtered.out && filtered.bytes == kept);
  const bool whole = !in.empty() && kept.size() % 4 == 0;
  const std::string bytes = whole ? plain_unbase64(kept) : "";
  const Handed decoded = handed_out(static_cast<Form>(utility::Base64::decode), in);
  FUZZ_CHECK(decoded.out == whole && decoded.bytes == bytes);
  FUZZ_CHECK(utility::Base64::decode(in) == bytes);
}

// --- Hex

std::string plain_hex(const std::string& bytes) {
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    text += kDigits[bytes_of(bytes)[i] / 16];
    text += kDigits[bytes_of(bytes)[i] % 16];
  }
  return text;
}

int plain_digit(signed char c) {
  if (c >= 'a') return c - 87;
  return c >= 'A' ? c - 55 : c - 48;
}

std::string plain_unhex(std::string text) {
  if (text.size() % 2 != 0) text += '\0';
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    const int high = plain_digit(static_cast<signed char>(text[i]));
    bytes += static_cast<char>(high * 16 + plain_digit(static_cast<signed char>(text[i + 1])));
  }
  return bytes;
}

void hex(const std::string& in) {
  const std::string text = plain_hex(in);
  const std::string bytes = plain_unhex(in);
  FUZZ_CHECK(utility::CBinHex::simple_bin2hex(in) == text);
  FUZZ_CHECK(utility::CBinHex::simple_hex2bin(in) == up_to_nul(bytes));

  const int size = static_cast<int>(in.size());
  std::vector<char> room(text.size(), '#');
  const int short_by_one = static_cast<int>(room.size()) - 1;
  if (size > 0) {
    FUZZ_CHECK(utility::CBinHex::bin2hex(in.data(), size, room.data(), short_by_one) == 2 * size);
  }
  FUZZ_CHECK(std::count(room.begin(), room.end(), '#') == 2 * size);
  FUZZ_CHECK(utility::CBinHex::bin2hex(in.data(), size, room.data(), 2 * size) == 0);
  FUZZ_CHECK(std::equal(room.begin(), room.end(), text.begin()));

  // In place, in a buffer that ends with the byte that an odd text has read behind it.
  std::vector<char> both(in.begin(), in.end());
  if (size % 2 != 0) both.push_back('\0');
  const int half = (size + 1) / 2;
  if (size > 0) {
    FUZZ_CHECK(utility::CBinHex::hex2bin(both.data(), size, both.data(), half - 1) == half);
  }
  FUZZ_CHECK(utility::CBinHex::hex2bin(both.data(), size, both.data(), half) == 0);
  FUZZ_CHECK(std::equal(bytes.begin(), bytes.end(), both.begin()));
}

// --- URL coding

std::string plain_url(const std::string& text) {
  std::string encoded;
  for (const char c : text) {
    if (c == ' ') {
      encoded += '+';
    } else if (static_cast<unsigned char>(c) < 128 && (std::isalnum(c) || std::strchr("-._", c))) {
      encoded += c;
    } else {
      encoded += '%' + plain_hex(std::string(1, c));
    }
  }
  return encoded;
}

std::string plain_unurl(const std::string& text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::string spelt = text[i] == '%' ? text.substr(i + 1, 2) : "";
    const bool hex =
        spelt.size() == 2 && spelt.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    if (hex) {
      decoded += static_cast<char>(std::stoi(spelt, nullptr, 16));
      i += 2;
    } else {
      decoded += text[i] == '+' ? ' ' : text[i];
    }
  }
  return up_to_nul(decoded);
}

void url(const std::string& in) {
  const std::string encoded = plain_url(up_to_nul(in));
  FUZZ_CHECK(utility::CConv::url_encode(in) == encoded);
  FUZZ_CHECK(utility::CConv::url_string(in.c_str()) == encoded);
  FUZZ_CHECK(utility::CConv::url_decode(encoded) == up_to_nul(in));
  FUZZ_CHECK(utility::CConv::url_decode(in) == plain_unurl(in));
}

// --- The substitution cipher

void substitution(const std::string& in) {
  const std::string cipher = utility::aes_encrypt_imp(in);
  FUZZ_CHECK(cipher.size() == 2 * in.size());
  FUZZ_CHECK(utility::aes_decrypt_imp(cipher) == up_to_nul(in));
  utility::aes_decrypt_imp(in);
  FUZZ_CHECK(utility::aes_decrypt(utility::aes_encrypt(in, 3), 3) == up_to_nul(in));
}

// --- MD5 and HMAC-MD5

std::uint32_t rotated(std::uint32_t word, unsigned by) {
  return word << by | word >> (32 - by);
}

std::array<std::uint32_t, 64> make_sines() {
  std::array<std::uint32_t, 64> sines{};
  for (std::size_t i = 0; i < 64; ++i) {
    const double sine = std::sin(static_cast<double>(i + 1));
    sines[i] = static_cast<std::uint32_t>(std::fabs(sine) * 4294967296.0);
  }
  return sines;
}

void plain_md5_block(std::array<std::uint32_t, 4>& state, const unsigned char* block) {
  constexpr unsigned kRotations[4][4] = {
      {7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
  static const std::array<std::uint32_t, 64> kSines = make_sines();
  auto [a, b, c, d] = state;
  for (std::uint32_t i = 0; i < 64; ++i) {
    const std::uint32_t mixes[4] = {(b & c) | (~b & d), (b & d) | (c & ~d), b ^ c ^ d,
                                    c ^ (b | ~d)};
    const std::uint32_t words[4] = {i, 5 * i + 1, 3 * i + 5, 7 * i};
    const unsigned char* const word = block + 4 * (words[i / 16] % 16);
    std::uint32_t x = 0;
    for (int byte = 3; byte >= 0; --byte) x = x << 8 | word[byte];
    const std::uint32_t sum = a + mixes[i / 16] + kSines[i] + x;
    a = d;
    d = c;
    c = b;
    b += rotated(sum, kRotations[i / 16][i % 4]);
  }
  state = {state[0] + a, state[1] + b, state[2] + c, state[3] + d};
}

std::string plain_md5(std::string message) {
  const std::uint64_t bits = std::uint64_t{8} * message.size();
  message += '\x80';
  while (message.size() % 64 != 56) message += '\0';
  for (unsigned i = 0; i < 8; ++i) message += static_cast<char>(bits >> (8 * i) & 255);
  std::array<std::uint32_t, 4> state = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
  for (std::size_t i = 0; i < message.size(); i += 64)
    plain_md5_block(state, bytes_of(message) + i);
  std::string digest;
  for (unsigned i = 0; i < 16; ++i)
    digest += static_cast<char>(state[i / 4] >> (8 * (i % 4)) & 255);
  return digest;
}

/// The digest of `message`, handed over in pieces of the sizes that `cuts` holds, in turn.
std::string md5_in_pieces(const std::string& message, const std::string& cuts) {
  utility::MD5::MD5_CTX context;
  utility::MD5::MD5Init(&context);
  for (std::size_t at = 0, turn = 0; at < message.size(); ++turn) {
    const std::size_t wanted = cuts.empty() ? message.size() : bytes_of(cuts)[turn % cuts.size()];
    Bytes piece(message.begin() + static_cast<std::ptrdiff_t>(at), message.end());
    piece.resize(std::min(turn < 64 ? wanted : piece.size(), piece.size()));
    piece.shrink_to_fit();
    utility::MD5::MD5Update(&context, piece.data(), static_cast<unsigned>(piece.size()));
    at += piece.size();
  }
  Bytes digest(16);
  utility::MD5::MD5Final(digest.data(), &context);
  return {digest.begin(), digest.end()};
}

void md5(const std::string& cuts, const std::string& message) {
  const std::string digest = plain_md5(message);
  FUZZ_CHECK(md5_in_pieces(message, "") == digest);
  FUZZ_CHECK(md5_in_pieces(message, cuts) == digest);
  std::string lower_case = plain_hex(digest);
  for (char& c : lower_case) c = static_cast<char>(std::tolower(c));
  utility::md5wrapper wrapper;
  FUZZ_CHECK(wrapper.hashit(message) == lower_case);
}

std::string padded(std::string key, char pad) {
  key.resize(64);
  for (char& c : key) c = static_cast<char>(c ^ pad);
  return key;
}

void hmac(const std::string& key, const std::string& message) {
  std::vector<char> room(key.begin(), key.end());
  std::vector<char> digest(16, '#');
  const int result =
      utility::CHmacMd5::hmac_md5(message.data(), static_cast<int>(message.size()), room.data(),
                                  static_cast<int>(room.size()), digest.data());
  const std::string got(digest.begin(), digest.end());
  if (key.empty() || message.empty()) {
    FUZZ_CHECK(result == 1 && got == std::string(16, '#'));
    return;
  }
  std::string used = up_to_nul(key);
  std::string left = key;
  if (used.size() > 64) {
    used = plain_md5(used);
    left = used;
    left.resize(key.size());
  }
  FUZZ_CHECK(result == 0 && std::string(room.begin(), room.end()) == left);
  FUZZ_CHECK(got == plain_md5(padded(used, '\x5c') + plain_md5(padded(used, '\x36') + message)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const unsigned char coding = input.byte();
  const std::string first = coding == 'm' || coding == 'k' ? input.text('\n') : "";
  const std::string text = input.rest();
  switch (coding) {
    case 'b':
      base64(text);
      break;
    case 'h':
      hex(text);
      break;
    case 'u':
      url(text);
      break;
    case 's':
      substitution(text);
      break;
    case 'm':
      md5(first, text);
      break;
    case 'k':
      hmac(first, text);
      break;
    default:
      break;
  }
  return 0;
}
