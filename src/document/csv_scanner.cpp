#include "document/csv_scanner.h"

#include <algorithm>
#include <array>
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

/// The first `byte` in [begin, end), or `end`.
const char* find_byte(const char* begin, const char* end, char byte) noexcept {
  const void* hit = std::memchr(begin, byte, static_cast<std::size_t>(end - begin));
  return hit != nullptr ? static_cast<const char*>(hit) : end;
}

/// Bytes that mean something outside quotes.
constexpr std::array<bool, 256> make_special() {
  std::array<bool, 256> special{};
  for (const char byte : {' ', '\r', '\n', ',', '"'})
    special[static_cast<unsigned char>(byte)] = true;
  return special;
}
constexpr std::array<bool, 256> kSpecial = make_special();

enum class State { kPlain, kQuoted, kQuoteInQuotes };

/// Takes one block apart; `state` and the field in hand go on into the next block. Returns behind
/// the record's end, or `end` with `ended` untouched.
const char* split(const char* from, const char* end, State& state, CsvFields& fields, bool& ended) {
  char* out = fields.room(static_cast<std::size_t>(end - from));
  while (from != end && !ended) {
    if (state == State::kQuoted) {
      while (from != end && *from != '"') *out++ = *from++;
      if (from == end) break;
      ++from;
      state = State::kQuoteInQuotes;
      continue;
    }
    if (state == State::kQuoteInQuotes && *from == '"') {
      *out++ = *from++;
      state = State::kQuoted;
      continue;
    }
    state = State::kPlain;
    while (from != end && !kSpecial[static_cast<unsigned char>(*from)]) *out++ = *from++;
    if (from == end) break;
    const char byte = *from++;
    if (byte == '"') {
      state = State::kQuoted;
    } else if (byte == ',' || byte == '\n') {
      fields.close(out);
      ended = byte == '\n';
    }
  }
  fields.use(out);
  return from;
}

}  // namespace

char* CsvFields::room(std::size_t size) {
  if (text_.size() - used_ < size) text_.resize(std::max(used_ + size, text_.size() * 2));
  return text_.data() + used_;
}

std::unique_ptr<CsvScanner> CsvScanner::over(FILE* stream) {
  if (stream == nullptr) return nullptr;
  Buffer buffer = make_buffer(kBlock);
  if (buffer == nullptr) return nullptr;
  std::unique_ptr<CsvScanner> scanner(new (std::nothrow)
                                          CsvScanner(::fileno(stream), std::move(buffer)));
  if (scanner == nullptr || !scanner->refresh()) return nullptr;
  return scanner;
}

bool CsvScanner::examine(struct stat& now) const noexcept {
  return ::fstat(fd_, &now) == 0;
}

bool CsvScanner::refresh() noexcept {
  struct stat now {};
  failed_ = false;
  if (!examine(now)) return false;
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
  const auto behind =
      std::upper_bound(marks_.begin(), marks_.end(), record,
                       [](int value, const Mark& mark) { return value < mark.record; });
  const Mark mark = behind == marks_.begin() ? Mark{0, 0} : *std::prev(behind);
  return last_.record <= record && last_.record > mark.record ? last_ : mark;
}

void CsvScanner::note(const Mark& mark) {
  const off_t known = marks_.empty() ? 0 : marks_.back().offset;
  if (mark.offset - known >= kMarkSpacing) marks_.push_back(mark);
}

bool CsvScanner::advance(Mark& mark, int record) {
  bool quoted = false;
  off_t offset = mark.offset;
  while (mark.record < record) {
    const std::string_view bytes = block(offset);
    if (bytes.empty()) return false;
    const char* const end = bytes.data() + bytes.size();
    const char* quote = find_byte(bytes.data(), end, '"');
    for (const char* at = bytes.data(); at != end && mark.record < record;) {
      const char* const feed = quoted ? quote : find_byte(at, quote, '\n');
      if (feed != quote) {
        at = feed + 1;
        mark = {mark.record + 1, offset + (at - bytes.data())};
        note(mark);
        continue;
      }
      if (quote == end) break;
      quoted = !quoted;
      at = quote + 1;
      quote = find_byte(at, end, '"');
    }
    offset += static_cast<off_t>(bytes.size());
  }
  return true;
}

int CsvScanner::count_records() {
  Mark mark{0, 0};
  advance(mark, INT_MAX);
  return mark.record;
}

int CsvScanner::count_columns() {
  bool quoted = false;
  int columns = 1;
  off_t offset = 0;
  for (auto bytes = block(0); !bytes.empty(); bytes = block(offset)) {
    for (const char byte : bytes) {
      if (byte == '\n' && !quoted) return columns;
      if (byte == ',' && !quoted && columns < INT_MAX) ++columns;
      if (byte == '"') quoted = !quoted;
    }
    offset += static_cast<off_t>(bytes.size());
  }
  return columns;
}

off_t CsvScanner::record_end(int record, off_t begin) {
  Mark mark{record, begin};
  return advance(mark, record + 1) ? mark.offset : size();
}

bool CsvScanner::read(int cur, int records) {
  off_t offset = 0;
  if (!locate(cur, records, offset)) return false;
  fields_.clear();
  State state = State::kPlain;
  bool ended = false;
  while (!ended) {
    const std::string_view bytes = block(offset);
    if (bytes.empty()) break;
    offset +=
        split(bytes.data(), bytes.data() + bytes.size(), state, fields_, ended) - bytes.data();
  }
  if (ended && cur != records) last_ = {cur + 1, offset};
  return !failed_;
}

void CsvScanner::forget() noexcept {
  marks_.clear();
  last_ = {0, 0};
  cached_ = 0;
}

// Another process' change between our writing and this look could pass as ours unless it shows in
// the size; the file is not locked.
void CsvScanner::restamp(off_t size) noexcept {
  cached_ = 0;
  if (!examine(stamp_) || stamp_.st_size != size) forget();
}

void CsvScanner::inserted(off_t offset, off_t size) {
  while (!marks_.empty() && marks_.back().offset > offset) marks_.pop_back();
  if (last_.offset > offset) last_ = {0, 0};
  restamp(size);
}

void CsvScanner::blanked(int record, off_t begin) {
  const auto behind = std::partition_point(marks_.begin(), marks_.end(),
                                           [=](const Mark& mark) { return mark.record <= record; });
  for (auto mark = behind; mark != marks_.end(); ++mark) --mark->record;
  if (behind != marks_.end() && behind->record == record) marks_.erase(behind);
  last_ = {record, begin};
  restamp(size());
}

}  // namespace utility::detail
