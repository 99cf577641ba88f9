#include <csv.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "support/csv_file.h"
#include "support/harness.h"
#include "utility/CCSV.h"

namespace {

using utility::CCSV;
using Record = std::vector<std::string>;

/// Reads a file record by record; `records`, unless null, receives them all.
void read_by_library(const std::string& path, std::vector<Record>* records) {
  CCSV csv;
  bench::require(csv.Open(path.c_str()) && csv.SetCurPos(0), "the CSV file does not open");
  Record record;
  const int count = csv.GetRecordCount();
  for (int i = 0; i < count; ++i) {
    record.clear();
    csv.SetCurPos(i);
    csv.GetCols(record);
    benchmark::DoNotOptimize(record.data());
    if (records != nullptr) records->push_back(record);
  }
  csv.Close();
}

/// The same with arrays of C strings.
void read_arrays_by_library(const std::string& path) {
  CCSV csv;
  bench::require(csv.Open(path.c_str()) && csv.SetCurPos(0), "the CSV file does not open");
  char** record = nullptr;
  for (int cols = 0; csv.ReadRecord(&record, &cols);) CCSV::FreeRecord(record);
  csv.Close();
}

void open_by_library(const std::string& path) {
  CCSV csv;
  bench::require(csv.Open(path.c_str()), "the CSV file does not open");
  csv.Close();
}

/// Looks for line feeds block by block.
int count_lines(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "rbe");
  bench::require(file != nullptr, "the CSV file does not open");
  static std::array<char, 65536> block;
  std::setvbuf(file, nullptr, _IONBF, 0);
  int lines = 0;
  while (const std::size_t size = std::fread(block.data(), 1, block.size(), file)) {
    const char* const end = block.data() + size;
    for (const char* at = block.data(); at != end; ++lines) {
      const auto left = static_cast<std::size_t>(end - at);
      const auto* feed = static_cast<const char*>(std::memchr(at, '\n', left));
      if (feed == nullptr) break;
      at = feed + 1;
    }
  }
  std::fclose(file);
  return lines;
}

/// Takes libcsv's fields as strings; `records`, unless null, receives all records.
struct Strings {
  std::vector<Record>* records = nullptr;
  Record record;

  void add(const char* text, std::size_t size) { record.emplace_back(text, size); }
  void end() {
    benchmark::DoNotOptimize(record.data());
    if (records != nullptr) records->push_back(record);
    record.clear();
  }
};

/// Takes them as C strings of their own, as the library's arrays hold them.
struct Arrays {
  std::vector<char*> record;

  void add(const char* text, std::size_t size) {
    char* field = new char[size + 1];
    std::memcpy(field, text, size);
    field[size] = '\0';
    record.push_back(field);
  }
  void end() {
    benchmark::DoNotOptimize(record.data());
    for (const char* field : record) delete[] field;
    record.clear();
  }
};

template <class Sink>
void read_by_libcsv(const std::string& path, Sink sink) {
  csv_parser parser{};
  bench::require(csv_init(&parser, 0) == 0, "libcsv does not start");
  const auto end_field = [](void* text, std::size_t size, void* to) {
    static_cast<Sink*>(to)->add(static_cast<const char*>(text), size);
  };
  const auto end_record = [](int, void* to) { static_cast<Sink*>(to)->end(); };
  std::FILE* file = std::fopen(path.c_str(), "rbe");
  bench::require(file != nullptr, "the CSV file does not open");
  static std::array<char, 65536> block;
  while (const std::size_t size = std::fread(block.data(), 1, block.size(), file)) {
    csv_parse(&parser, block.data(), size, end_field, end_record, &sink);
  }
  csv_fini(&parser, end_field, end_record, &sink);
  std::fclose(file);
  csv_free(&parser);
}

void add(const std::string& row, int count, int width) {
  const std::string path = bench::csv_file(count, width);
  std::vector<Record> ours;
  std::vector<Record> theirs;
  read_by_library(path, &ours);
  read_by_libcsv(path, Strings{&theirs, {}});
  bench::require(static_cast<int>(ours.size()) == count && ours == theirs,
                 "libcsv and the library read other fields");
  bench::require(count_lines(path) == count, "records of more than one line");

  const std::string size = "/" + std::to_string(count);
  bench::work(row + "/library" + size, [path] { read_by_library(path, nullptr); });
  bench::work(row + "/library_arrays" + size, [path] { read_arrays_by_library(path); });
  bench::work(row + "/library_open" + size, [path] { open_by_library(path); });
  bench::work(row + "/floor_open" + size, [path] { benchmark::DoNotOptimize(count_lines(path)); });
  bench::work(row + "/libcsv" + size, [path] { read_by_libcsv(path, Strings{}); });
  bench::work(row + "/libcsv_arrays" + size, [path] { read_by_libcsv(path, Arrays{}); });
}

}  // namespace

void set_up() {
  const int many = bench::smoke() ? 2000 : 100000;
  add("csv", 1000, 1);
  add("csv", many, 1);
  add("csv_wide", many, 4);
}
