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

TEST(CBinHex, AnyTwoCharactersMakeAByte) {
  const auto value = [](int c) { return c >= 'a' ? c - 87 : c >= 'A' ? c - 55 : c - 48; };
  for (int high = -128; high < 128; ++high) {
    std::string text;
    std::string expected;
    for (int low = -128; low < 128; ++low) {
      text += {static_cast<char>(high), static_cast<char>(low)};
      expected += static_cast<char>(value(high) * 16 + value(low));
    }
    std::string out(256, '\0');
    EXPECT_EQ(CBinHex::hex2bin(text.data(), 512, out.data(), 256), 0);
    EXPECT_EQ(out, expected) << high;
  }
  EXPECT_EQ(CBinHex::simple_hex2bin("4a4B414"), "JKA\x10") << "the NUL behind counts as -48";
}

TEST(CBinHex, TooLittleRoomIsAnsweredWithTheRoomNeeded) {
  std::string out = "....";
  EXPECT_EQ(CBinHex::bin2hex("\x0a\xff", 2, out.data(), 3), 4);
  EXPECT_EQ(CBinHex::bin2hex("", INT_MAX, nullptr, 0), INT_MAX) << "an int counts no further";
  EXPECT_EQ(CBinHex::hex2bin("0a1", 3, out.data(), 1), 2);
  EXPECT_EQ(out, "....");
}

}  // namespace
