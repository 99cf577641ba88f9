// Encodes a text, digests it, converts its character set, and enciphers it.

#include <utility/Base64.h>
#include <utility/CBinHex.h>
#include <utility/CConv.h>
#include <utility/CHmacMd5.h>
#include <utility/Ciphers.h>
#include <utility/md5wrapper.h>

#include <cstdio>
#include <string>

int main() {
  using namespace utility;

  std::puts(Base64::encode("any bytes").c_str());
  std::puts(CBinHex::simple_bin2hex("any bytes").c_str());
  std::puts(md5wrapper().getHashFromString("abc").c_str());

  char key[] = "Jefe";  // a long key would be overwritten, so it cannot be a constant
  const std::string text = "what do ya want for nothing?";
  char digest[16];
  if (CHmacMd5::hmac_md5(text.data(), static_cast<int>(text.size()), key, 4, digest) != 0) return 1;
  std::puts(CHmacMd5::checksumtostring(digest).c_str());

  std::puts(CConv::gbk_to_utf8_string("\xc4\xe3\xba\xc3").c_str());
  std::puts(CConv::url_encode("a b&c").c_str());

  const std::string secret = xxtea_encrypt("a secret", "sixteen byte key");
  std::printf("%zu bytes: %s\n", secret.size(), xxtea_decrypt(secret, "sixteen byte key").c_str());
  return 0;
}
