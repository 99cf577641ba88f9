#include "utility/CCSV.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <thread>

#include "support/csv_record.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;
using csv_record::write;
using utility::CCSV;
using Fields = std::vector<std::string>;

namespace {

std::optional<Fields> read(CCSV& csv) {
  char** record = nullptr;
  int cols = 0;
  if (!csv.ReadRecord(&record, &cols)) return std::nullopt;
  Fields fields(record, record + cols);
  csv_record::free_all(record, cols);
  return fields;
}

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
  dir_.write("other.csv", "1\n");
  fs::permissions("other.csv", fs::perms(0600));
  ASSERT_TRUE(csv_.Open("t.csv") && csv_.NeatenFile("other.csv"));
  EXPECT_EQ(fs::status("other.csv").permissions(), fs::perms(0600)) << "of the file replaced";
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

  // Reading in order looks once per tick of the clock, which is 4 ms at most.
  ASSERT_TRUE(csv_.SetCurPos(0));
  EXPECT_EQ(read(csv_), (Fields{"a", ""}));
  dir_.write("t.csv", "a,\n4444,5\nc,6\n");
  std::this_thread::sleep_for(std::chrono::milliseconds(10));
  ASSERT_TRUE(csv_.SetCurPos(1));
  EXPECT_EQ(read(csv_), (Fields{"4444", "5"}));
}

TEST_F(CCSVTest, ARecordThatWasCutOffIsGone) {
  dir_.write("t.csv", "1\n2\n3\n");
  ASSERT_TRUE(csv_.Open("t.csv"));
  dir_.write("t.csv", "1\n");
  ASSERT_TRUE(csv_.SetCurPos(2));
  EXPECT_FALSE(csv_.MoveFpPos() || csv_.DelRecord() || write(csv_, {"x"}));
  EXPECT_EQ(read(csv_), std::nullopt);
  EXPECT_EQ(dir_.read("t.csv"), "1\n");
}

TEST_F(CCSVTest, ATailOfOneByteMoreThanABlockMovesWhole) {
  const std::string tail = std::string(4096, 'x') + "\n";
  dir_.write("t.csv", "1\n" + tail);
  EXPECT_TRUE(csv_.Open("t.csv") && csv_.SetCurPos(1) && write(csv_, {"new"}));
  EXPECT_EQ(dir_.read("t.csv"), "1\nnew\r\n" + tail);
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
