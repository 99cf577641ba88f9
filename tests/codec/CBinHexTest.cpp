#include "utility/CBinHex.h"

#include <climits>

#include "codec/oracle.h"

namespace {

using utility::CBinHex;

TEST(CBinHex, RoundTripsEveryLengthInBuffersOfExactlyTheRoomNeeded) {
  for (int size = 0; size <= 300; ++size) {
    const std::string in = sample(static_cast<std::size_t>(size));
    const std::string expected = hex_of(in, "%02X");
    const std::unique_ptr<char[]> text(new char[expected.size()]);
    EXPECT_EQ(CBinHex::bin2hex(in.data(), size, text.get(), 2 * size), 0);
    EXPECT_EQ(std::string(text.get(), expected.size()), expected);
    EXPECT_EQ(CBinHex::simple_bin2hex(in), expected);
    EXPECT_EQ(CBinHex::hex2bin(text.get(), 2 * size, text.get(), size), 0) << "in place";
    EXPECT_EQ(std::string(text.get(), in.size()), in);
    EXPECT_EQ(CBinHex::simple_hex2bin(expected), in.c_str()) << "ends at a zero byte";
  }
}

TEST(CBinHex, TooLittleRoomIsAnsweredWithTheRoomNeeded) {
  std::string out = "....";
  EXPECT_EQ(CBinHex::bin2hex("\x0a\xff", 2, out.data(), 3), 4);
  EXPECT_EQ(CBinHex::bin2hex("", INT_MAX, nullptr, 0), INT_MAX) << "an int counts no further";
  EXPECT_EQ(CBinHex::hex2bin("0a1", 3, out.data(), 1), 2);
  EXPECT_EQ(out, "....");
  // "z" is 35 and "!" is -15; the NUL after an odd text counts as -48.
  EXPECT_EQ(CBinHex::simple_hex2bin("4a4Bz!414"),
            "JK\x21"
            "A\x10");
}

}  // namespace
