#pragma once

#include <emmintrin.h>
#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/handles.h"

namespace utility::detail {

/// Knows what is inside quotes, for a text that is looked at 64 bytes at a time in its order. A
/// doubled quote inside quotes closes and opens again, which moves no separator in or out.
class CsvQuotes {
 public:
  static constexpr std::size_t kWindow = 64;

  /// Bit by bit, the lowest first: the double quotes, and the bytes of a set that stand outside.
  struct Window {
    std::uint64_t quotes;
    std::uint64_t outside;
  };

  /// Looks at the next bytes, at most a window. All of a window can be read at `text`.
  template <char... kSet>
  Window look(std::string_view text) noexcept;

  /// Hands every mark in `bits` to `take` by its place in the window, until that answers false.
  template <class Take>
  static bool for_each(std::uint64_t bits, Take take) {
    for (; bits != 0; bits &= bits - 1) {
      if (!take(static_cast<std::size_t>(__builtin_ctzll(bits)))) return false;
    }
    return true;
  }

 private:
  std::uint64_t inside_ = 0;  // all bits where the next byte is inside quotes
};

/// The fields of one record, one after the other in a buffer that is used again for the next.
class CsvFields {
 public:
  std::size_t count() const noexcept { return ends_.size(); }
  std::string_view operator[](std::size_t i) const noexcept {
    const std::size_t begin = i == 0 ? 0 : ends_[i - 1];
    return {text_.data() + begin, ends_[i] - begin};
  }

  void clear() noexcept {
    used_ = 0;
    ends_.clear();
  }
  /// Room for `size` bytes after what is used; write there, then call `use`.
  char* room(std::size_t size);
  void use(const char* end) noexcept { used_ = static_cast<std::size_t>(end - text_.data()); }
  /// Ends a field at `end`.
  void close(const char* end) { ends_.push_back(static_cast<std::size_t>(end - text_.data())); }

 private:
  std::string text_;
  std::size_t used_ = 0;
  std::vector<std::size_t> ends_;
};

/// Reads a CSV file in blocks and remembers where its records begin.
///
/// A record ends at a line feed outside double quotes. What is remembered (one record start per
/// 4 KiB of file, and the last place) holds as long as size and times of the file stay as they
/// were: every operation looks at them, but reading records in order does so only once per tick of
/// the coarse clock, since file times do not tell more apart. Reading stops at the size seen then.
/// The stream stays the caller's, and its own buffer unused, so nothing outdated can sit in it.
class CsvScanner {
 public:
  /// Null when there is no stream, or no memory, or the stream cannot be examined.
  static std::unique_ptr<CsvScanner> over(FILE* stream);

  /// Drops what is remembered if the file is not as it was; false when that cannot be found out.
  bool refresh() noexcept;
  /// The offset of position `cur` of `records`: 0 for 0, the end for -1 and `records`, else where
  /// record `cur` begins. False where the file has no such record (any more) or cannot be read.
  bool locate(int cur, int records, off_t& offset);

  off_t size() const noexcept { return stamp_.st_size; }
  int fd() const noexcept { return fd_; }
  /// True when a read failed since the last `refresh`.
  bool failed() const noexcept { return failed_; }

  /// The number of record ends in the file.
  int count_records();
  /// The number of columns of the first record, 1 for an empty file.
  int count_columns();
  /// The offset after record `record`, which begins at `begin`; the file's end if it has no end.
  off_t record_end(int record, off_t begin);
  /// Takes the record at position `cur` of `records` apart into `fields()`. False where `locate`
  /// says so and when reading fails. At the end of the file the field in hand is left out.
  bool read(int cur, int records);
  const CsvFields& fields() const noexcept { return fields_; }

  /// Hands the windows of the file from `offset` on to `visit(text, offset, window)` until that
  /// answers false: `window` tells where bytes of `kSet` are. False where the file ends before.
  template <char... kSet, class Visit>
  bool walk(off_t offset, Visit visit);

  /// To be called after our own writing, which left the file `size` bytes long.
  /// `inserted`: bytes from `offset` on are new. `blanked`: record `record`, which began at
  /// `begin`, is part of the next one now.
  void inserted(off_t offset, off_t size);
  void blanked(int record, off_t begin);
  void forget() noexcept;

 private:
  static constexpr int kNoRun = -1;

  struct Mark {
    int record;
    off_t offset;
  };

  CsvScanner(int fd, Buffer buffer) noexcept : fd_(fd), buffer_(std::move(buffer)) {}
  void restamp(off_t size) noexcept;
  Mark nearest(int record) const noexcept;
  bool advance(Mark& mark, int record);
  // What is in the file from `offset` on, up to one block; empty at the end. Valid until the next
  // call. A window of quotes can be read wherever it begins.
  std::string_view block(off_t offset) noexcept;
  off_t next_mark() const noexcept;

  int fd_;
  Buffer buffer_;
  off_t cached_at_ = 0;
  std::size_t cached_ = 0;
  struct stat stamp_ {};
  bool failed_ = false;
  std::vector<Mark> marks_;
  Mark last_{0, 0};
  int next_in_run_ = kNoRun;  // the record that goes on with reading in order
  timespec looked_{};         // the tick of the last look at the file
  CsvFields fields_;
};

template <char... kSet>
CsvQuotes::Window CsvQuotes::look(std::string_view text) noexcept {
  Window window{0, 0};
  for (std::size_t at = 0; at < kWindow; at += sizeof(__m128i)) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + at));
    const auto where = [bytes](char byte) { return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(byte)); };
    __m128i in_set = _mm_setzero_si128();
    ((in_set = _mm_or_si128(in_set, where(kSet))), ...);
    window.quotes |= std::uint64_t(static_cast<unsigned>(_mm_movemask_epi8(where('"')))) << at;
    window.outside |= std::uint64_t(static_cast<unsigned>(_mm_movemask_epi8(in_set))) << at;
  }
  if (text.size() < kWindow) {
    const std::uint64_t present = (std::uint64_t{1} << text.size()) - 1;
    window.quotes &= present;
    window.outside &= present;
  }
  if (window.quotes == 0) {
    window.outside &= ~inside_;
    return window;
  }
  // From each quote on the side changes, up to the next.
  std::uint64_t inside = window.quotes;
  for (int shift = 1; shift < 64; shift *= 2) inside ^= inside << shift;
  inside ^= inside_;
  window.outside &= ~inside;
  inside_ = inside >> 63 != 0 ? ~std::uint64_t{0} : 0;
  return window;
}

template <char... kSet, class Visit>
bool CsvScanner::walk(off_t offset, Visit visit) {
  CsvQuotes quotes;
  for (auto rest = block(offset); !rest.empty(); rest = block(offset)) {
    while (!rest.empty()) {
      const std::string_view text = rest.substr(0, CsvQuotes::kWindow);
      if (!visit(text, offset, quotes.look<kSet...>(text))) return true;
      offset += static_cast<off_t>(text.size());
      rest.remove_prefix(text.size());
    }
  }
  return false;
}

}  // namespace utility::detail
