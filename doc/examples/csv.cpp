// Reads a comma-separated file record by record.

#include <utility/CCSV.h>

#include <cstdio>
#include <fstream>

int main() {
  std::ofstream("hosts.csv") << "name,comment\r\nweb,\"first, and fastest\"\r\n";

  utility::CCSV csv;
  if (!csv.Open("hosts.csv") || !csv.SetCurPos(0)) return 1;
  std::printf("%d records\n", csv.GetRecordCount());
  char** record = nullptr;
  int columns = 0;
  while (csv.ReadRecord(&record, &columns)) {
    for (int i = 0; i < columns; ++i) std::printf("[%s]", record[i]);
    std::puts("");
    utility::CCSV::FreeRecord(record);
  }
  csv.Close();  // the destructor does not
  return 0;
}
