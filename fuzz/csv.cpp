// CSV files: the input is a file's content and, behind a RS byte, a program of calls and of changes
// by others. After each step the file, what was read, the counts and what was printed are as a list
// of records has them.
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "check.h"
#include "input.h"
#include "scratch.h"
#include "support/csv_record.h"
#include "utility/CCSV.h"

namespace {

using utility::CCSV;
using Fields = std::vector<std::string>;

constexpr char kRecordEnd = '\x1e';  // ends a content and a record's fields
constexpr char kFieldEnd = '\x1f';   // parts fields
constexpr char kPath[] = "t.csv";
// GBK for "the position set exceeds the number of records; not set; the current one is kept:".
constexpr char kRefused[] =
    "\xc9\xe8\xd6\xc3\xb5\xc4\xb5\xb1\xc7\xb0\xce\xbb\xd6\xc3\xb3\xac\xb9\xfd\xbc\xcd\xc2\xbc\xb8"
    "\xf6\xca\xfd \xc9\xe8\xd6\xc3\xca\xa7\xd0\xa7 \xb5\xb1\xc7\xb0\xce\xbb\xd6\xc3\xce\xaa\xd4\xa4"
    "\xb1\xa3\xc1\xf4:\n";

/// The records of a file, each with its line end, and what follows the last.
struct Records {
  std::vector<std::string> whole;
  std::string rest;

  explicit Records(const std::string& file) {
    std::size_t begin = 0;
    bool quoted = false;
    for (std::size_t at = 0; at < file.size(); ++at) {
      if (file[at] == '"') quoted = !quoted;
      if (file[at] != '\n' || quoted) continue;
      whole.push_back(file.substr(begin, at + 1 - begin));
      begin = at + 1;
    }
    rest = file.substr(begin);
  }
};

/// The completed fields of the first record in `text`.
Fields fields_of(const std::string& text) {
  Fields fields;
  std::string field;
  bool quoted = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '"' && !(quoted && i + 1 < text.size() && text[i + 1] == '"')) {
      quoted = !quoted;
    } else if (!quoted && (c == ',' || c == '\n')) {
      fields.push_back(field);
      field.clear();
      if (c == '\n') return fields;
    } else if (quoted || (c != ' ' && c != '\r')) {
      field += c;
      i += c == '"' ? 1 : 0;
    }
  }
  return fields;
}

int columns_of(const std::string& file) {
  const Records records(file);
  bool quoted = false;
  int columns = 1;
  for (const char c : records.whole.empty() ? records.rest : records.whole[0]) {
    if (c == '"') quoted = !quoted;
    if (c == ',' && !quoted) ++columns;
  }
  return columns;
}

std::string line_of(const Fields& fields) {
  std::string line;
  bool quoting = true;
  for (std::string field : fields) {
    quoting = quoting && !field.empty();
    if (quoting && field.find_first_of(" ,\n\"") != std::string::npos) {
      for (std::size_t at = field.size() - 1; at-- > 0;) {
        if (field[at] == '"') field.insert(at, 1, '"');
      }
      field = '"' + field + '"';
    }
    line += field + ',';
  }
  line.pop_back();
  return line + "\r\n";
}

std::string neatened(const std::string& file) {
  std::string neat;
  for (const std::string& record : Records(file).whole) {
    bool quoted = false;
    for (const char c : record.substr(0, record.size() - 1)) {
      if (c == '"') quoted = !quoted;
      if (quoted || c != ' ') neat += c;
    }
    neat += "\r\n";
  }
  return neat;
}

struct Model {
  std::string file;
  std::string printed;
  bool open = false;
  int columns = 0;
  int count = 0;
  int position = 0;

  void opened() {
    open = true;
    count = static_cast<int>(Records(file).whole.size());
    position = count;
    columns = columns_of(file);
  }
  void closed() {
    open = false;
    columns = count = position = 0;
  }
  bool set_position(int to) {
    const bool done = to >= -1 && to <= count;
    if (done) position = to == -1 ? count : to;
    printed += done ? "" : kRefused;
    return done;
  }
  /// Where the current record begins; false where it is gone.
  bool find(std::size_t& at) const {
    if (!open) return false;
    at = position == 0 ? 0 : file.size();
    if (position == 0 || position == count) return true;
    const std::vector<std::string> records = Records(file).whole;
    if (static_cast<std::size_t>(position) > records.size()) return false;
    at = 0;
    for (int i = 0; i < position; ++i) at += records[static_cast<std::size_t>(i)].size();
    return true;
  }
  bool get(Fields& fields) {
    std::size_t at = 0;
    if (!find(at)) return false;
    fields = fields_of(file.substr(at));
    columns = static_cast<int>(fields.size());
    return true;
  }
  bool read(Fields& fields) {
    if (position == count || !get(fields)) return false;
    ++position;
    return true;
  }
  bool write(const Fields& fields) {
    std::size_t at = 0;
    if (!find(at)) return false;
    const std::size_t partial = (file.size() - at) % 4096;
    if (partial != 0) printed += std::to_string(partial) + "\n";
    printed += "delete file successfully\n";
    file.insert(at, line_of(fields));
    ++position;
    ++count;
    return true;
  }
  bool erase() {
    std::size_t at = 0;
    if (!open || position == count) return open;
    if (!find(at)) return false;
    if (at == file.size()) return true;
    const Records behind(file.substr(at));
    const std::size_t size = (behind.whole.empty() ? behind.rest : behind.whole[0]).size();
    file.replace(at, size, size, ' ');
    --count;
    return true;
  }
};

std::string read_file(const char* path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

bool read_record(CCSV& csv, Fields& fields) {
  char** record = nullptr;
  int cols = 0;
  if (!csv.ReadRecord(&record, &cols)) return false;
  fields.assign(record, record + cols);
  FUZZ_CHECK(*record[cols] == '\0');
  csv_record::free_all(record, cols);
  return true;
}

Fields record_in(const std::string& text) {
  Input input(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  Fields fields;
  do {
    fields.emplace_back(input.text(kFieldEnd).c_str());
  } while (!input.empty());
  return fields;
}

Fields up_to_nul(Fields fields) {
  for (std::string& field : fields) field.resize(std::strlen(field.c_str()));
  return fields;
}

void check_file(const Model& model) {
  FUZZ_CHECK(read_file(kPath) == model.file);
}

/// Another process' change. One that leaves size and times is not seen, so there must be more.
void change(Model& model, const std::string& content) {
  if (content.size() == model.file.size() || content.size() > 100'000) return;
  scratch::File(kPath).write(content);
  model.file = content;
}

void step(CCSV& csv, Model& model, Input& input) {
  Fields got;
  Fields expected;
  switch (input.byte()) {
    case 'o':
      FUZZ_CHECK(csv.Open(kPath));
      model.opened();
      break;
    case 'c':
      csv.Close();
      model.closed();
      break;
    case 'C':
      FUZZ_CHECK(csv.Create(kPath));
      model.file.clear();
      model.opened();
      model.columns = 0;
      check_file(model);
      break;
    case 's': {
      // NOLINTNEXTLINE(bugprone-signed-char-misuse,cert-str34-c): negative ones as well
      const int to = static_cast<signed char>(input.byte() - '0');
      FUZZ_CHECK(csv.SetCurPos(to) == model.set_position(to));
      break;
    }
    case 'm': {
      std::size_t at = 0;
      FUZZ_CHECK(csv.MoveFpPos() == model.find(at));
      break;
    }
    case 'g':
      FUZZ_CHECK(csv.GetCols(got) == model.get(expected));
      FUZZ_CHECK(got == expected);
      break;
    case 'r':
      FUZZ_CHECK(read_record(csv, got) == model.read(expected));
      FUZZ_CHECK(got == up_to_nul(expected));
      break;
    case 'w': {
      const Fields fields = record_in(input.text(kRecordEnd));
      FUZZ_CHECK(csv_record::write(csv, fields) == model.write(fields));
      check_file(model);
      break;
    }
    case 'd':
      FUZZ_CHECK(csv.DelRecord() == model.erase());
      check_file(model);
      break;
    case 'n':
      FUZZ_CHECK(csv.NeatenFile(kPath));
      model.file = neatened(model.file);
      model.closed();
      check_file(model);
      break;
    case 'x':
      change(model, input.text(kRecordEnd));
      break;
    case 'l': {
      // Longer than an input gets: blocks have 4 and 64 KiB.
      const std::size_t size = input.byte() * 512U + input.byte();
      change(model, model.file + std::string(size, 'x') + input.text(kRecordEnd));
      break;
    }
    default:
      break;
  }
}

int open_or_fail(const std::string& path, int flags) {
  const int fd = ::open(path.c_str(), flags | O_CLOEXEC, 0600);
  FUZZ_CHECK(fd >= 0);
  return fd;
}

/// What the library prints goes to a file.
int capture_output() {
  const int fd = open_or_fail(scratch::dir() + "/printed", O_RDWR | O_CREAT);
  FUZZ_CHECK(::dup2(fd, STDOUT_FILENO) == STDOUT_FILENO);
  return fd;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const int kHome = open_or_fail(".", O_RDONLY);
  static const int kScratch = open_or_fail(scratch::dir(), O_RDONLY);
  static const int kPrinted = capture_output();
  FUZZ_CHECK(::fchdir(kScratch) == 0);
  Input input(data, size);
  Model model;
  model.file = input.text(kRecordEnd);
  scratch::File(kPath).write(model.file);
  FUZZ_CHECK(::ftruncate(kPrinted, 0) == 0 && ::lseek(kPrinted, 0, SEEK_SET) == 0);

  CCSV csv;
  FUZZ_CHECK(csv.Open(kPath));
  model.opened();
  for (int steps = 0; steps < 24 && !input.empty(); ++steps) {
    step(csv, model, input);
    FUZZ_CHECK(csv.GetRecordCount() == model.count);
    FUZZ_CHECK(csv.GetCurPos() == model.position);
    FUZZ_CHECK(csv.GetColCnt() == model.columns);
  }
  check_file(model);
  csv.Close();
  FUZZ_CHECK(std::fflush(stdout) == 0 && read_file("printed") == model.printed);
  FUZZ_CHECK(::access("~tempfile.csv", F_OK) != 0);
  FUZZ_CHECK(::fchdir(kHome) == 0);  // where the fuzzer's own files are
  return 0;
}
