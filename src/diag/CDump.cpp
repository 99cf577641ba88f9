#include "utility/CDump.h"

#include <cctype>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string_view>

#include "base/handles.h"

namespace utility {

using namespace detail;

namespace {

enum Result { kDone = 0, kNullArgument = 1, kNoMemory = 2 };

// Lays out a line of `count` bytes, at most `width`, and returns its size. Each of the two columns
// ends in one byte more than its fields have: the blank between them, and the line end.
std::size_t put_line(char* line, const char* data, std::size_t count, std::size_t width) noexcept {
  constexpr char kDigits[] = "0123456789ABCDEF";
  char* hex = line;
  char* text = line + 3 * width + 1;
  for (std::size_t i = 0; i < count; ++i) {
    const auto byte = static_cast<unsigned char>(data[i]);
    *hex++ = kDigits[byte >> 4];
    *hex++ = kDigits[byte & 15];
    *hex++ = ' ';
    *text++ = std::isgraph(byte) != 0 ? data[i] : '.';
    *text++ = ' ';
  }
  std::memset(hex, ' ', 3 * (width - count) + 1);
  *text++ = '\n';
  return static_cast<std::size_t>(text - line);
}

// Hands the lines of a dump to `put` one by one, until it answers false.
int put_lines(const char* data, std::size_t len, std::size_t width,
              const std::function<bool(std::string_view line)>& put) {
  if (width > (PTRDIFF_MAX - 2) / 5) return kNoMemory;
  const Buffer line = make_buffer(5 * width + 2);
  if (!line) return kNoMemory;
  // Lines without bytes would never come to the end of the data.
  std::size_t rest = width > 0 ? len : 0;
  for (; rest > 0 && rest >= width; data += width, rest -= width) {
    if (!put({line.get(), put_line(line.get(), data, width, width)})) return kDone;
  }
  put({line.get(), put_line(line.get(), data, rest, width)});
  return kDone;
}

}  // namespace

unsigned long CDump::m_max_line = 16;

int CDump::fdump(FILE* stream, char* data, unsigned long len) {
  if (stream == nullptr || data == nullptr) return kNullArgument;
  return put_lines(data, len, m_max_line, [stream](std::string_view line) {
    std::fwrite(line.data(), 1, line.size(), stream);
    return true;
  });
}

int CDump::dump(char* data, unsigned long len) { return fdump(stdout, data, len); }

int CDump::sndump(char* out, unsigned long outSize, char* data, unsigned long len) {
  if (out == nullptr || data == nullptr) return kNullArgument;
  if (outSize == 0) return kDone;

  std::size_t room = outSize - 1;
  return put_lines(data, len, m_max_line, [&out, &room](std::string_view line) {
    const std::size_t count = line.copy(out, room);
    out += count;
    room -= count;
    *out = '\0';
    return room > 0;
  });
}

void CDump::setmaxline(unsigned long bytes) { m_max_line = bytes; }

unsigned long CDump::getmaxline() { return m_max_line; }

}  // namespace utility
