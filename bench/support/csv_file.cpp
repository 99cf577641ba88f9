#include "support/csv_file.h"

#include <fstream>

#include "support/harness.h"

namespace bench {

std::string csv_file(int records, int width) {
  const std::string path =
      scratch_file(std::to_string(records) + "x" + std::to_string(width) + ".csv");
  std::ofstream out(path);
  for (int i = 0; i < records; ++i) {
    for (int part = 0; part < width; ++part) {
      if (part > 0) out << ',';
      out << i << ",host-" << i % 977 << ".example.net,10." << i % 256 << ".0." << i % 253
          << ",\"rack " << i % 40 << ", row \"\"" << i % 7 << "\"\"\",active";
    }
    out << "\r\n";
  }
  return path;
}

}  // namespace bench
