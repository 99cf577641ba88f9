#include "utility/CDump.h"

#include <cctype>
#include <cstdint>

#include "base/handles.h"
#include "base/text.h"

namespace utility {

using namespace detail;

namespace {

enum Result { kDone = 0, kNullArgument = 1, kNoMemory = 2 };

// One line of a dump. The byte that each column has beyond its fields takes the blank between the
// columns and the line end, so that the columns are printed as they lie.
class Line {
 public:
  explicit Line(std::size_t width) noexcept : width_(width) {
    if (width > (PTRDIFF_MAX - 1) / 3) return;
    hex_ = make_buffer(3 * width + 1);
    text_ = make_buffer(2 * width + 1);
  }

  bool ready() const noexcept { return hex_ != nullptr && text_ != nullptr; }

  // Lays out `count` bytes, at most the width.
  void fill(const char* data, std::size_t count) noexcept {
    constexpr char kDigits[] = "0123456789ABCDEF";
    char* hex = hex_.get();
    char* text = text_.get();
    for (std::size_t i = 0; i < count; ++i) {
      const auto byte = static_cast<unsigned char>(data[i]);
      *hex++ = kDigits[byte >> 4];
      *hex++ = kDigits[byte & 15];
      *hex++ = ' ';
      *text++ = std::isgraph(byte) != 0 ? data[i] : '.';
      *text++ = ' ';
    }
    std::memset(hex, ' ', 3 * (width_ - count) + 1);
    *text = '\n';
    text_size_ = 2 * count + 1;
  }

  std::string_view hex() const noexcept { return {hex_.get(), 3 * width_ + 1}; }
  std::string_view text() const noexcept { return {text_.get(), text_size_}; }

 private:
  std::size_t width_;
  std::size_t text_size_ = 0;
  Buffer hex_;
  Buffer text_;
};

// Hands the lines of a dump to `put` one by one, until it answers false.
template <typename Put>
int put_lines(const char* data, std::size_t len, std::size_t width, Put put) {
  Line line(width);
  if (!line.ready()) return kNoMemory;

  // Lines without bytes would never come to the end of the data.
  std::size_t rest = width > 0 ? len : 0;
  for (; rest > 0 && rest >= width; data += width, rest -= width) {
    line.fill(data, width);
    if (!put(line)) return kDone;
  }
  line.fill(data, rest);
  put(line);
  return kDone;
}

}  // namespace

unsigned long CDump::m_max_line = 16;

int CDump::fdump(FILE* stream, char* data, unsigned long len) {
  if (stream == nullptr || data == nullptr) return kNullArgument;
  return put_lines(data, len, m_max_line, [stream](const Line& line) {
    ::flockfile(stream);
    std::fwrite(line.hex().data(), 1, line.hex().size(), stream);
    std::fwrite(line.text().data(), 1, line.text().size(), stream);
    ::funlockfile(stream);
    return true;
  });
}

int CDump::dump(char* data, unsigned long len) { return fdump(stdout, data, len); }

int CDump::sndump(char* out, unsigned long outSize, char* data, unsigned long len) {
  if (out == nullptr || data == nullptr) return kNullArgument;
  if (outSize == 0) return kDone;

  std::size_t room = outSize - 1;
  return put_lines(data, len, m_max_line, [&out, &room](const Line& line) {
    for (const std::string_view column : {line.hex(), line.text()}) {
      const std::size_t count = std::min(column.size(), room);
      std::memcpy(out, column.data(), count);
      out += count;
      room -= count;
    }
    *out = '\0';
    return room > 0;
  });
}

void CDump::setmaxline(unsigned long bytes) { m_max_line = bytes; }

unsigned long CDump::getmaxline() { return m_max_line; }

}  // namespace utility
