#include "utility/MD5.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <utility>

namespace utility {
namespace {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "words are taken from bytes as they lie");

constexpr std::size_t kBlock = 64;
constexpr std::size_t kLengthAt = 56;  // where the bit count goes in the last block

// RFC 1321, 3.4: T[i] = floor(4294967296 * abs(sin(i))), i in radians.
constexpr std::array<std::uint32_t, 64> kSines = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

// By round: the four rotations, and the message word of step i, (factor * i + first) mod 16.
struct Round {
  std::array<int, 4> rotations;
  std::size_t factor;
  std::size_t first;
};
constexpr std::array<Round, 4> kRounds = {{{{7, 12, 17, 22}, 1, 0},
                                           {{5, 9, 14, 20}, 5, 1},
                                           {{4, 11, 16, 23}, 3, 5},
                                           {{6, 10, 15, 21}, 7, 0}}};

/// F, G, H and I of the RFC added to `sum`. The two halves of G share no bit, so they may be added
/// one by one; only the second then waits for b, the word that the step before has just made.
template <std::size_t R>
[[gnu::always_inline]] inline std::uint32_t mix(std::uint32_t sum, std::uint32_t b, std::uint32_t c,
                                                std::uint32_t d) noexcept {
  if constexpr (R == 0) return sum + (d ^ (b & (c ^ d)));
  if constexpr (R == 1) return sum + (c & ~d) + (b & d);
  if constexpr (R == 2) return sum + (b ^ (c ^ d));
  if constexpr (R == 3) return sum + (c ^ (b | ~d));
}

/// Step I of 64.
template <std::size_t I>
[[gnu::always_inline]] inline void step(std::uint32_t& a, std::uint32_t b, std::uint32_t c,
                                        std::uint32_t d, const unsigned char* block) noexcept {
  constexpr Round kRound = kRounds[I / 16];
  constexpr int kRotation = kRound.rotations[I % 4];
  constexpr std::size_t kWord = (kRound.factor * I + kRound.first) % 16;
  std::uint32_t x = 0;
  std::memcpy(&x, block + 4 * kWord, sizeof x);
  const std::uint32_t sum = mix<I / 16>(a + x + kSines[I], b, c, d);
  a = b + (sum << kRotation | sum >> (32 - kRotation));
}

/// Steps 4 * Q to 4 * Q + 3, after which each word is in its own place again.
template <std::size_t Q>
[[gnu::always_inline]] inline void four_steps(std::uint32_t& a, std::uint32_t& b, std::uint32_t& c,
                                              std::uint32_t& d,
                                              const unsigned char* block) noexcept {
  step<4 * Q>(a, b, c, d, block);
  step<4 * Q + 1>(d, a, b, c, block);
  step<4 * Q + 2>(c, d, a, b, block);
  step<4 * Q + 3>(b, c, d, a, block);
}

template <std::size_t... Q>
[[gnu::always_inline]] inline void all_steps(std::uint32_t& a, std::uint32_t& b, std::uint32_t& c,
                                             std::uint32_t& d, const unsigned char* block,
                                             std::index_sequence<Q...>) noexcept {
  (four_steps<Q>(a, b, c, d, block), ...);
}

/// Works `count` blocks into `state`. The words are single variables, not an array, so that they
/// stay in registers from block to block.
void transform(unsigned int* state, const void* message, std::size_t count) noexcept {
  const auto* block = static_cast<const unsigned char*>(message);
  std::uint32_t a = state[0];
  std::uint32_t b = state[1];
  std::uint32_t c = state[2];
  std::uint32_t d = state[3];
  for (; count > 0; --count, block += kBlock) {
    const std::array<std::uint32_t, 4> before{a, b, c, d};
    all_steps(a, b, c, d, block, std::make_index_sequence<16>());
    a += before[0];
    b += before[1];
    c += before[2];
    d += before[3];
  }
  state[0] = a;
  state[1] = b;
  state[2] = c;
  state[3] = d;
}

std::size_t pending(const MD5::MD5_CTX& context) noexcept { return context.count[0] / 8 % kBlock; }

}  // namespace

void MD5::MD5Init(MD5_CTX* context) {
  constexpr std::array<std::uint32_t, 4> kStart = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
  std::memcpy(context->state, kStart.data(), sizeof context->state);
  std::memset(context->count, 0, sizeof context->count);
}

void MD5::MD5Update(MD5_CTX* context, unsigned char* input, unsigned int inputLen) {
  if (inputLen == 0) return;
  const std::size_t held = pending(*context);
  const unsigned int bits = inputLen << 3;
  context->count[0] += bits;
  if (context->count[0] < bits) ++context->count[1];
  context->count[1] += inputLen >> 29;

  std::size_t left = inputLen;
  const unsigned char* next = input;
  if (held > 0) {
    const std::size_t space = kBlock - held;
    if (left < space) {
      std::memcpy(context->buffer + held, next, left);
      return;
    }
    std::memcpy(context->buffer + held, next, space);
    transform(context->state, context->buffer, 1);
    next += space;
    left -= space;
  }
  transform(context->state, next, left / kBlock);
  next += left / kBlock * kBlock;
  left %= kBlock;
  if (left > 0) std::memcpy(context->buffer, next, left);
}

void MD5::MD5Final(unsigned char digest[16], MD5_CTX* context) {
  // The last block is put together in words: transform() reads words, and a read across two writes
  // that are still under way costs a short message several percent.
  std::array<std::uint32_t, kBlock / 4> last{};
  const std::size_t held = pending(*context);
  if (held > 0) std::memcpy(last.data(), context->buffer, held);
  last[held / 4] |= std::uint32_t{0x80} << (8 * (held % 4));
  if (held >= kLengthAt) {
    transform(context->state, last.data(), 1);
    last = {};
  }
  last[kLengthAt / 4] = context->count[0];
  last[kLengthAt / 4 + 1] = context->count[1];
  transform(context->state, last.data(), 1);
  std::memcpy(digest, context->state, sizeof context->state);
  // By member: zeroing all 88 bytes at once is compiled to "rep stos", slow at this size.
  std::memset(context->state, 0, sizeof context->state);
  std::memset(context->count, 0, sizeof context->count);
  std::memset(context->buffer, 0, sizeof context->buffer);
}

void MD5::MD5Transform(unsigned int state[4], unsigned char block[64]) {
  transform(state, block, 1);
}

void MD5::Encode(unsigned char* out, unsigned int* in, unsigned int len) {
  std::memcpy(out, in, len);
}

void MD5::Decode(unsigned int* out, unsigned char* in, unsigned int len) {
  std::memcpy(out, in, len);
}

void MD5::MD5_memcpy(unsigned char* output, unsigned char* input, unsigned int len) {
  std::memcpy(output, input, len);
}

void MD5::MD5_memset(unsigned char* output, int value, unsigned int len) {
  std::memset(output, value, len);
}

}  // namespace utility
