// CSV files: any file reads alike in both ways, what is written reads back, and an edit leaves
// every other record as it was.
#include <vector>

#include "fuzz.h"
#include "utility/CCSV.h"

using utility::CCSV;

namespace {

using Record = std::vector<std::string>;

const std::string& path() {
  static const ScratchFile file("t.csv");
  static const bool moved = ::chdir(scratch().c_str()) == 0 &&  // for the temporary file
                            std::freopen("/dev/null", "w", stdout) != nullptr;
  check(moved, "a directory of its own");
  return file.path;
}

// As C strings: what is after a byte of zero does not arrive in an array.
Record c_texts(Record record) {
  for (std::string& field : record) field.resize(std::char_traits<char>::length(field.c_str()));
  return record;
}

std::vector<Record> read_all(CCSV& csv) {
  std::vector<Record> records(static_cast<std::size_t>(csv.GetRecordCount()));
  for (std::size_t i = 0; i < records.size(); ++i) {
    check(csv.SetCurPos(static_cast<int>(i)) && csv.GetCols(records[i]), "every record is there");
  }
  check(csv.SetCurPos(0), "the first position");
  for (const Record& record : records) {
    char** array = nullptr;
    int cols = 0;
    check(csv.ReadRecord(&array, &cols), "every record comes as an array");
    Record fields(array, array + cols);
    check(fields == c_texts(record), "both readings agree");
    for (int i = 0; i <= cols; ++i) delete[] array[i];
    delete[] array;
  }
  return records;
}

// What comes back as it was: a double quote at the end, a CR alone and an empty field do not.
std::string field_that_reads_back(std::string text) {
  text = text.c_str();
  while (!text.empty() && text.back() == '"') text.pop_back();
  for (char& c : text) c = c == '\r' ? '\n' : c;
  return text.empty() ? "x" : text;
}

bool insert(CCSV& csv, const Record& record) {
  std::vector<char*> fields;
  for (const std::string& text : record) {
    fields.push_back(new char[text.size() + 1]);
    text.copy(fields.back(), text.size());
    fields.back()[text.size()] = '\0';
  }
  fields.push_back(new char[1]());
  const bool done =
      csv.WriteRecord(const_cast<const char**>(fields.data()), static_cast<int>(record.size()));
  for (char* field : fields) delete[] field;
  return done;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::string file = path();
  const auto where = static_cast<std::size_t>(input.byte());
  const Record record{field_that_reads_back(input.text('\x1f')),
                      field_that_reads_back(input.text('\x1f'))};
  {
    FILE* out = std::fopen(file.c_str(), "wbe");
    const std::string content = input.rest();
    check(out != nullptr && std::fwrite(content.data(), 1, content.size(), out) == content.size(),
          "a file to read");
    std::fclose(out);
  }
  CCSV csv;
  check(csv.Open(file.c_str()), "any file opens");
  const std::vector<Record> records = read_all(csv);
  if (!records.empty()) {
    const std::size_t at = where % records.size();
    check(csv.SetCurPos(static_cast<int>(at)) && insert(csv, record), "a record can be inserted");
    std::vector<Record> more = records;
    more.insert(more.begin() + static_cast<std::ptrdiff_t>(at), record);
    check(read_all(csv) == more, "it is there, and the others stay");
    check(csv.SetCurPos(static_cast<int>(at)) && csv.DelRecord(), "a record can be deleted");
    check(read_all(csv) == records, "the others stay");
  }
  check(csv.NeatenFile(file.c_str()) && csv.Open(file.c_str()), "any file can be neatened");
  // Without the blank in it, `"" ""` is one text in quotes.
  const bool plain = read_file(file).find('"') == std::string::npos;
  check(read_all(csv).size() == records.size(), "neatening keeps the number of records");
  check(!plain || read_all(csv) == records, "a neatened file reads the same");
  csv.Close();
  return 0;
}
