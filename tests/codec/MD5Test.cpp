#include "utility/MD5.h"

#include <sys/mman.h>

#include <algorithm>

#include "codec/oracle.h"
#include "utility/CHmacMd5.h"
#include "utility/md5wrapper.h"

namespace {

using namespace utility;

std::string digest_in_pieces(unsigned char* text, std::size_t size, std::size_t piece) {
  MD5::MD5_CTX context;
  MD5::MD5Init(&context);
  for (std::size_t at = 0; at < size; at += piece) {
    MD5::MD5Update(&context, text + at, static_cast<unsigned int>(std::min(piece, size - at)));
  }
  unsigned char digest[16];
  MD5::MD5Final(digest, &context);
  const std::string left(reinterpret_cast<const char*>(&context), sizeof context);
  EXPECT_EQ(left, std::string(88, '\0')) << "nothing of the message stays";
  return md5wrapper().convToString(digest);
}

TEST(MD5, EveryLengthAsMd5sumHasItInPiecesAndFromFiles) {
  const TempDir dir;
  md5wrapper md5;
  std::string lines;
  for (std::size_t size = 0; size <= 200; ++size) {
    const std::string text = sample(size < 200 ? size : 100000);
    const std::string digest = md5.getHashFromString(text);
    const std::string name = std::to_string(1000 + size);
    EXPECT_EQ(md5.getHashFromFile(dir.write(name, text)), digest) << size;
    for (std::size_t piece = 1; piece <= 130; ++piece) {
      EXPECT_EQ(digest_in_pieces(bytes(text), text.size(), piece), digest) << size << '/' << piece;
    }
    lines += digest + "  " + name + "\n";
  }
  EXPECT_EQ(lines, output_of("cd " + dir.path() + "; md5sum *"));
  EXPECT_EQ(md5.getHashFromFile(dir / "missing"), "-1");
  EXPECT_EQ(md5.getHashFromFile(dir.path()), md5.hashit("")) << "it opens, but no read succeeds";
  EXPECT_EQ(md5.hashit("message digest"), "f96b697d7cb7938d525a2f31aaf161d0") << "RFC 1321";
}

TEST(MD5, BitCountGoesBeyondThirtyTwoBits) {
  // 5 * 2^30 bits of zeros: the kernel's own page, again and again, which costs no memory.
  constexpr std::size_t kSize = std::size_t{640} << 20;
  void* const zeros = ::mmap(nullptr, kSize, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(zeros, MAP_FAILED);
  ::madvise(zeros, kSize, MADV_HUGEPAGE);
  // head -c 671088640 /dev/zero | md5sum
  EXPECT_EQ(digest_in_pieces(static_cast<unsigned char*>(zeros), kSize, kSize),
            "d2c5462aa2245773f3540a1ea4ec59db");
  ::munmap(zeros, kSize);

  MD5::MD5_CTX context = {{}, {0xFFFFFE00, 0}, {}};
  MD5::MD5Update(&context, bytes(std::string(64, 'x')), 64);
  EXPECT_TRUE(context.count[0] == 0 && context.count[1] == 1) << "the carry of the low word";
}

TEST(MD5, StepsOfTheAlgorithm) {
  MD5::MD5_CTX context;
  MD5::MD5Init(&context);
  std::string block = "abc\x80" + std::string(52, '\0') + "\x18" + std::string(7, '\0');
  MD5::MD5Transform(context.state, bytes(block));
  MD5::Encode(bytes(block), context.state, 16);
  EXPECT_EQ(hex_of(block.substr(0, 16)), "900150983cd24fb0d6963f7d28e17f72");
  MD5::Decode(context.count, bytes(block), 8);
  EXPECT_EQ(context.count[0], 0x98500190U) << "the first byte is the lowest";
}

TEST(CHmacMd5, VectorsOfRfc2202AndKeysThatEndAtAZeroByte) {
  // Key, text, digest, and what the key becomes where it is too long.
  const std::string rows[][4] = {
      {std::string(16, '\x0b'), "Hi There", "9294727a3638bb1c13f48ef8158bfc9d", ""},
      {std::string(80, '\xaa') + std::string("\0rest", 5),
       "Test Using Larger Than Block-Size Key and Larger Than One Block-Size Data",
       "6f630fad67cda0ee1fb1f562db3aa53e", "8fb6ab01840023ec453ecdec73dc1b66"},
      // python3: hmac.new(key, text, "md5").hexdigest()
      {std::string("\x01\x02\0\x03", 4), "Hi There", "3b048af38f345630d95418abde5a5c37", ""},
      {std::string("\0key", 4), "Hi There", "72c33c78cac0b7a581ac263a344ed01d", ""},
      {std::string(64, 'k') + '\0', "Hi There", "84c87c88113a4b51253b9e6b6b0f4e9c", ""},
  };
  for (const auto& [key, text, expected, replaced] : rows) {
    std::string key_buffer = key;
    char digest[16];
    EXPECT_EQ(CHmacMd5::hmac_md5(text.data(), static_cast<int>(text.size()), key_buffer.data(),
                                 static_cast<int>(key.size()), digest),
              0);
    EXPECT_EQ(CHmacMd5::checksumtostring(digest), expected);
    const std::string zeros(2 * key.size() - replaced.size(), '0');
    EXPECT_EQ(hex_of(key_buffer), replaced.empty() ? hex_of(key) : replaced + zeros);
  }
}

TEST(CHmacMd5, RefusalsLeaveEverythingAlone) {
  char k[] = "a key";
  char d[] = "its room for 16.";
  EXPECT_EQ(CHmacMd5::hmac_md5(nullptr, 1, k, 5, d), 1);
  EXPECT_EQ(CHmacMd5::hmac_md5("x", 0, k, 5, d), 1);
  EXPECT_EQ(CHmacMd5::hmac_md5("x", 1, nullptr, 5, d), 1);
  EXPECT_EQ(CHmacMd5::hmac_md5("x", 1, k, 0, d), 1);
  EXPECT_EQ(CHmacMd5::hmac_md5("x", 1, k, 5, nullptr), 1);
  EXPECT_EQ(CHmacMd5::md5(nullptr, 1, d), 1);
  EXPECT_EQ(CHmacMd5::md5(k, 0, d), 1);
  EXPECT_EQ(CHmacMd5::md5(k, 1, nullptr), 1);
  EXPECT_EQ(std::string(k) + d, "a keyits room for 16.");
  EXPECT_EQ(CHmacMd5::checksumtostring(nullptr), "");
}

}  // namespace
