#include "utility/CCSV.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <optional>
#include <thread>

#include "support/sandbox.h"

namespace fs = std::filesystem;
using utility::CCSV;
using Fields = std::vector<std::string>;

namespace {

bool write(CCSV& csv, const Fields& fields) {
  std::vector<char*> record;
  for (const std::string& field : fields)
    record.push_back(::strcpy(new char[field.size() + 1], field.c_str()));
  record.push_back(new char[1]());
  const auto count = static_cast<int>(fields.size());
  const bool done = csv.WriteRecord(const_cast<const char**>(record.data()), count);
  for (const char* string : record) delete[] string;
  return done;
}

std::optional<Fields> read(CCSV& csv) {
  char** record = nullptr;
  int cols = 0;
  if (!csv.ReadRecord(&record, &cols)) return std::nullopt;
  Fields fields(record, record + cols);
  // What lies after an empty field is out of FreeRecord's reach.
  int empty = 0;
  while (*record[empty] != '\0') ++empty;
  for (int i = empty + 1; i <= cols; ++i) delete[] record[i];
  CCSV::FreeRecord(record);
  return fields;
}

struct CCSVTest : ::testing::Test {
  ~CCSVTest() override { csv_.Close(); }
  std::vector<Fields> all() {
    std::vector<Fields> records;
    EXPECT_TRUE(csv_.Open("t.csv") && csv_.SetCurPos(0));
    while (auto fields = read(csv_)) records.push_back(std::move(*fields));
    return records;
  }
  CCSV csv_;
};

TEST_F(CCSVTest, ReadsRecords) {
  sandbox::write_file("t.csv",
                      " a b,\rc \r\n\"x\ny\",\"a,\"\" b\",a\" \"b\"\"\"c\",\r\n1,2,3\n5,\"6\"");
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
  EXPECT_EQ(sandbox::read_file("t.csv"), "");
}

TEST_F(CCSVTest, WritesDeletesAndNeatens) {
  ASSERT_TRUE(csv_.Create("t.csv") && write(csv_, {"x y", "5"}));
  ASSERT_TRUE(write(csv_, {"say \"hi\"", "a\rb", "", "c d"}));
  EXPECT_EQ(sandbox::read_file("t.csv"), "\"x y\",5\r\n\"say \"\"hi\"\",a\rb,,c d\r\n");
  sandbox::write_file("t.csv", "1,a b\r\n2,\"c d\"\r\n3,e\r\n");
  ASSERT_EQ(::chmod("t.csv", 0640), 0);
  ASSERT_TRUE(csv_.Open("t.csv") && csv_.SetCurPos(0) && csv_.DelRecord());
  EXPECT_EQ(sandbox::read_file("t.csv"), std::string(7, ' ') + "2,\"c d\"\r\n3,e\r\n");
  EXPECT_EQ(csv_.GetRecordCount(), 2);
  ASSERT_TRUE(csv_.NeatenFile("t.csv"));
  EXPECT_FALSE(csv_.MoveFpPos() || csv_.GetRecordCount() != 0) << "closed";
  EXPECT_EQ(sandbox::read_file("t.csv"), "2,\"c d\"\r\r\n3,e\r\r\n");
  sandbox::write_file("t.csv", "\"a \"\" b\" ,c d\n\n, \n\"x \ny\"\n left, \"over\n", 0640);
  ASSERT_TRUE(csv_.NeatenFile("t.csv"));
  EXPECT_EQ(sandbox::read_file("t.csv"), "\"a \"\" b\",cd\r\n\r\n,\r\n\"x \ny\"\r\n");
  EXPECT_EQ(fs::status("t.csv").permissions(), fs::perms(0640));
  sandbox::write_file("other.csv", "1\n");
  fs::permissions("other.csv", fs::perms(0600));
  ASSERT_TRUE(csv_.Open("t.csv") && csv_.NeatenFile("other.csv"));
  EXPECT_EQ(fs::status("other.csv").permissions(), fs::perms(0600)) << "of the file replaced";
}

TEST_F(CCSVTest, TheTemporaryFileIsItsOwn) {
  testing::internal::CaptureStdout();
  sandbox::write_file("t.csv", "1\n2\n");
  sandbox::write_file("precious", "kept");
  ASSERT_EQ(::symlink("precious", "~tempfile.csv"), 0);
  EXPECT_TRUE(csv_.Open("t.csv") && csv_.SetCurPos(1) && write(csv_, {"x"}));
  sandbox::write_file("~tempfile.csv", "old");
  EXPECT_TRUE(write(csv_, {"y"}));
  fs::create_directory("~tempfile.csv");
  EXPECT_FALSE(csv_.SetCurPos(5) || csv_.SetCurPos(-2));
  EXPECT_FALSE(write(csv_, {"z"}) || csv_.NeatenFile("t.csv"));
  EXPECT_EQ(csv_.GetCurPos(), 3) << "still open, where it was";
  EXPECT_TRUE(csv_.SetCurPos(-1) && csv_.MoveFpPos() && csv_.GetCurPos() == 4);
  EXPECT_EQ(sandbox::read_file("t.csv") + sandbox::read_file("precious"), "1\nx\r\ny\r\n2\nkept");
  sandbox::write_file("gbk", testing::internal::GetCapturedStdout());
  EXPECT_EQ(sandbox::output_of("iconv -f GBK -t UTF-8 gbk"), R"(2
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
  sandbox::write_file("t.csv", "a,1\nb,2\n");
  ASSERT_TRUE(csv_.Open("t.csv") && csv_.SetCurPos(1));
  EXPECT_EQ(read(csv_), (Fields{"b", "2"}));
  ASSERT_EQ(std::system("printf 'a,\\n33b,\\n' > t.csv; touch -d 2001-01-01 t.csv"), 0);
  ASSERT_TRUE(csv_.SetCurPos(1));
  EXPECT_EQ(read(csv_), (Fields{"33b", ""}));

  // Reading in order looks once per tick of the clock, which is 4 ms at most.
  ASSERT_TRUE(csv_.SetCurPos(0));
  EXPECT_EQ(read(csv_), (Fields{"a", ""}));
  sandbox::write_file("t.csv", "a,\n4444,5\nc,6\n");
  std::this_thread::sleep_for(std::chrono::milliseconds(10));
  ASSERT_TRUE(csv_.SetCurPos(1));
  EXPECT_EQ(read(csv_), (Fields{"4444", "5"}));
}

TEST_F(CCSVTest, ARecordThatWasCutOffIsGone) {
  sandbox::write_file("t.csv", "1\n2\n3\n");
  ASSERT_TRUE(csv_.Open("t.csv"));
  sandbox::write_file("t.csv", "1\n");
  ASSERT_TRUE(csv_.SetCurPos(2));
  EXPECT_FALSE(csv_.MoveFpPos() || csv_.DelRecord() || write(csv_, {"x"}));
  EXPECT_EQ(read(csv_), std::nullopt);
  EXPECT_EQ(sandbox::read_file("t.csv"), "1\n");
}

TEST_F(CCSVTest, ATailOfOneByteMoreThanABlockMovesWhole) {
  const std::string tail = std::string(4096, 'x') + "\n";
  sandbox::write_file("t.csv", "1\n" + tail);
  EXPECT_TRUE(csv_.Open("t.csv") && csv_.SetCurPos(1) && write(csv_, {"new"}));
  EXPECT_EQ(sandbox::read_file("t.csv"), "1\nnew\r\n" + tail);
}

TEST_F(CCSVTest, ExchangesFilesWithPython) {
  sandbox::write_file("p.py", R"(import csv, sys
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
