#pragma once

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "base/handles.h"

namespace utility::detail {

/// Reads a stream in lines of a fixed greatest length, as `fgets` cuts them.
///
/// A buffer of `capacity` bytes yields pieces of at most `capacity - 1`; a longer line arrives in
/// several pieces, and where it is cut is part of what callers promise. A piece keeps its line feed
/// and counts up to its first NUL byte. The stream stays the caller's.
class LineReader {
 public:
  LineReader(FILE* stream, std::size_t capacity) noexcept
      : stream_(stream), capacity_(capacity), buffer_(make_buffer(capacity)) {}

  /// False when the buffer could not be had; nothing else may be called then.
  bool ready() const noexcept { return buffer_ != nullptr; }

  /// Fetches the next piece; false at the end of the file and on a read error (see `failed`).
  bool next() noexcept {
    return std::fgets(buffer_.get(), static_cast<int>(capacity_), stream_) != nullptr;
  }

  /// The piece in hand, NUL-terminated; valid until the next call of `next`.
  char* text() noexcept { return buffer_.get(); }
  std::string_view line() const noexcept { return {buffer_.get(), std::strlen(buffer_.get())}; }

  /// True when reading stopped at an error rather than at the end of the file.
  bool failed() const noexcept { return std::ferror(stream_) != 0; }

 private:
  FILE* stream_;
  std::size_t capacity_;
  Buffer buffer_;
};

}  // namespace utility::detail
