// CSV files: any file reads alike in both ways, what is written reads back, and an edit leaves
// every other record as it was.
#include "fuzz.h"

using utility::CCSV;

namespace {

using Record = std::vector<std::string>;

std::vector<Record> read_all(CCSV& csv) {
  std::vector<Record> records(static_cast<std::size_t>(csv.GetRecordCount()));
  for (std::size_t i = 0; i < records.size(); ++i) {
    check(csv.SetCurPos(static_cast<int>(i)) && csv.GetCols(records[i]), "every record is there");
  }
  check(csv.SetCurPos(0), "the first position");
  for (Record record : records) {
    // What is after a byte of zero does not arrive in an array.
    for (std::string& field : record) field = field.c_str();
    char** array = nullptr;
    int cols = 0;
    check(csv.ReadRecord(&array, &cols), "every record comes as an array");
    check(Record(array, array + cols) == record, "both readings agree");
    for (int i = 0; i <= cols; ++i) delete[] array[i];
    delete[] array;
  }
  return records;
}

// What comes back as it was: a double quote at the end, a CR alone and an empty field do not.
std::string field_that_reads_back(std::string text) {
  text.resize(text.find_last_not_of('"') + 1);
  std::replace(text.begin(), text.end(), '\r', '\n');
  return text.empty() ? "x" : text;
}

bool insert(CCSV& csv, const Record& record) {
  std::vector<char*> fields;
  for (const std::string& text : record) fields.push_back(new char[text.size() + 1]());
  for (std::size_t i = 0; i < record.size(); ++i) record[i].copy(fields[i], record[i].size());
  const bool done = csv.WriteRecord(const_cast<const char**>(fields.data()), 2);
  for (char* field : fields) delete[] field;
  return done;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string file = scratch_file("t.csv");
  static const bool is_placed = ::chdir("/run") == 0 &&  // for the temporary file
                                std::freopen("/dev/null", "w", stdout) != nullptr;
  check(is_placed, "a directory of its own");
  Input input(data, size);
  const std::size_t where = input.byte();
  const std::string first = input.text('\x1f').c_str(), second = input.text('\x1f').c_str();
  const Record record{field_that_reads_back(first), field_that_reads_back(second)};
  write_file(file, input.rest());

  CCSV csv;
  check(csv.Open(file.c_str()), "any file opens");
  const std::vector<Record> records = read_all(csv);
  if (!records.empty()) {
    const auto at = static_cast<int>(where % records.size());
    check(csv.SetCurPos(at) && insert(csv, record), "a record can be inserted");
    std::vector<Record> more = records;
    more.insert(more.begin() + at, record);
    check(read_all(csv) == more, "it is there, and the others stay");
    check(csv.SetCurPos(at) && csv.DelRecord(), "a record can be deleted");
    check(read_all(csv) == records, "the others stay");
  }
  check(csv.NeatenFile(file.c_str()) && csv.Open(file.c_str()), "any file can be neatened");
  // Without the blank in it, `"" ""` is one text in quotes.
  const bool is_plain = read_file(file).find('"') == std::string::npos;
  const std::vector<Record> neat = read_all(csv);
  check(is_plain ? neat == records : neat.size() == records.size(), "neatening keeps the records");
  csv.Close();
  return 0;
}
