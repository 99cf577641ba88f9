#include "utility/CCSV.h"

#include <gtest/gtest.h>

#include <cstring>

#include "support/cases.h"
#include "support/sandbox.h"

using utility::CCSV;

namespace {

bool write(CCSV& csv, const Words& fields) {
  std::vector<char*> record;
  for (const std::string& field : fields) {
    record.push_back(new char[field.size() + 1]());
    field.copy(record.back(), field.size());
  }
  record.push_back(new char[1]());
  const auto count = static_cast<int>(fields.size());
  const bool done = csv.WriteRecord(const_cast<const char**>(record.data()), count);
  for (const char* string : record) delete[] string;
  return done;
}

bool read(CCSV& csv, Words& fields) {
  char** record = nullptr;
  int cols = 0;
  if (!csv.ReadRecord(&record, &cols)) return false;
  fields.assign(record, record + cols);
  // What lies after an empty field is out of FreeRecord's reach.
  int empty = 0;
  while (*record[empty] != '\0') ++empty;
  for (int i = empty + 1; i <= cols; ++i) delete[] record[i];
  CCSV::FreeRecord(record);
  return true;
}

bool copy(const char* from, const char* to) {
  CCSV in, out;
  Words fields;
  bool done = in.Open(from) && in.SetCurPos(0) && out.Create(to);
  while (done && in.GetCurPos() < in.GetRecordCount())
    done = read(in, fields) && write(out, fields);
  in.Close();
  out.Close();
  return done;
}

using Csv = std::shared_ptr<CCSV>;

/// An operation of `csv`.
template <class Result, class... Argument>
auto of(const Csv& csv, Result (CCSV::*operation)(Argument...)) {
  return call<std::function<Result(Argument...)>>(
      [csv, operation](Argument... argument) { return (csv.get()->*operation)(argument...); });
}

Calls fresh() {
  const Csv csv(new CCSV, [](CCSV* used) {
    used->Close();
    delete used;
  });
  const auto read_next = [csv] {
    Words fields;
    return read(*csv, fields) ? joined(fields) : "none";
  };
  const auto captured = [](const char* file) {
    sandbox::write_file(file, testing::internal::GetCapturedStdout());
  };
  const auto null = [csv] {
    return csv->WriteRecord(nullptr, 1) || csv->ReadRecord(nullptr, nullptr);
  };
  return {{"Create", of(csv, &CCSV::Create)},
          {"Open", of(csv, &CCSV::Open)},
          {"GetRecordCount", call([csv] { return csv->GetRecordCount(); })},
          {"GetCurPos", call([csv] { return csv->GetCurPos(); })},
          {"GetColCnt", call([csv] { return csv->GetColCnt(); })},
          {"SetCurPos", of(csv, &CCSV::SetCurPos)},
          {"MoveFpPos", of(csv, &CCSV::MoveFpPos)},
          {"GetCols", of(csv, &CCSV::GetCols)},
          {"DelRecord", of(csv, &CCSV::DelRecord)},
          {"NeatenFile", of(csv, &CCSV::NeatenFile)},
          {"ReadRecord", call(read_next)},
          {"WriteRecord", call([csv](const Words& fields) { return write(*csv, fields); })},
          {"take_null", call(null)},
          {"copy", call(copy)},
          {"capture", call([] { testing::internal::CaptureStdout(); })},
          {"captured", call(captured)}};
}

}  // namespace

TEST(CCSV, Records) { run_cases(FIXTURES "/records.txt", fresh); }
