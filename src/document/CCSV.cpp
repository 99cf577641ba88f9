#include "utility/CCSV.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "base/io.h"
#include "document/CsvScanner.h"

namespace utility {

using namespace detail;

namespace {

// GBK for "the position set exceeds the number of records; not set; the current position is kept:".
constexpr char kPositionRefused[] =
    "\xc9\xe8\xd6\xc3\xb5\xc4\xb5\xb1\xc7\xb0\xce\xbb\xd6\xc3\xb3\xac\xb9\xfd\xbc\xcd\xc2\xbc\xb8"
    "\xf6\xca\xfd \xc9\xe8\xd6\xc3\xca\xa7\xd0\xa7 \xb5\xb1\xc7\xb0\xce\xbb\xd6\xc3\xce\xaa\xd4\xa4"
    "\xb1\xa3\xc1\xf4:";

bool open_scanned(const char* path, const char* mode, FILE*& stream,
                  std::unique_ptr<CsvScanner>& scanner) {
  if (path == nullptr) return false;
  File file = open_file(path, mode);
  scanner = CsvScanner::over(file.get());
  if (scanner == nullptr) return false;
  stream = file.release();
  return true;
}

/// The record array of `fields`; null, with nothing kept, when memory is short.
char** copy_fields(const CsvFields& fields) {
  const std::size_t count = fields.count();
  char** array = new (std::nothrow) char*[count + 1];
  if (array == nullptr) return nullptr;
  for (std::size_t i = 0; i <= count; ++i) {
    const std::string_view field = i < count ? fields[i] : std::string_view();
    array[i] = new (std::nothrow) char[field.size() + 1];
    if (array[i] == nullptr) {
      while (i > 0) delete[] array[--i];
      delete[] array;
      return nullptr;
    }
    if (!field.empty()) std::memcpy(array[i], field.data(), field.size());
    array[i][field.size()] = '\0';
  }
  return array;
}

// GBK for "failed to create the temporary file!" and "... did not succeed!".
constexpr char kNoTemporaryForRecord[] =
    "\xc1\xd9\xca\xb1\xce\xc4\xbc\xfe\xb4\xb4\xbd\xa8\xca\xa7\xb0\xdc!";
constexpr char kNoTemporaryForFile[] =
    "\xc1\xd9\xca\xb1\xce\xc4\xbc\xfe\xb4\xb4\xbd\xa8\xb2\xbb\xb3\xc9\xb9\xa6!";

/// Blanked in one write: half a record may leave a quote open, which swallows the next records.
constexpr off_t kMaxBlanked = off_t{1} << 20;

/// Makes the temporary file anew. Nobody else may read it, and nothing is opened that somebody put
/// there between the two calls: the working directory may be anybody's.
Fd make_temporary(const char* name) noexcept {
  ::unlink(name);
  return Fd(::open(name, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
}

/// A place in a file.
struct Place {
  int fd;
  off_t offset;
};

/// Copies `length` bytes in blocks of `size`.
bool copy_bytes(Place from, Place to, off_t length, char* block, int size) noexcept {
  while (length > 0) {
    const auto wanted = static_cast<std::size_t>(std::min<off_t>(length, size));
    const ssize_t got = ::pread(from.fd, block, wanted, from.offset);
    if (got <= 0) return false;
    if (!write_all_at(to.fd, {block, static_cast<std::size_t>(got)}, to.offset)) return false;
    from.offset += got;
    to.offset += got;
    length -= got;
  }
  return true;
}

/// `field` in quotes, or null when memory is short.
char* quoted_copy(const char* field) noexcept {
  const char* const last = field + std::strlen(field) - 1;
  const auto doubled = static_cast<std::size_t>(std::count(field, last, '"'));
  char* const copy = new (std::nothrow) char[static_cast<std::size_t>(last - field) + doubled + 4];
  if (copy == nullptr) return nullptr;
  char* out = copy;
  *out++ = '"';
  for (const char* in = field; in <= last; ++in) {
    *out++ = *in;
    if (*in == '"' && in != last) *out++ = '"';
  }
  *out++ = '"';
  *out = '\0';
  return copy;
}

bool quote_fields(char** fields, int limit) noexcept {
  for (int i = 0; i < limit && fields[i] != nullptr && *fields[i] != '\0'; ++i) {
    if (std::strpbrk(fields[i], " ,\n\"") == nullptr) continue;
    char* const quoted = quoted_copy(fields[i]);
    if (quoted == nullptr) return false;
    delete[] fields[i];
    fields[i] = quoted;
  }
  return true;
}

std::string join_record(char** fields, int count) {
  std::string line;
  for (int i = 0; i < count; ++i) {
    if (fields[i] != nullptr) line += fields[i];
    line += ',';
  }
  line.replace(line.size() - 1, 1, "\r\n");
  return line;
}

/// Writes the neatened form of the whole file; false when reading or writing failed.
bool write_neat(CsvScanner& scanner, int fd) {
  constexpr std::size_t kWritten = 65536;  // at a time
  std::string neat;
  off_t written = 0;
  off_t complete = 0;
  const auto write = [&] {
    const bool done = write_all_at(fd, neat, written);
    written += static_cast<off_t>(neat.size());
    neat.clear();
    return done;
  };
  const bool failed =
      scanner.walk<' ', '\n'>(0, [&](std::string_view text, off_t, const auto& window) {
        std::size_t from = 0;
        CsvQuotes::for_each(window.outside, [&](std::size_t place) {
          neat.append(text, from, place - from);
          from = place + 1;
          if (text[place] == ' ') return true;
          neat += "\r\n";
          complete = written + static_cast<off_t>(neat.size());
          return true;
        });
        neat.append(text, from);
        return neat.size() < kWritten || write();
      });
  // What follows the last record's end is no record.
  return !failed && write() && !scanner.failed() && ::ftruncate(fd, complete) == 0;
}

/// The insertion of a line into a file: what follows its place is saved in another file first.
struct Insertion {
  Place file;
  off_t size;
  int saved;
  char* block;
  int block_size;

  off_t tail() const noexcept { return size - file.offset; }

  bool save() noexcept { return copy_bytes(file, {saved, 0}, tail(), block, block_size); }

  /// Writes `line` and what was saved. The line goes with the first block: a short tail moves in
  /// one write, and no crash leaves the line over the tail's beginning.
  bool put(std::string line) {
    const auto wanted = static_cast<std::size_t>(std::min<off_t>(tail(), block_size));
    const ssize_t got = ::pread(saved, block, wanted, 0);
    if (got < 0) return false;
    line.append(block, static_cast<std::size_t>(got));
    const off_t after = file.offset + static_cast<off_t>(line.size());
    return write_all_at(file.fd, line, file.offset) &&
           copy_bytes({saved, got}, {file.fd, after}, tail() - got, block, block_size);
  }

  /// Puts back what `put` could not finish.
  void restore() noexcept {
    copy_bytes({saved, 0}, file, tail(), block, block_size);
    [[maybe_unused]] const int ignored = ::ftruncate(file.fd, size);
  }
};

}  // namespace

CCSV::CCSV() = default;
CCSV::~CCSV() = default;

bool CCSV::Create(const char* path) {
  Close();
  return open_scanned(path, "wb+e", m_fp, m_scanner);
}

bool CCSV::Open(const char* path) {
  Close();
  if (path == nullptr) return false;
  m_path = path;
  if (!open_scanned(path, "rb+e", m_fp, m_scanner)) return false;
  m_records = m_scanner->count_records();
  m_cols = m_scanner->count_columns();
  if (m_scanner->failed()) {
    Close();
    return false;
  }
  return SetCurPos(m_records);
}

void CCSV::Close() {
  m_cols = 0;
  m_records = 0;
  m_cur = 0;
  m_scanner.reset();
  // A stream is gone after fclose even where that reports a failure, so it is never kept.
  const File closing(std::exchange(m_fp, nullptr));
}

int CCSV::GetRecordCount() const { return m_records; }
int CCSV::GetCurPos() const { return m_cur; }
int CCSV::GetColCnt() const { return m_cols; }

bool CCSV::SetCurPos(int pos) {
  if (pos > m_records || pos < -1) {
    std::puts(kPositionRefused);
    return false;
  }
  m_cur = pos == -1 ? m_records : pos;
  return true;
}

bool CCSV::MoveFpPos() {
  off_t offset = 0;
  return m_scanner != nullptr && m_scanner->locate(m_cur, m_records, offset) &&
         ::fseeko(m_fp, offset, SEEK_SET) == 0;
}

bool CCSV::GetCols(std::vector<std::string>& fields) {
  if (m_scanner == nullptr || !m_scanner->read(m_cur, m_records)) return false;
  const CsvFields& read = m_scanner->fields();
  m_cols = static_cast<int>(read.count());
  for (std::size_t i = 0; i < read.count(); ++i) fields.emplace_back(read[i]);
  return true;
}

bool CCSV::ReadRecord(char*** record, int* cols) {
  if (record == nullptr || cols == nullptr || m_cur == m_records) return false;
  if (m_scanner == nullptr || !m_scanner->read(m_cur, m_records)) return false;
  m_cols = static_cast<int>(m_scanner->fields().count());
  *cols = m_cols;
  char** array = copy_fields(m_scanner->fields());
  if (array == nullptr) return false;
  *record = array;
  ++m_cur;
  return true;
}

void CCSV::FreeRecord(char** record) {
  if (record == nullptr) return;
  char** field = record;
  for (; **field != '\0'; ++field) delete[] * field;
  delete[] * field;
  delete[] record;
}

bool CCSV::WriteRecord(const char** fields, int count) {
  m_record = const_cast<char**>(fields);
  off_t at = 0;
  if (m_scanner == nullptr || fields == nullptr || count <= 0) return false;
  if (!m_scanner->locate(m_cur, m_records, at)) return false;
  const Buffer block = make_buffer(static_cast<std::size_t>(m_block));
  if (block == nullptr) return false;
  Fd temporary = make_temporary(m_temp_name);
  if (!temporary) {
    std::puts(kNoTemporaryForRecord);
    return false;
  }

  const off_t size = m_scanner->size();
  Insertion insertion{{m_scanner->fd(), at}, size, temporary.get(), block.get(), m_block};
  const auto partial = static_cast<int>(insertion.tail() % m_block);
  if (partial != 0) std::printf("%d\n", partial);
  bool done = insertion.save() && quote_fields(m_record, count);
  if (done) {
    const std::string line = join_record(m_record, count);
    done = insertion.put(line);
    if (done) {
      m_scanner->inserted(at, size + static_cast<off_t>(line.size()));
      ++m_cur;
      ++m_records;
    } else {
      insertion.restore();
      m_scanner->forget();
    }
  }
  temporary.reset();
  std::puts(::unlink(m_temp_name) == 0 ? "delete file successfully" : "file not delete");
  return done;
}

bool CCSV::DelRecord() {
  off_t begin = 0;
  if (m_scanner == nullptr) return false;
  if (m_cur == m_records) return true;
  if (!m_scanner->locate(m_cur, m_records, begin)) return false;
  const off_t end = m_scanner->record_end(m_cur, begin);
  if (end == begin) return true;
  const off_t block = std::min(end - begin, kMaxBlanked);
  const Buffer blanks = make_buffer(static_cast<std::size_t>(block));
  if (blanks == nullptr || m_scanner->failed()) return false;
  std::memset(blanks.get(), ' ', static_cast<std::size_t>(block));
  for (off_t at = begin; at < end; at += block) {
    const auto length = static_cast<std::size_t>(std::min(block, end - at));
    if (!write_all_at(m_scanner->fd(), {blanks.get(), length}, at)) {
      m_scanner->forget();
      return false;
    }
  }
  m_scanner->blanked(m_cur, begin);
  --m_records;
  return true;
}

bool CCSV::NeatenFile(const char* path) {
  if (path == nullptr) return false;
  File own;
  std::unique_ptr<CsvScanner> own_scanner;
  CsvScanner* source = m_scanner.get();
  if (source == nullptr) {
    own = open_file(path, "rb+e");
    own_scanner = CsvScanner::over(own.get());
    source = own_scanner.get();
  }
  if (source == nullptr || !source->refresh()) return false;
  Fd temporary = make_temporary(m_temp_name);
  if (!temporary) {
    std::puts(kNoTemporaryForFile);
    return false;
  }
  // What is replaced need not be the file that was read.
  const Fd replaced(::open(path, O_PATH | O_CLOEXEC));
  take_over_rights(replaced.get(), temporary.get());
  // On the disk before it takes the file's place: a crash must not leave an empty file there.
  const bool written = write_neat(*source, temporary.get()) && ::fsync(temporary.get()) == 0 &&
                       ::close(temporary.release()) == 0;
  if (written) {
    Close();
    // One step in place of deleting and renaming: there is no moment at which neither file is
    // there, and where renaming is impossible the old one stays.
    if (replaced && ::rename(m_temp_name, path) == 0) return true;
  }
  ::unlink(m_temp_name);
  return false;
}

void CCSV::TransfromCsv(char** fields) {
  if (fields != nullptr) quote_fields(fields, INT_MAX);
}

}  // namespace utility
