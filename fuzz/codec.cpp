// Encodings, digests and ciphers: what is encoded decodes to itself, and a digest does not depend
// on how its text arrives.
#include "fuzz.h"

using namespace utility;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::size_t piece = input.byte() + std::size_t{1};
  std::string key = input.text('\n'), bytes = input.rest();
  const std::string c_text = bytes.c_str();
  auto* const first = reinterpret_cast<unsigned char*>(bytes.data());

  check(Base64::decode(Base64::encode(bytes)) == bytes, "Base64 gives the bytes back");
  unsigned char* kept = nullptr;
  unsigned long count = 0;
  Base64::removeNonBase64Chars(kept, count, first, bytes.size());
  const std::string filtered(reinterpret_cast<char*>(kept), count);
  delete[] kept;
  check(Base64::decode(bytes) == Base64::decode(filtered), "what is no Base64 is skipped");

  check(CBinHex::simple_hex2bin(CBinHex::simple_bin2hex(bytes)) == c_text, "hex gives it back");
  CBinHex::simple_hex2bin(bytes);
  check(CConv::url_decode(CConv::url_encode(c_text)) == c_text, "URL text gives it back");
  CConv::url_decode(bytes);

  MD5::MD5_CTX context;
  MD5::MD5Init(&context);
  for (std::size_t at = 0; at < bytes.size(); at += piece) {
    const std::size_t length = std::min(piece, bytes.size() - at);
    MD5::MD5Update(&context, first + at, static_cast<unsigned>(length));
  }
  unsigned char digest[16];
  MD5::MD5Final(digest, &context);
  check(md5wrapper().convToString(digest) == md5wrapper().getHashFromString(bytes),
        "MD5 does not see how a text is cut");
  char keyed[16];
  const int code = CHmacMd5::hmac_md5(bytes.data(), static_cast<int>(bytes.size()), key.data(),
                                      static_cast<int>(key.size()), keyed);
  check(code == (bytes.empty() || key.empty() ? 1 : 0), "HMAC takes all but an empty text or key");

  check(xxtea_decrypt(xxtea_encrypt(bytes, key), key) == bytes, "XXTEA gives the bytes back");
  xxtea_decrypt(bytes, key);
  check(aes_decrypt(aes_encrypt(bytes, 2), 2) == c_text, "the substitution gives the text back");
  aes_decrypt(bytes, 1);
  return 0;
}
