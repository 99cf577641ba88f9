// Ten thousand processes, fifty thousand sockets, a table of a gigabyte, directories of a hundred
// thousand entries: nothing may be lost or come twice.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "log.h"
#include "support/csv_file.h"
#include "support/harness.h"
#include "support/load.h"
#include "utility/CCSV.h"
#include "utility/CUnixFile.h"
#include "utility/CUnixProc.h"
#include "utility/CUnixProcNet.h"
#include "utility/CUnixTools.h"
#include "watch.h"

namespace soak {
namespace {

namespace fs = std::filesystem;
using bench::require;
using utility::CCSV;
using utility::CUnixFile;
using utility::CUnixProc;
using utility::CUnixProcNet;
using utility::CUnixTools;

void walk_processes() {
  const bench::Load sleepers({bench::smoke() ? 1000 : 10000, 0, 0, 2048});
  std::multiset<std::string> listed;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const std::string name = entry.path().filename();
    if (CUnixProc::is_number(name.c_str())) listed.insert(name);
  }
  std::vector<int> found;
  found.reserve(listed.size() + 1);
  const auto note = [](const CUnixProc::UnixProcData& data, void* to) {
    static_cast<std::vector<int>*>(to)->push_back(data.pid);
    return 0;
  };
  // One record at a time; the table and up to four files of a process are open.
  watch("process walk", {1024, 5}, [&] {
    require(CUnixProc::get_all_proc_data(note, &found) == 0, "the walk failed");
    return std::to_string(found.size()) + " processes";
  });
  std::multiset<std::string> walked;
  for (const int pid : found) walked.insert(std::to_string(pid));
  require(walked == listed, "processes were lost or came twice");
}

void relate_sockets() {
  constexpr int kEach = 500;
  const std::size_t count = bench::smoke() ? 5000 : 50000;
  const bench::Load holders({static_cast<int>(count) / kEach, 0, kEach, 0});
  std::vector<CUnixProcNet::ProcNetInfo> found;
  // The tables' records and the caller's, in lists that grow by doubling.
  constexpr std::size_t kRecord = sizeof(CUnixProcNet::NetInfo) + sizeof found[0];
  watch("sockets of processes", {1024 + count * 3 * kRecord / 1024, 3}, [&] {
    require(CUnixProcNet::get_proc_net_info(found) == 0, "no sockets");
    return std::to_string(found.size()) + " sockets";
  });
  std::set<std::tuple<int, std::string, unsigned, unsigned>> known;
  for (const auto& one : found)
    known.emplace(one.pid, one.protocol, one.local_port, one.remote_port);
  require(known.size() == count && found.size() == count, "sockets were lost or came twice");
}

void copy_csv() {
  const int records = bench::smoke() ? 500000 : 16000000;
  const std::string path = bench::csv_file(records, 1);
  const std::uintmax_t size = fs::file_size(path);
  fs::current_path(fs::path(path).parent_path());  // where the temporary file goes
  const char* in_front[] = {new char[]{"in front"}};
  // 16 bytes for each 4 KiB of the file, in a list that grows by doubling.
  watch("CSV tail copy", {1024 + size / 4096 * 3 * 16 / 1024, 2}, [&] {
    CCSV csv;
    require(csv.Open(path.c_str()) && csv.GetRecordCount() == records, "records were not counted");
    require(csv.SetCurPos(0) && csv.WriteRecord(in_front, 1), "no record could be inserted");
    std::vector<std::string> fields;
    csv.SetCurPos(0);
    require(csv.GetCols(fields) && fields == std::vector<std::string>{"in front"}, "not in front");
    for (int i = 0; i < records; ++i) {
      fields.clear();
      require(csv.SetCurPos(i + 1) && csv.GetCols(fields) && fields.size() == 5 &&
                  fields[0] == std::to_string(i) && fields[4] == "active",
              "a record was lost or damaged");
    }
    csv.Close();
    return std::to_string(size >> 20) + " MiB moved, " + std::to_string(records) + " records";
  });
  delete[] in_front[0];
  require(fs::file_size(path) == size + std::size("\"in front\"\r\n") - 1, "the size is wrong");
}

// Every thousandth entry is a directory with a file of its own.
void make_tree(const std::string& path, int entries) {
  fs::create_directory(path);
  for (int i = 0; i < entries; ++i) {
    std::string name = path + "/" + std::to_string(i);
    if (i % 1000 == 0) {
      fs::create_directory(name);
      name += "/below";
    }
    std::ofstream(name) << i;
  }
}

void handle_directories() {
  const int entries = bench::smoke() ? 10000 : 100000;
  const std::string source = bench::scratch_file("source");
  const std::string target = bench::scratch_file("target");
  make_tree(source, entries);
  std::vector<int> seen(static_cast<std::size_t>(entries));
  const auto note = [](const CUnixFile::UnixFileData& item, void* to) {
    ++static_cast<std::vector<int>*>(to)->at(std::stoul(item.name));
    return 0;
  };
  // A directory is open on each level, and two files while one is copied.
  const auto handle = [&](const std::string& name, int descriptors, auto operation) {
    watch(name, {1024, descriptors}, [&] {
      require(operation() == 0, name + " failed");
      return std::to_string(entries) + " entries";
    });
  };
  handle("list", 2, [&] { return CUnixFile::get_sub_item(source, 'a', note, &seen); });
  require(std::count(seen.begin(), seen.end(), 1) == entries, "entries were lost or came twice");
  handle("copy", 4, [&] { return CUnixTools::copy_directory(source.c_str(), target.c_str()); });
  bench::run_program({"diff", "-r", source, target});
  handle("remove as an item", 2, [&] { return CUnixFile::delete_item(target, true); });
  handle("remove as a directory", 2, [&] { return CUnixTools::rm_dir(source.c_str()); });
  require(!fs::exists(source) && !fs::exists(target), "something was left");
}

}  // namespace
}  // namespace soak

void set_up() {
  bench::register_run("processes", soak::walk_processes);
  bench::register_run("sockets", soak::relate_sockets);
  bench::register_run("csv", soak::copy_csv);
  bench::register_run("log", soak::write_logs);
  bench::register_run("directories", soak::handle_directories);
}
