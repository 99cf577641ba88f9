#include "utility/CCSV.h"

#include <cstring>

#include "document/CsvScanner.h"

namespace utility {

using namespace detail;

namespace {

// GBK for "the position set exceeds the number of records; not set; the current position is kept:".
constexpr char kPositionRefused[] =
    "\xc9\xe8\xd6\xc3\xb5\xc4\xb5\xb1\xc7\xb0\xce\xbb\xd6\xc3\xb3\xac\xb9\xfd\xbc\xcd\xc2\xbc\xb8"
    "\xf6"
    "\xca\xfd \xc9\xe8\xd6\xc3\xca\xa7\xd0\xa7 "
    "\xb5\xb1\xc7\xb0\xce\xbb\xd6\xc3\xce\xaa\xd4\xa4\xb1\xa3"
    "\xc1\xf4:";

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

}  // namespace utility
