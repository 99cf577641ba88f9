#include "utility/CCSV.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <random>
#include <tuple>

#include "support/temp_dir.h"

namespace fs = std::filesystem;
using utility::CCSV;
using Fields = std::vector<std::string>;

namespace {

/// Writes a record array as callers make it.
bool write(CCSV& csv, const Fields& fields) {
  std::vector<char*> record;
  for (const std::string& field : fields) {
    record.push_back(new char[field.size() + 1]());
    field.copy(record.back(), field.size());
  }
  record.push_back(new char[1]());
  const bool done =
      csv.WriteRecord(const_cast<const char**>(record.data()), static_cast<int>(fields.size()));
  for (const char* string : record) delete[] string;
  return done;
}

std::optional<Fields> read(CCSV& csv) {
  char** record = nullptr;
  int cols = 0;
  if (!csv.ReadRecord(&record, &cols)) return std::nullopt;
  Fields fields(record, record + cols);
  // What lies behind an empty field is out of FreeRecord's reach.
  int empty = 0;
  while (empty < cols && *record[empty] != '\0') ++empty;
  for (int i = empty + 1; i <= cols; ++i) delete[] record[i];
  CCSV::FreeRecord(record);
  return fields;
}

/// The rules themselves: for each call the file is taken apart from its first byte, as they say.
struct Model {
  struct Record {
    std::size_t begin, end;
    Fields fields;
  };
  std::string file, printed;
  int cols = 0, records, cur;

  explicit Model(std::string text)
      : file(std::move(text)), records(static_cast<int>(take_apart().size()) - 1), cur(records) {}

  /// All records, and last what is left behind their end: nothing, or the begin of one more.
  std::vector<Record> take_apart() const {
    std::vector<Record> all(1);
    std::string field;
    bool quoted = false;
    for (std::size_t at = 0; at < file.size(); ++at) {
      const char byte = file[at];
      if (byte == '"' && quoted && file[at + 1] == '"') {
        field += file[++at];
      } else if (byte == '"') {
        quoted = !quoted;
      } else if (!quoted && (byte == ',' || byte == '\n')) {
        all.back().fields.push_back(std::exchange(field, ""));
        all.back().end = at + 1;
        if (byte == '\n') all.push_back({at + 1, 0, {}});
      } else if (quoted || (byte != ' ' && byte != '\r')) {
        field += byte;
      }
    }
    all.back().end = file.size();
    return all;
  }
  /// What lies at the current position, where the file has that.
  std::optional<Record> here() const {
    const auto all = take_apart();
    const auto at = static_cast<std::size_t>(cur);
    if (cur == records && cur != 0) return Record{file.size(), file.size(), {}};
    return at < all.size() ? std::optional(all[at]) : std::nullopt;
  }
  std::optional<Fields> get() {
    const auto record = here();
    if (!record) return std::nullopt;
    cols = static_cast<int>(record->fields.size());
    return record->fields;
  }
  bool write(const Fields& fields) {
    const auto record = here();
    if (!record) return false;
    std::string line;
    bool ended = false;
    for (const std::string& field : fields) {
      ended = ended || field.empty();
      const bool quotes = !ended && field.find_first_of(" ,\n\"") != std::string::npos;
      line += quotes ? "\"" : "";
      for (const char& c : field) line.append(quotes && c == '"' && &c != &field.back() ? 2 : 1, c);
      line += quotes ? "\"," : ",";
    }
    const std::size_t rest = (file.size() - record->begin) % 4096;
    printed += (rest != 0 ? std::to_string(rest) + "\n" : "") + "delete file successfully\n";
    file.insert(record->begin, line.substr(0, line.size() - 1) + "\r\n");
    return ++cur, ++records, true;
  }
  bool erase() {
    if (cur == records) return true;
    const auto record = here();
    if (!record) return false;
    const std::size_t length = record->end - record->begin;
    file.replace(record->begin, length, length, ' ');
    records -= length == 0 ? 0 : 1;
    return true;
  }
};

/// Tests run in a directory of their own: the temporary file goes to the working directory. What
/// the class prints is kept apart.
class CCSVTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::current_path(dir_.path());
    testing::internal::CaptureStdout();
  }
  void TearDown() override {
    csv_.Close();
    fs::current_path("/");
    const std::string output = testing::internal::GetCapturedStdout();
    if (HasFailure()) std::fputs(output.c_str(), stdout);  // failures are told there too
  }
  /// What was printed since the last call.
  static std::string printed() {
    const std::string output = testing::internal::GetCapturedStdout();
    testing::internal::CaptureStdout();
    return output;
  }
  std::vector<Fields> all() {
    std::vector<Fields> records;
    EXPECT_TRUE(csv_.Open("t.csv") && csv_.SetCurPos(0));
    while (auto fields = read(csv_)) records.push_back(std::move(*fields));
    return records;
  }
  TempDir dir_;
  CCSV csv_;
};

TEST_F(CCSVTest, ReadsRecords) {
  dir_.write("t.csv", " a b,\rc \r\n\"x\ny\",\"a,\"\" b\",a\" \"b\"\"\"c\",\r\n1,2,3\n5,\"6\"");
  EXPECT_EQ(all(),
            (std::vector<Fields>{{"ab", "c"}, {"x\ny", "a,\" b", "a b\"c", ""}, {"1", "2", "3"}}));
  EXPECT_EQ(csv_.GetColCnt(), 3);
  ASSERT_TRUE(csv_.Open("t.csv"));
  EXPECT_EQ(csv_.GetColCnt(), 2);
  EXPECT_EQ(read(csv_), std::nullopt) << "at the end";
}

TEST_F(CCSVTest, RefusesWithoutAFile) {
  Fields fields;
  EXPECT_FALSE(csv_.Open(nullptr) || csv_.Create(nullptr) || csv_.NeatenFile(nullptr));
  EXPECT_FALSE(csv_.Open("none") || csv_.NeatenFile("none") || csv_.Create("none/x"));
  EXPECT_FALSE(csv_.MoveFpPos() || csv_.GetCols(fields) || csv_.DelRecord() || write(csv_, {"a"}));
  ASSERT_TRUE(csv_.Create("t.csv") && csv_.DelRecord());
  EXPECT_FALSE(csv_.WriteRecord(nullptr, 1) || write(csv_, {}) ||
               csv_.ReadRecord(nullptr, nullptr));
  EXPECT_EQ(dir_.read("t.csv"), "");
}

// Random files and calls, with other processes' changes between them, against the definition.
TEST_F(CCSVTest, DoesWhatTheDefinitionDoes) {
  std::mt19937 random(20240229);  // NOLINT(cert-msc32-c,cert-msc51-cpp): a failure must come again
  const auto pick = [&random](std::size_t n) { return std::size_t{random() % n}; };
  const auto text = [&](std::size_t most) {
    std::string out;
    for (std::size_t n = pick(most + 1); n > 0; --n) out += "ab \"\",\n\n\r"[pick(9)];
    return out;
  };
  for (int round = 0; round < 250 && !HasFailure(); ++round) {
    // Every third file is as large as the block, every third has records that lie blocks apart.
    std::string content = text(round % 3 == 2 ? 20000 : 60);
    if (round % 3 == 1) content += std::string(4095 - content.size(), 'x') + '\n';
    Model model(content);
    dir_.write("t.csv", model.file);
    ASSERT_TRUE(csv_.Open("t.csv"));
    model.cols = csv_.GetColCnt();
    for (int step = 0; step < 12; ++step) {
      const std::size_t action = pick(11);
      SCOPED_TRACE(testing::Message() << round << "." << step << ": action " << action);
      if (action < 3) {
        model.cur = static_cast<int>(pick(2) * pick(std::size_t(model.records) + 1));
        EXPECT_TRUE(csv_.SetCurPos(model.cur));
      } else if (action < 6) {
        Fields fields;
        const auto expected = model.get();
        EXPECT_EQ(csv_.GetCols(fields), expected.has_value());
        EXPECT_EQ(fields, expected.value_or(Fields()));
      } else if (action < 8) {
        const auto expected = model.cur != model.records ? model.get() : std::nullopt;
        EXPECT_EQ(read(csv_), expected);
        model.cur += expected ? 1 : 0;
      } else if (action < 9) {
        const Fields fields{text(5), text(5), text(5)};
        EXPECT_EQ(write(csv_, fields), model.write(fields));
      } else if (action < 10) {
        EXPECT_EQ(csv_.DelRecord(), model.erase());
      } else {
        // Size or times must tell.
        const std::string other = pick(2) == 0 ? model.file + text(9) + "z" : text(30);
        if (other.size() != model.file.size()) dir_.write("t.csv", model.file = other);
      }
      ASSERT_EQ(dir_.read("t.csv"), model.file);
      EXPECT_EQ(std::tuple(csv_.GetCurPos(), csv_.GetRecordCount(), csv_.GetColCnt()),
                std::tuple(model.cur, model.records, model.cols));
    }
    EXPECT_EQ(printed(), model.printed);
  }
}

TEST_F(CCSVTest, WritesDeletesAndNeatens) {
  ASSERT_TRUE(csv_.Create("t.csv") && write(csv_, {"x y", "5"}));
  ASSERT_TRUE(write(csv_, {"say \"hi\"", "a\rb", "", "c d"}));
  EXPECT_EQ(dir_.read("t.csv"), "\"x y\",5\r\n\"say \"\"hi\"\",a\rb,,c d\r\n");
  dir_.write("t.csv", "1,a b\r\n2,\"c d\"\r\n3,e\r\n");
  ASSERT_EQ(::chmod("t.csv", 0640), 0);
  ASSERT_TRUE(csv_.Open("t.csv") && csv_.SetCurPos(0) && csv_.DelRecord());
  EXPECT_EQ(dir_.read("t.csv"), std::string(7, ' ') + "2,\"c d\"\r\n3,e\r\n");
  EXPECT_EQ(csv_.GetRecordCount(), 2);
  ASSERT_TRUE(csv_.NeatenFile("t.csv"));
  EXPECT_FALSE(csv_.MoveFpPos() || csv_.GetRecordCount() != 0) << "closed";
  EXPECT_EQ(dir_.read("t.csv"), "2,\"c d\"\r\r\n3,e\r\r\n");
  dir_.write("t.csv", "\"a \"\" b\" ,c d\n\n, \n\"x \ny\"\n left, \"over\n");
  ASSERT_TRUE(csv_.NeatenFile("t.csv"));
  EXPECT_EQ(dir_.read("t.csv"), "\"a \"\" b\",cd\r\n\r\n,\r\n\"x \ny\"\r\n");
  EXPECT_EQ(fs::status("t.csv").permissions(), fs::perms(0640));
}

TEST_F(CCSVTest, TheTemporaryFileIsItsOwn) {
  dir_.write("t.csv", "1\n2\n");
  dir_.write("precious", "kept");
  ASSERT_EQ(::symlink("precious", "~tempfile.csv"), 0);
  EXPECT_TRUE(csv_.Open("t.csv") && csv_.SetCurPos(1) && write(csv_, {"x"}));
  dir_.write("~tempfile.csv", "old");
  EXPECT_TRUE(write(csv_, {"y"}));
  fs::create_directory("~tempfile.csv");
  EXPECT_FALSE(csv_.SetCurPos(5) || csv_.SetCurPos(-2));
  EXPECT_FALSE(write(csv_, {"z"}) || csv_.NeatenFile("t.csv"));
  EXPECT_EQ(csv_.GetCurPos(), 3) << "still open, where it was";
  EXPECT_TRUE(csv_.SetCurPos(-1) && csv_.MoveFpPos() && csv_.GetCurPos() == 4);
  EXPECT_EQ(dir_.read("t.csv") + dir_.read("precious"), "1\nx\r\ny\r\n2\nkept");
  dir_.write("gbk", printed());
  ASSERT_EQ(std::system("iconv -f GBK -t UTF-8 gbk > utf8"), 0);
  EXPECT_EQ(dir_.read("utf8"), R"(2
delete file successfully
2
delete file successfully
设置的当前位置超过纪录个数 设置失效 当前位置为预保留:
设置的当前位置超过纪录个数 设置失效 当前位置为预保留:
临时文件创建失败!
临时文件创建不成功!
)");
}

TEST_F(CCSVTest, AChangeThatKeepsTheSizeIsNoticed) {
  dir_.write("t.csv", "a,1\nb,2\n");
  ASSERT_TRUE(csv_.Open("t.csv") && csv_.SetCurPos(1));
  EXPECT_EQ(read(csv_), (Fields{"b", "2"}));
  ASSERT_EQ(std::system("printf 'a,\\n33b,\\n' > t.csv; touch -d 2001-01-01 t.csv"), 0);
  ASSERT_TRUE(csv_.SetCurPos(1));
  EXPECT_EQ(read(csv_), (Fields{"33b", ""}));
}

TEST_F(CCSVTest, RecordsInOrderCostTheirOwnLength) {
  std::string file;
  for (int i = 0; i < 20000; ++i) file += std::to_string(i) + ",\"name, of it\"\r\n";
  dir_.write("t.csv", file);
  const auto bytes_read = [] {
    std::string key, count;
    std::ifstream("/proc/self/io") >> key >> count;
    return std::stoul(count);
  };
  const std::size_t before = bytes_read();
  EXPECT_EQ(all().size(), 20000U);
  EXPECT_LT(bytes_read() - before, 3 * file.size()) << "one scan to count, one to read";
}

TEST_F(CCSVTest, ExchangesFilesWithPython) {
  dir_.write("p.py", R"(import csv, sys
csv.field_size_limit(2000000)
rows = [['a b', 'x,\ny', 'q"q', sys.argv[2], chr(0x4e2d)], ['m' * 1000000, ' ', '\r\n', '1', '']]
if sys.argv[1] == 'read': sys.exit(list(csv.reader(open('our.csv', newline=''))) != rows)
csv.writer(open('t.csv', 'w', newline=''), quoting=csv.QUOTE_ALL).writerows(rows))");
  ASSERT_EQ(std::system("python3 p.py write '\"'"), 0);
  auto records = all();
  ASSERT_EQ(records.size(), 2U);
  // The one thing that does not come back: a field that ends in a quote.
  EXPECT_EQ(std::exchange(records[0].at(3), "end"), "\"");
  EXPECT_TRUE(csv_.Create("our.csv") && write(csv_, records[0]) && write(csv_, records[1]));
  EXPECT_EQ(std::system("python3 p.py read end"), 0);
}

}  // namespace
