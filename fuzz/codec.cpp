// Encodings, digests and ciphers: what is encoded decodes to itself, and a digest does not depend
// on how its text arrives.
#include <cstdlib>
#include <cstring>

#include "fuzz.h"
#include "utility/Base64.h"
#include "utility/CBinHex.h"
#include "utility/CConv.h"
#include "utility/CHmacMd5.h"
#include "utility/Ciphers.h"
#include "utility/MD5.h"
#include "utility/md5wrapper.h"

using namespace utility;

namespace {

// `form` is one of Base64's operations on buffers.
std::string through_buffers(void (*form)(unsigned char*&, unsigned long&, const unsigned char*,
                                         unsigned long),
                            const std::string& bytes) {
  unsigned char* out = nullptr;
  unsigned long size = 0;
  form(out, size, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
  std::string result(reinterpret_cast<char*>(out), out != nullptr ? size : 0);
  delete[] out;
  return result;
}

std::string digest_in_pieces(std::string text, std::size_t piece) {
  MD5::MD5_CTX context;
  MD5::MD5Init(&context);
  for (std::size_t at = 0; at < text.size(); at += piece) {
    MD5::MD5Update(&context, reinterpret_cast<unsigned char*>(&text[at]),
                   static_cast<unsigned>(std::min(piece, text.size() - at)));
  }
  unsigned char digest[16];
  MD5::MD5Final(digest, &context);
  return md5wrapper().convToString(digest);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::size_t piece = input.byte() + std::size_t{1};
  std::string key = input.text('\n');
  const std::string bytes = input.rest();
  const std::string c_text = bytes.c_str();

  const std::string base64 = Base64::encode(bytes);
  check(Base64::decode(base64) == bytes, "Base64 gives the bytes back");
  check(through_buffers(Base64::encode, bytes) == base64, "Base64 encodes alike in buffers");
  check(through_buffers(Base64::decode, base64) == bytes, "Base64 decodes alike in buffers");
  through_buffers(Base64::removeNonBase64Chars, bytes);
  Base64::decode(bytes);

  check(CBinHex::simple_hex2bin(CBinHex::simple_bin2hex(bytes)) == c_text, "hex gives it back");
  CBinHex::simple_hex2bin(bytes);
  check(CConv::url_decode(CConv::url_encode(c_text)) == c_text, "URL text gives it back");
  CConv::url_decode(bytes);

  check(digest_in_pieces(bytes, piece) == md5wrapper().getHashFromString(bytes),
        "MD5 does not see how a text is cut");
  char digest[16];
  std::string text = bytes;
  const int size_of_text = static_cast<int>(bytes.size());
  const int keyed = CHmacMd5::hmac_md5(text.data(), size_of_text, key.data(),
                                       static_cast<int>(key.size()), digest);
  check(keyed == (bytes.empty() || key.empty() ? 1 : 0) && text == bytes,
        "HMAC takes all but the empty text and key");

  check(xxtea_decrypt(xxtea_encrypt(bytes, key), key) == bytes, "XXTEA gives the bytes back");
  xxtea_decrypt(bytes, key);
  check(aes_decrypt(aes_encrypt(bytes, 2), 2) == c_text, "the substitution gives the text back");
  aes_decrypt(bytes, 1);
  return 0;
}
