#define OPENSSL_SUPPRESS_DEPRECATED  // the digest without the dispatch that EVP puts in front
#include <openssl/evp.h>
#include <openssl/md5.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "support/harness.h"
#include "utility/Base64.h"
#include "utility/CBinHex.h"
#include "utility/Ciphers.h"
#include "utility/MD5.h"
#include "utility/md5wrapper.h"

namespace {

using utility::Base64;
using utility::CBinHex;
using utility::MD5;
using Bytes = std::vector<unsigned char>;
using Digest = std::array<unsigned char, 16>;

Bytes random_bytes(std::size_t size) {
  std::mt19937 random(static_cast<unsigned>(size));
  Bytes bytes(size);
  for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
  return bytes;
}

std::string name(const char* row, std::size_t size) { return row + ("/" + std::to_string(size)); }

Digest library_md5(Bytes& bytes) {
  Digest digest;
  MD5::MD5_CTX context;
  MD5::MD5Init(&context);
  MD5::MD5Update(&context, bytes.data(), static_cast<unsigned>(bytes.size()));
  MD5::MD5Final(digest.data(), &context);
  return digest;
}

Digest openssl_md5(const Bytes& bytes) {
  Digest digest;
  MD5_CTX context;
  MD5_Init(&context);
  MD5_Update(&context, bytes.data(), bytes.size());
  MD5_Final(digest.data(), &context);
  return digest;
}

void add_md5(std::size_t size) {
  Bytes bytes = random_bytes(size);
  bench::require(library_md5(bytes) == openssl_md5(bytes), "OpenSSL has another digest");
  bench::work(name("md5/library", size),
              [bytes]() mutable { benchmark::DoNotOptimize(library_md5(bytes)); });
  bench::work(name("md5/openssl", size), [bytes] { benchmark::DoNotOptimize(openssl_md5(bytes)); });
}

void add_md5_file(std::size_t size) {
  const std::string path = bench::scratch_file("md5");
  const Bytes bytes = random_bytes(std::size_t{1} << 20);
  std::ofstream out(path, std::ios::binary);
  for (std::size_t written = 0; written < size; written += bytes.size()) {
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
  }
  out.close();
  std::string theirs;
  bench::run_program({"md5sum", path}, &theirs);
  bench::require(utility::md5wrapper().getHashFromFile(path) == theirs.substr(0, 32),
                 "md5sum has another digest");
  bench::work("md5file/library",
              [path] { benchmark::DoNotOptimize(utility::md5wrapper().getHashFromFile(path)); });
  bench::timed_work("md5file/md5sum", [path] { return bench::run_program({"md5sum", path}); });
}

// The buffer forms allocate what they return; so do their counterparts here.
using Buffer = std::unique_ptr<unsigned char[]>;

template <class Convert>
Buffer converted(Convert convert, const Bytes& in, unsigned long& size) {
  unsigned char* out = nullptr;
  convert(out, size, in.data(), in.size());
  return Buffer(out);
}

void library_encode(unsigned char*& out, unsigned long& out_size, const unsigned char* in,
                    unsigned long size) {
  Base64::encode(out, out_size, in, size);
}

void library_decode(unsigned char*& out, unsigned long& out_size, const unsigned char* in,
                    unsigned long size) {
  Base64::decode(out, out_size, in, size);
}

void openssl_encode(unsigned char*& out, unsigned long& out_size, const unsigned char* in,
                    unsigned long size) {
  out = new unsigned char[(size + 2) / 3 * 4 + 1];
  out_size = static_cast<unsigned long>(EVP_EncodeBlock(out, in, static_cast<int>(size)));
}

void openssl_decode(unsigned char*& out, unsigned long& out_size, const unsigned char* in,
                    unsigned long size) {
  out = new unsigned char[size / 4 * 3];
  out_size = static_cast<unsigned long>(EVP_DecodeBlock(out, in, static_cast<int>(size)));
  for (unsigned long pads = size; in[pads - 1] == '='; --pads) --out_size;
}

template <class Convert>
void add_conversion(const std::string& name, Convert convert, const Bytes& in) {
  bench::work(name, [convert, in] {
    unsigned long size = 0;
    benchmark::DoNotOptimize(converted(convert, in, size).get());
  });
}

void add_base64(std::size_t size) {
  const Bytes bytes = random_bytes(size);
  unsigned long text_size = 0;
  const Buffer buffer = converted(library_encode, bytes, text_size);
  const Bytes text(buffer.get(), buffer.get() + text_size);
  unsigned long their_size = 0;
  const Buffer theirs = converted(openssl_encode, bytes, their_size);
  bench::require(text == Bytes(theirs.get(), theirs.get() + their_size),
                 "OpenSSL has another base64 text");
  for (const auto decode : {library_decode, openssl_decode}) {
    unsigned long decoded_size = 0;
    const Buffer decoded = converted(decode, text, decoded_size);
    bench::require(bytes == Bytes(decoded.get(), decoded.get() + decoded_size),
                   "base64 text does not decode to what it was made of");
  }
  add_conversion(name("base64_encode/library", size), library_encode, bytes);
  add_conversion(name("base64_encode/openssl", size), openssl_encode, bytes);
  add_conversion(name("base64_decode/library", size), library_decode, text);
  add_conversion(name("base64_decode/openssl", size), openssl_decode, text);
}

void loop_bin2hex(const Bytes& in, char* out) {
  for (const unsigned char byte : in) {
    for (const int digit : {byte >> 4, byte & 15}) {
      *out++ = static_cast<char>(digit < 10 ? '0' + digit : 'A' + digit - 10);
    }
  }
}

int digit_value(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return digit - 'a' + 10;
}

void loop_hex2bin(const std::string& in, unsigned char* out) {
  for (std::size_t i = 0; i + 1 < in.size(); i += 2) {
    *out++ = static_cast<unsigned char>(digit_value(in[i]) << 4 | digit_value(in[i + 1]));
  }
}

void add_hex(std::size_t size) {
  const Bytes bytes = random_bytes(size);
  const int count = static_cast<int>(size);
  std::string text(2 * size, '\0');
  std::string loop_text = text;
  Bytes back(size);
  Bytes loop_back(size);
  CBinHex::bin2hex(bytes.data(), count, text.data(), 2 * count);
  loop_bin2hex(bytes, loop_text.data());
  CBinHex::hex2bin(text.data(), 2 * count, back.data(), count);
  loop_hex2bin(text, loop_back.data());
  bench::require(text == loop_text && back == bytes && loop_back == bytes, "hex differs");

  bench::work(name("hex_encode/library", size), [bytes, text, count]() mutable {
    CBinHex::bin2hex(bytes.data(), count, text.data(), 2 * count);
    benchmark::DoNotOptimize(text.data());
    benchmark::ClobberMemory();
  });
  bench::work(name("hex_encode/loop", size), [bytes, text]() mutable {
    loop_bin2hex(bytes, text.data());
    benchmark::DoNotOptimize(text.data());
    benchmark::ClobberMemory();
  });
  bench::work(name("hex_decode/library", size), [back, text, count]() mutable {
    CBinHex::hex2bin(text.data(), 2 * count, back.data(), count);
    benchmark::DoNotOptimize(back.data());
    benchmark::ClobberMemory();
  });
  bench::work(name("hex_decode/loop", size), [back, text]() mutable {
    loop_hex2bin(text, back.data());
    benchmark::DoNotOptimize(back.data());
    benchmark::ClobberMemory();
  });
}

// Each word of a round needs the one before it: shift, exclusive or, add, exclusive or, add.
void dependent_chain(std::vector<std::uint32_t>& words) {
  std::uint32_t z = words.back();
  for (std::size_t rounds = 6 + 52 / words.size(); rounds > 0; --rounds) {
    for (std::uint32_t& word : words) z = word += ((z << 4 ^ word) + word) ^ word;
  }
}

void add_xxtea(std::size_t size) {
  const Bytes bytes = random_bytes(size);
  const std::string data(bytes.begin(), bytes.end());
  constexpr char kKey[] = "sixteen byte key";
  bench::require(utility::xxtea_decrypt(utility::xxtea_encrypt(data, kKey), kKey) == data,
                 "an enciphered text does not decipher");
  bench::work(name("xxtea/library", size), [data, key = &kKey[0]] {
    std::size_t count = 0;
    std::free(utility::xxtea_encrypt(data.data(), data.size(), key, &count));
  });
  // With the word that holds the length.
  bench::work(name("xxtea/chain", size),
              [words = std::vector<std::uint32_t>(size / 4 + 1, 1)]() mutable {
                dependent_chain(words);
                benchmark::DoNotOptimize(words.data());
              });
}

}  // namespace

void set_up() {
  for (const std::size_t size : {64U, 1024U, 1U << 20}) add_md5(size);
  add_md5_file(std::size_t{bench::smoke() ? 1U : 256U} << 20);
  for (const std::size_t size : {100U, 65536U}) add_base64(size);
  add_hex(65536);
  for (const std::size_t size : {1024U, 65536U}) add_xxtea(size);
}
