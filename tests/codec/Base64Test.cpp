#include "utility/Base64.h"

#include "codec/oracle.h"

namespace {

using utility::Base64;
using BufferForm = void (*)(unsigned char*&, unsigned long&, const unsigned char*, unsigned long);

const std::string kNothing = "nothing handed out";

// The input lies in a block of exactly its size, so that the sanitizer sees every byte too many.
std::string run(BufferForm form, const std::string& in) {
  const std::unique_ptr<char[]> exact(new char[in.size()]);
  in.copy(exact.get(), in.size());
  unsigned char untouched = 0;
  unsigned char* out = &untouched;
  unsigned long length = 99;
  form(out, length, reinterpret_cast<unsigned char*>(exact.get()), in.size());
  if (out == &untouched) return length == 0 ? kNothing : "a length but no buffer";
  const std::unique_ptr<unsigned char[]> owner(out);
  return {reinterpret_cast<const char*>(out), length};
}

TEST(Base64, RoundTripsEveryLengthAsTheBase64ToolWritesIt) {
  const TempDir dir;
  std::string all;
  for (std::size_t size = 0; size <= 300; ++size) {
    const std::string in = sample(size);
    const std::string text = Base64::encode(in);
    EXPECT_EQ(Base64::decode(text), in) << "in one pass, length " << size;
    EXPECT_EQ(Base64::decode(" " + text + "\r\n"), in) << "filtered, length " << size;
    EXPECT_EQ(run(Base64::encode, in), size == 0 ? kNothing : text);
    dir.write(std::to_string(1000 + size), in);
    all += text + "\n";
  }
  EXPECT_EQ(all, output_of("cd " + dir.path() + "; for f in *; do base64 -w0 $f; echo; done"));
}

TEST(Base64, DecodesWhatIsLeftAfterFiltering) {
  const std::string rows[][3] = {
      {"a line break is dropped", "Zm9v\r\nYmFy", "foobar"},
      {"so is any other byte", std::string("Z-m_9\0v\xff", 8), "foo"},
      {"three characters give nothing", "Zm9", kNothing},
      {"nothing left is no bytes", "\r\n\r\n", ""},
      {"a pad inside a group counts as 63", "Zg=A", "f\x0f\xc0"},
      {"as do pads in front of the end", "Zm==Zg==", "fo\xff\x66"},
      {"three pads shorten by two", "a===", "k"},
      {"low bits that are left over are dropped", "Zn==", "f"},
  };
  for (const auto& [why, text, out] : rows) EXPECT_EQ(run(Base64::decode, text), out) << why;
  std::string every;
  for (int i = 255; i >= 0; --i) every += static_cast<char>(i);
  EXPECT_EQ(run(Base64::removeNonBase64Chars, every),
            "zyxwvutsrqponmlkjihgfedcbaZYXWVUTSRQPONMLKJIHGFEDCBA=9876543210/+");
}

}  // namespace
