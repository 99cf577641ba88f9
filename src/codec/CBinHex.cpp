#include "utility/CBinHex.h"

#include <algorithm>
#include <climits>

#include "base/handles.h"
#include "base/hex.h"

namespace utility {

using namespace detail;

int CBinHex::bin2hex(const void* in, int inLen, char* out, int outSize) {
  const long long needed = 2LL * inLen;
  if (needed > outSize) return static_cast<int>(std::min<long long>(needed, INT_MAX));
  if (inLen > 0) {
    put_hex(out, static_cast<const unsigned char*>(in), static_cast<std::size_t>(inLen), 'A');
  }
  return 0;
}

int CBinHex::hex2bin(const char* in, int inLen, void* out, int outSize) {
  const int needed = inLen / 2 + (inLen & 1);
  if (2LL * outSize < inLen) return needed;
  if (inLen > 0) read_hex(static_cast<char*>(out), in, static_cast<std::size_t>(needed));
  return 0;
}

std::string CBinHex::simple_bin2hex(const std::string& bytes) {
  const Buffer text = make_buffer(2 * bytes.size() + 1);
  if (!text) return {};
  const auto* in = reinterpret_cast<const unsigned char*>(bytes.data());
  return {text.get(), put_hex(text.get(), in, bytes.size(), 'A')};
}

std::string CBinHex::simple_hex2bin(const std::string& text) {
  const std::size_t size = (text.size() + 1) / 2;
  const Buffer bytes = make_buffer(size + 1);
  if (!bytes) return {};
  read_hex(bytes.get(), text.data(), size);
  return bytes.get();
}

}  // namespace utility
