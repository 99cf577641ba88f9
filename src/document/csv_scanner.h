#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/handles.h"

namespace utility::detail {

/// The fields of one record, one behind the other in a buffer that is used again for the next.
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
  /// Room for `size` bytes behind what is used; write there, then call `use`.
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
/// A record ends at a line feed outside double quotes; a doubled quote inside quotes closes and
/// opens again, which leaves the same record ends. What is remembered (one record start per 4 KiB
/// of file, and the last place) holds as long as size and times of the file stay as they were:
/// every operation begins with `locate` or `refresh`, which look. Reading stops at the size seen
/// there. The stream stays the caller's, and its own buffer unused, so nothing outdated can sit in
/// it.
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
  /// The offset behind the end of record `record`, which begins at `begin`; the file's end if it
  /// has none.
  off_t record_end(int record, off_t begin);
  /// Takes the record at position `cur` of `records` apart into `fields()`. False where `locate`
  /// says so and when reading fails. At the end of the file the field in hand is left out.
  bool read(int cur, int records);
  const CsvFields& fields() const noexcept { return fields_; }

  /// What is in the file from `offset` on, up to one block; empty at the end. Valid until the next
  /// call.
  std::string_view block(off_t offset) noexcept;

  /// To be called after our own writing, which left the file `size` bytes long.
  /// `inserted`: bytes from `offset` on are new. `blanked`: record `record`, which began at
  /// `begin`, is part of the next one now.
  void inserted(off_t offset, off_t size);
  void blanked(int record, off_t begin);
  void forget() noexcept;

 private:
  struct Mark {
    int record;
    off_t offset;
  };

  CsvScanner(int fd, Buffer buffer) noexcept : fd_(fd), buffer_(std::move(buffer)) {}
  bool examine(struct stat& now) const noexcept;
  void restamp(off_t size) noexcept;
  Mark nearest(int record) const noexcept;
  bool advance(Mark& mark, int record);
  void note(const Mark& mark);

  int fd_;
  Buffer buffer_;
  off_t cached_at_ = 0;
  std::size_t cached_ = 0;
  struct stat stamp_ {};
  bool failed_ = false;
  std::vector<Mark> marks_;
  Mark last_{0, 0};
  CsvFields fields_;
};

}  // namespace utility::detail
