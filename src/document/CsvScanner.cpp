#include "document/CsvScanner.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace utility::detail {
namespace {

constexpr std::size_t kBlock = 65536;
/// How far apart remembered record starts lie: near enough to jump, far enough to weigh nothing.
constexpr off_t kMarkSpacing = 4096;

bool same_time(const timespec& a, const timespec& b) noexcept {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

/// Copies a stretch in steps of 16 bytes; both sides have room for the last step.
char* copy_stretch(const char* from, const char* end, char* out) noexcept {
  for (const char* at = from; at < end; at += 16) std::memcpy(out + (at - from), at, 16);
  return out + (end - from);
}

/// Takes a record apart, block by block.
class Splitter {
 public:
  explicit Splitter(CsvFields& fields) noexcept : fields_(fields) {}

  /// Returns how many bytes of the block belong to the record; `ended` tells of its end.
  std::size_t take(std::string_view block) {
    const char* const begin = block.data();
    const char* const end = begin + block.size();
    // A byte may become a quote and a field end at most: what is written never outgrows the block.
    char* out = fields_.room(block.size() + 2 * CsvQuotes::kWindow);
    const char* from = begin;
    for (const char* at = begin; at != end && !ended;) {
      const auto count = std::min(static_cast<std::size_t>(end - at), CsvQuotes::kWindow);
      const auto window = quotes_.look<',', '\n', '\r', ' '>({at, count});
      CsvQuotes::for_each(window.quotes | window.outside, [&](std::size_t place) {
        const char* const mark = at + place;
        out = copy_stretch(from, mark, out);
        from = mark + 1;
        if (*mark == '"') {
          take_quote(mark - begin, out);
        } else if (*mark == ',' || *mark == '\n') {
          fields_.close(out);
          ended = *mark == '\n';
        }
        return !ended;
      });
      at += count;
    }
    if (!ended) {
      out = copy_stretch(from, end, out);
      from = end;
    }
    fields_.use(out);
    closed_at_ -= from - begin;
    return static_cast<std::size_t>(from - begin);
  }

  bool ended = false;

 private:
  // A quote that opens where one has just closed is a doubled one: a byte of the field.
  void take_quote(std::ptrdiff_t at, char*& out) noexcept {
    quoted_ = !quoted_;
    if (!quoted_) {
      closed_at_ = at;
    } else if (at == closed_at_ + 1) {
      *out++ = '"';
    }
  }

  CsvFields& fields_;
  CsvQuotes quotes_;
  bool quoted_ = false;
  std::ptrdiff_t closed_at_ = -2;  // where the last quote closed, from the block's beginning
};

timespec tick_now() noexcept {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return now;
}

}  // namespace

char* CsvFields::room(std::size_t size) {
  if (text_.size() - used_ < size) text_.resize(std::max(used_ + size, text_.size() * 2));
  return text_.data() + used_;
}

std::unique_ptr<CsvScanner> CsvScanner::over(FILE* stream) {
  if (stream == nullptr) return nullptr;
  Buffer buffer = make_buffer(kBlock + CsvQuotes::kWindow);
  if (buffer == nullptr) return nullptr;
  std::unique_ptr<CsvScanner> scanner(new (std::nothrow)
                                          CsvScanner(::fileno(stream), std::move(buffer)));
  if (scanner == nullptr || !scanner->refresh()) return nullptr;
  return scanner;
}

bool CsvScanner::refresh() noexcept {
  struct stat now {};
  failed_ = false;
  next_in_run_ = kNoRun;
  looked_ = tick_now();
  if (::fstat(fd_, &now) != 0) return false;
  // The change time tells apart what a restored modification time would hide.
  if (now.st_size != stamp_.st_size || !same_time(now.st_mtim, stamp_.st_mtim) ||
      !same_time(now.st_ctim, stamp_.st_ctim)) {
    forget();
  }
  stamp_ = now;
  return true;
}

bool CsvScanner::locate(int cur, int records, off_t& offset) {
  if (!refresh()) return false;
  if (cur == 0 || cur == -1 || cur == records) {
    offset = cur == 0 ? 0 : size();
    return true;
  }
  Mark mark = nearest(cur);
  if (!advance(mark, cur)) return false;
  last_ = mark;
  offset = mark.offset;
  return true;
}

std::string_view CsvScanner::block(off_t offset) noexcept {
  if (offset >= size()) return {};
  const off_t cached_end = cached_at_ + static_cast<off_t>(cached_);
  if (offset < cached_at_ || offset >= cached_end) {
    const auto wanted = static_cast<std::size_t>(std::min<off_t>(kBlock, size() - offset));
    const ssize_t got = ::pread(fd_, buffer_.get(), wanted, offset);
    failed_ = failed_ || got < 0;
    cached_at_ = offset;
    cached_ = got > 0 ? static_cast<std::size_t>(got) : 0;
  }
  const auto skip = static_cast<std::size_t>(offset - cached_at_);
  return {buffer_.get() + skip, cached_ - skip};
}

CsvScanner::Mark CsvScanner::nearest(int record) const noexcept {
  const auto after =
      std::upper_bound(marks_.begin(), marks_.end(), record,
                       [](int value, const Mark& mark) { return value < mark.record; });
  const Mark mark = after == marks_.begin() ? Mark{0, 0} : *std::prev(after);
  return last_.record <= record && last_.record > mark.record ? last_ : mark;
}

// From where on the next record start is to be remembered.
off_t CsvScanner::next_mark() const noexcept {
  return (marks_.empty() ? 0 : marks_.back().offset) + kMarkSpacing;
}

bool CsvScanner::advance(Mark& mark, int record) {
  const auto visit = [&](std::string_view text, off_t offset, const CsvQuotes::Window& window) {
    // Most windows are only counted; where their records begin is not asked.
    const int ends = __builtin_popcountll(window.outside);
    if (ends < record - mark.record && offset + static_cast<off_t>(text.size()) < next_mark()) {
      mark.record += ends;
      return true;
    }
    return CsvQuotes::for_each(window.outside, [&](std::size_t place) {
      mark = {mark.record + 1, offset + static_cast<off_t>(place) + 1};
      if (mark.offset >= next_mark()) marks_.push_back(mark);
      return mark.record < record;
    });
  };
  return mark.record >= record || walk<'\n'>(mark.offset, visit);
}

int CsvScanner::count_records() {
  Mark mark{0, 0};
  advance(mark, INT_MAX);
  return mark.record;
}

int CsvScanner::count_columns() {
  int columns = 1;
  walk<',', '\n'>(0, [&](std::string_view text, off_t, const CsvQuotes::Window& window) {
    return CsvQuotes::for_each(window.outside, [&](std::size_t place) {
      if (text[place] == ',' && columns < INT_MAX) ++columns;
      return text[place] != '\n';
    });
  });
  return columns;
}

off_t CsvScanner::record_end(int record, off_t begin) {
  Mark mark{record, begin};
  return advance(mark, record + 1) ? mark.offset : size();
}

bool CsvScanner::read(int cur, int records) {
  off_t offset = last_.offset;
  // Nothing is looked at while the records come in their order and the clock has not ticked.
  const bool goes_on = cur == next_in_run_ && same_time(looked_, tick_now());
  if (!goes_on && !locate(cur, records, offset)) return false;
  fields_.clear();
  Splitter splitter(fields_);
  while (!splitter.ended) {
    const std::string_view bytes = block(offset);
    if (bytes.empty()) break;
    offset += static_cast<off_t>(splitter.take(bytes));
  }
  next_in_run_ = kNoRun;
  if (splitter.ended && cur != records) {
    last_ = {cur + 1, offset};
    next_in_run_ = cur + 1 < records ? cur + 1 : kNoRun;
  }
  return !failed_;
}

void CsvScanner::forget() noexcept {
  next_in_run_ = kNoRun;
  marks_.clear();
  last_ = {0, 0};
  cached_ = 0;
}

// The file is not locked: another's change since our writing passes as ours if the size stays.
void CsvScanner::restamp(off_t size) noexcept {
  cached_ = 0;
  next_in_run_ = kNoRun;
  if (::fstat(fd_, &stamp_) != 0 || stamp_.st_size != size) forget();
}

void CsvScanner::inserted(off_t offset, off_t size) {
  while (!marks_.empty() && marks_.back().offset > offset) marks_.pop_back();
  if (last_.offset > offset) last_ = {0, 0};
  restamp(size);
}

void CsvScanner::blanked(int record, off_t begin) {
  const auto after = std::partition_point(marks_.begin(), marks_.end(),
                                          [=](const Mark& mark) { return mark.record <= record; });
  for (auto mark = after; mark != marks_.end(); ++mark) --mark->record;
  if (after != marks_.end() && after->record == record) marks_.erase(after);
  last_ = {record, begin};
  restamp(size());
}

}  // namespace utility::detail
