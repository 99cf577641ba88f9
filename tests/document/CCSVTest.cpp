#include "utility/CCSV.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>
#include <random>

#include "support/alloc_fault.h"
#include "support/temp_dir.h"

namespace {

using utility::CCSV;
using Fields = std::vector<std::string>;

/// A record array as callers make it, with what `WriteRecord` made of it.
class Record {
 public:
  explicit Record(const Fields& fields) {
    for (const std::string& field : fields) strings_.push_back(copy(field));
    strings_.push_back(copy(""));
  }
  ~Record() {
    for (const char* string : strings_) delete[] string;
  }
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;
  const char** data() { return strings_.data(); }
  int count() const { return static_cast<int>(strings_.size()) - 1; }

 private:
  static const char* copy(const std::string& text) {
    return std::strcpy(new char[text.size() + 1], text.c_str());
  }
  std::vector<const char*> strings_;
};

bool write(CCSV& csv, const Fields& fields) {
  Record record(fields);
  return csv.WriteRecord(record.data(), record.count());
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

/// The rules themselves, byte by byte over the whole file, as they are defined.
struct Model {
  std::string file, printed;
  int cols = 0, records = 0, cur = 0;

  bool skip(std::size_t& at) const {
    for (bool quoted = false; at < file.size();) {
      const char byte = file[at++];
      if (byte == '"' && quoted && at < file.size() && file[at] == '"') {
        ++at;
      } else if (byte == '"') {
        quoted = !quoted;
      } else if (byte == '\n' && !quoted) {
        return true;
      }
    }
    return false;
  }
  void open() {
    std::size_t at = 0;
    for (records = 0; skip(at);) ++records;
    bool quoted = false;
    cols = 1;
    for (std::size_t i = 0; i < file.size() && (quoted || file[i] != '\n'); ++i) {
      if (file[i] == '"') quoted = !quoted;
      if (file[i] == ',' && !quoted) ++cols;
    }
    cur = records;
  }
  bool locate(std::size_t& at) const {
    at = cur == records ? file.size() : 0;
    if (cur == 0) at = 0;
    for (int i = 0; cur != records && i < cur; ++i) {
      if (!skip(at)) return false;
    }
    return true;
  }
  bool get(Fields& fields) {
    std::size_t at = 0;
    if (!locate(at)) return false;
    cols = 0;
    std::string field;
    for (bool quoted = false; at < file.size();) {
      const char byte = file[at++];
      if (byte == '"' && quoted && at < file.size() && file[at] == '"') {
        field += file[at++];
      } else if (byte == '"') {
        quoted = !quoted;
      } else if (quoted || (byte != ' ' && byte != '\r' && byte != ',' && byte != '\n')) {
        field += byte;
      } else if (byte == ',' || byte == '\n') {
        fields.push_back(std::exchange(field, ""));
        ++cols;
        if (byte == '\n') break;
      }
    }
    return true;
  }
  bool write(const Fields& fields) {
    std::size_t at = 0;
    if (!locate(at)) return false;
    std::string line;
    bool ended = false;
    for (const std::string& field : fields) {
      ended = ended || field.empty();
      std::string text = field;
      if (!ended && field.find_first_of(" ,\n\"") != std::string::npos) {
        text = "\"";
        for (std::size_t i = 0; i < field.size(); ++i) {
          text += field[i];
          if (field[i] == '"' && i + 1 < field.size()) text += '"';
        }
        text += '"';
      }
      line += (line.empty() && &field == &fields.front() ? "" : ",") + text;
    }
    const std::size_t rest = (file.size() - at) % 4096;
    if (rest != 0) printed += std::to_string(rest) + "\n";
    printed += "delete file successfully\n";
    file.insert(at, line + "\r\n");
    ++cur;
    ++records;
    return true;
  }
  bool erase() {
    std::size_t at = 0;
    if (cur == records) return true;
    if (!locate(at)) return false;
    const std::size_t begin = at;
    skip(at);
    file.replace(begin, at - begin, at - begin, ' ');
    records -= at == begin ? 0 : 1;
    return true;
  }
  void neaten() {
    std::string out, line;
    bool quoted = false;
    for (const char byte : file) {
      if (byte == '"') quoted = !quoted;
      if (quoted || (byte != ' ' && byte != '\n')) {
        line += byte;
      } else if (byte == '\n') {
        out += std::exchange(line, "") + "\r\n";
      }
    }
    file = out;
    cols = records = cur = 0;
  }
};

/// Tests run in a directory of their own: the temporary file goes to the working directory.
class CCSVTest : public ::testing::Test {
 protected:
  void SetUp() override { std::filesystem::current_path(dir_.path()); }
  void TearDown() override { std::filesystem::current_path("/"); }
  Fields all(const std::string& name) {
    CCSV csv;
    Fields joined;
    EXPECT_TRUE(csv.Open(name.c_str()) && csv.SetCurPos(0));
    while (const auto fields = read(csv)) {
      std::string line;
      for (const std::string& field : *fields) line += "[" + field + "]";
      joined.push_back(line);
    }
    csv.Close();
    return joined;
  }
  TempDir dir_;
};

TEST_F(CCSVTest, ReadsRecords) {
  const struct {
    const char* sentence;
    const char* file;
    int cols;
    Fields records;
  } kRows[] = {
      {"an empty file has one column", "", 1, {}},
      {"unquoted blanks and CR vanish wherever they stand", " a b,\rc \r\n", 2, {"[ab][c]"}},
      {"a line feed in quotes is text", "\"x\ny\",\"a,\"\" b\"\n", 2, {"[x\ny][a,\" b]"}},
      {"quotes may open in the middle", "a\" \"b\"\"c,\n", 2, {"[a bc][]"}},
      {"an unfinished last line is no record", "a,b\nc,d", 2, {"[a][b]"}},
      {"a quote left open swallows the rest", "a,\"b\nc\n", 2, {}},
      {"a closing quote may be the last byte", "1\n\"2\"", 1, {"[1]"}},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.sentence);
    const std::string path = dir_.write("t.csv", row.file);
    CCSV csv;
    ASSERT_TRUE(csv.Open(path.c_str()));
    EXPECT_EQ(csv.GetColCnt(), row.cols);
    EXPECT_EQ(csv.GetCurPos(), static_cast<int>(row.records.size()));
    EXPECT_EQ(read(csv), std::nullopt) << "at the end";
    csv.Close();
    EXPECT_EQ(all(path), row.records);
  }
  CCSV csv;
  Fields fields;
  dir_.write("t.csv", "a,\"b\",c");
  ASSERT_TRUE(csv.Open("t.csv"));
  EXPECT_TRUE(csv.GetCols(fields)) << "position 0 is the start, even where it is the end as well";
  EXPECT_EQ(fields, (Fields{"a", "b"}));
  EXPECT_EQ(csv.GetColCnt(), 2);
  csv.Close();
}

TEST_F(CCSVTest, RefusesWithoutAFile) {
  CCSV csv;
  Record record({"a"});
  Fields fields;
  char** array = nullptr;
  int cols = 7;
  csv.Close();
  EXPECT_FALSE(csv.Open(nullptr) || csv.Create(nullptr) || csv.NeatenFile(nullptr));
  EXPECT_FALSE(csv.Open("missing") || csv.NeatenFile("missing") || csv.Create("no/such/dir"));
  EXPECT_FALSE(csv.MoveFpPos() || csv.GetCols(fields) || csv.DelRecord());
  EXPECT_FALSE(csv.WriteRecord(record.data(), 1));
  ASSERT_TRUE(csv.Create("t.csv"));
  EXPECT_FALSE(csv.WriteRecord(nullptr, 1) || csv.WriteRecord(record.data(), 0));
  EXPECT_FALSE(csv.ReadRecord(nullptr, &cols) || csv.ReadRecord(&array, nullptr));
  EXPECT_TRUE(csv.DelRecord());
  CCSV::FreeRecord(nullptr);
  csv.Close();
  EXPECT_EQ(dir_.read("t.csv"), "");
}

// Random files and calls, with other processes' changes between them, against the definition.
TEST_F(CCSVTest, DoesWhatTheDefinitionDoes) {
  std::mt19937 random(20240229);
  const auto pick = [&random](std::size_t n) { return std::size_t{random() % n}; };
  const auto text = [&](std::size_t most) {
    std::string out;
    for (std::size_t n = pick(most + 1); n > 0; --n) out += "ab \"\",\n\n\r"[pick(9)];
    return out;
  };
  for (int round = 0; round < 400; ++round) {
    Model model;
    // Some tails reach around the block size.
    model.file = text(40) + (round % 3 == 0 ? std::string(4040 + pick(60), 'x') + text(60) : "");
    dir_.write("t.csv", model.file);
    testing::internal::CaptureStdout();
    CCSV csv;
    ASSERT_TRUE(csv.Open("t.csv"));
    model.open();
    std::string story = "round " + std::to_string(round);
    for (int step = 0; step < 12; ++step) {
      const std::size_t action = pick(12);
      story += " " + std::to_string(action);
      if (action < 3) {
        const int pos = static_cast<int>(pick(static_cast<std::size_t>(model.records) + 1));
        csv.SetCurPos(model.cur = pos);
      } else if (action < 6) {
        Fields got, expected;
        EXPECT_EQ(csv.GetCols(got), model.get(expected)) << story;
        EXPECT_EQ(got, expected) << story;
      } else if (action < 8) {
        Fields expected;
        const bool there = model.cur != model.records && model.get(expected);
        const auto got = read(csv);
        EXPECT_EQ(got.has_value(), there) << story;
        EXPECT_EQ(got.value_or(Fields{}), there ? expected : Fields{}) << story;
        model.cur += there ? 1 : 0;
      } else if (action < 9) {
        const Fields fields{text(5), text(5), text(5)};
        EXPECT_EQ(write(csv, fields), model.write(fields)) << story;
      } else if (action < 10) {
        EXPECT_EQ(csv.DelRecord(), model.erase()) << story;
      } else if (action < 11) {
        const std::string other = pick(2) == 0 ? model.file + text(9) + "z" : text(30);
        // Size or times must tell.
        if (other.size() != model.file.size()) dir_.write("t.csv", model.file = other);
      } else if (pick(3) == 0) {
        EXPECT_TRUE(csv.NeatenFile("t.csv")) << story;
        model.neaten();
        ASSERT_TRUE(csv.Open("t.csv"));
        model.open();
      }
      ASSERT_EQ(dir_.read("t.csv"), model.file) << story;
      EXPECT_EQ(csv.GetCurPos(), model.cur) << story;
      EXPECT_EQ(csv.GetRecordCount(), model.records) << story;
      EXPECT_EQ(csv.GetColCnt(), model.cols) << story;
    }
    csv.Close();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), model.printed) << story;
    if (HasFailure()) break;
  }
}

TEST_F(CCSVTest, WritesQuotedAndWithCrLf) {
  CCSV csv;
  ASSERT_TRUE(csv.Create("t.csv"));
  EXPECT_TRUE(write(csv, {"x y", "5"}));
  EXPECT_TRUE(write(csv, {"say \"hi\"", "a\rb", "", "c d"}));
  EXPECT_EQ(dir_.read("t.csv"), "\"x y\",5\r\n\"say \"\"hi\"\",a\rb,,c d\r\n");
  EXPECT_EQ(csv.GetRecordCount(), 2);
  csv.Close();
}

TEST_F(CCSVTest, DeletedRecordsAreGoneOnceNeat) {
  dir_.write("t.csv", "1,a b\r\n2,\"c d\"\r\n3,e\r\n");
  ASSERT_EQ(::chmod("t.csv", 0640), 0);
  CCSV csv;
  ASSERT_TRUE(csv.Open("t.csv") && csv.SetCurPos(0) && csv.DelRecord());
  EXPECT_EQ(dir_.read("t.csv"), std::string(7, ' ') + "2,\"c d\"\r\n3,e\r\n");
  EXPECT_EQ(csv.GetRecordCount(), 2);
  ASSERT_TRUE(csv.NeatenFile("t.csv"));
  EXPECT_FALSE(csv.MoveFpPos()) << "closed";
  EXPECT_EQ(csv.GetRecordCount(), 0);
  EXPECT_EQ(dir_.read("t.csv"), "2,\"c d\"\r\r\n3,e\r\r\n");
  struct stat st {};
  ASSERT_EQ(::stat("t.csv", &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0640U);
  EXPECT_FALSE(std::filesystem::exists("~tempfile.csv"));
}

TEST_F(CCSVTest, MessagesAreGbk) {
  dir_.write("t.csv", "1\n2\n");
  std::filesystem::create_directory("~tempfile.csv");
  CCSV csv;
  testing::internal::CaptureStdout();
  ASSERT_TRUE(csv.Open("t.csv"));
  EXPECT_FALSE(csv.SetCurPos(3) || csv.SetCurPos(-2));
  EXPECT_EQ(csv.GetCurPos(), 2);
  EXPECT_FALSE(write(csv, {"x"}) || csv.NeatenFile("t.csv"));
  EXPECT_TRUE(csv.SetCurPos(0) && csv.SetCurPos(-1) && csv.GetCurPos() == 2) << "still open";
  csv.Close();
  EXPECT_EQ(dir_.read("t.csv"), "1\n2\n");
  dir_.write("gbk", testing::internal::GetCapturedStdout());
  ASSERT_EQ(std::system("iconv -f GBK -t UTF-8 gbk > utf8"), 0);
  const std::string refused = "设置的当前位置超过纪录个数 设置失效 当前位置为预保留:\n";
  EXPECT_EQ(dir_.read("utf8"), refused + refused + "临时文件创建失败!\n" + "临时文件创建不成功!\n");
}

TEST_F(CCSVTest, ALeftOverTemporaryFileIsNotMixedIn) {
  dir_.write("t.csv", "1\n2\n");
  dir_.write("precious", "kept");
  ASSERT_EQ(::symlink("precious", "~tempfile.csv"), 0);
  CCSV csv;
  ASSERT_TRUE(csv.Open("t.csv") && csv.SetCurPos(1) && write(csv, {"x"}));
  dir_.write("~tempfile.csv", "old");
  EXPECT_TRUE(write(csv, {"y"}));
  csv.Close();
  EXPECT_EQ(dir_.read("t.csv"), "1\nx\r\ny\r\n2\n");
  EXPECT_EQ(dir_.read("precious"), "kept");
}

TEST_F(CCSVTest, AChangeUnderneathIsNoticed) {
  dir_.write("t.csv", "a,1\nb,2\n");
  CCSV csv;
  ASSERT_TRUE(csv.Open("t.csv") && csv.SetCurPos(1));
  EXPECT_EQ(read(csv), (Fields{"b", "2"}));
  ASSERT_EQ(std::system("printf 'a,\\n3b,\\n' > t.csv; touch -d 2001-01-01 t.csv"), 0);
  ASSERT_TRUE(csv.SetCurPos(1));
  EXPECT_EQ(read(csv), (Fields{"3b", ""})) << "the same size";
  ASSERT_EQ(std::system("printf 'c,4\\n' >> t.csv"), 0);
  EXPECT_EQ(read(csv), std::nullopt) << "the counts stay";
  EXPECT_TRUE(write(csv, {"d"}));
  EXPECT_EQ(dir_.read("t.csv"), "a,\n3b,\nc,4\nd\r\n");
  ASSERT_EQ(::truncate("t.csv", 3), 0);
  ASSERT_TRUE(csv.SetCurPos(2));
  EXPECT_FALSE(csv.MoveFpPos() || csv.DelRecord() || write(csv, {"e"}));
  csv.Close();
}

TEST_F(CCSVTest, RecordsInOrderCostTheirOwnLength) {
  std::string file;
  for (int i = 0; i < 20000; ++i) file += std::to_string(i) + ",\"name, of it\"\r\n";
  dir_.write("t.csv", file);
  const auto bytes_read = [] {
    std::ifstream io("/proc/self/io");
    std::string key;
    std::size_t count = 0;
    io >> key >> count;
    return count;
  };
  const std::size_t before = bytes_read();
  EXPECT_EQ(all("t.csv").size(), 20000U);
  EXPECT_LT(bytes_read() - before, 3 * file.size()) << "one scan to count, one to read";
}

TEST_F(CCSVTest, EveryShortageOfMemoryIsFalse) {
  dir_.write("t.csv", "a,b\n");
  CCSV csv;
  ASSERT_TRUE(csv.Open("t.csv"));
  char** record = nullptr;
  int cols = 0;
  for (const std::size_t allowed : {0, 1, 2, 3}) {
    ASSERT_TRUE(csv.SetCurPos(0));
    const AllocFault fault(allowed);
    EXPECT_FALSE(csv.ReadRecord(&record, &cols)) << allowed;
    EXPECT_EQ(record, nullptr);
    EXPECT_EQ(csv.GetCurPos(), 0);
    EXPECT_TRUE(fault.delivered());
  }
  Record fields({"x", "y z"});
  for (const std::size_t allowed : {0, 1}) {
    const AllocFault fault(allowed);
    EXPECT_FALSE(csv.WriteRecord(fields.data(), fields.count())) << "the block, a quoted field";
    EXPECT_TRUE(fault.delivered());
  }
  {
    const AllocFault fault(0);
    EXPECT_FALSE(csv.DelRecord());
  }
  EXPECT_EQ(dir_.read("t.csv"), "a,b\n");
  csv.Close();
}

TEST_F(CCSVTest, ExchangesFilesWithPython) {
  const std::string program =
      "import csv, sys\n"
      "csv.field_size_limit(2000000)\n"
      "rows = [['a b', 'x,\\ny', 'q\"q', '\"', chr(0x4e2d)], ['m' * 1000000, ' ', '\\r\\n', '1', "
      "'']]\n"
      "if sys.argv[1] == 'write':\n"
      "    csv.writer(open('py.csv', 'w', newline=''), quoting=csv.QUOTE_ALL).writerows(rows)\n"
      "else:\n"
      "    rows[0][3] = 'end'\n"
      "    sys.exit(list(csv.reader(open('our.csv', newline=''))) != rows)\n";
  dir_.write("p.py", program);
  ASSERT_EQ(std::system("python3 p.py write"), 0);
  CCSV in, out;
  ASSERT_TRUE(in.Open("py.csv") && in.SetCurPos(0) && out.Create("our.csv"));
  for (int i = 0; i < 2; ++i) {
    auto fields = read(in).value_or(Fields{});
    ASSERT_EQ(fields.size(), 5U);
    // The one thing that does not come back: a field that ends in a quote.
    if (i == 0) {
      EXPECT_EQ(std::exchange(fields[3], "end"), "\"");
    }
    EXPECT_TRUE(write(out, fields));
  }
  in.Close();
  out.Close();
  EXPECT_EQ(std::system("python3 p.py check"), 0);
}

}  // namespace
