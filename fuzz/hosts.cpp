// Files of the kernel's, with anything in them: the operations that read one file and those that
// read many agree, and no line is too odd.
#include "fuzz.h"

using namespace utility;

namespace {

// A table, as the two classes that show ports differently see it.
void check_table(const char* path, bool v4) {
  std::vector<CNetInfo::NetLinkInfo> shown;
  std::vector<CUnixProcNet::NetInfo> held;
  const auto show = v4 ? CNetInfo::resolve_v4_data : CNetInfo::resolve_v6_data;
  const auto hold = v4 ? CUnixProcNet::resolve_v4_data : CUnixProcNet::resolve_v6_data;
  CNetInfo::resolve_netlink_file({path, "p", show}, shown);
  CUnixProcNet::resolve_net_file({path, "p", hold}, held);
  check(shown.size() == held.size(), "two classes see one table");
  for (std::size_t i = 0; i < held.size(); ++i) {
    check(shown[i].local_addr == held[i].local_addr &&
              shown[i].local_port == CNetInfo::port2str(held[i].local_port),
          "its lines are the same to them");
  }
}

// The files of a process, read one by one and as a record.
void check_process(const std::string& dir) {
  CUnixProc::UnixProcData whole, parts;
  check(CUnixProc::get_proc_data(1, whole) == 0, "a process is read");
  CUnixProc::get_uid(dir + "status", parts.uid);
  CUnixProc::get_gid(dir + "status", parts.gid);
  CUnixProc::get_info(dir + "stat", parts.ppid, parts.start_time);
  CUnixProc::get_cmd(dir + "cmdline", parts.cmd);
  CUnixProc::get_proc_environ(dir + "environ", parts.environ);
  check(whole.uid == parts.uid && whole.gid == parts.gid && whole.ppid == parts.ppid &&
            whole.start_time == parts.start_time && whole.environ == parts.environ &&
            (parts.cmd.empty() || whole.cmd == parts.cmd),
        "a record is what its files say");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string dir = "/proc/1/";  // whatever that process is
  static const std::string file = [] {
    for (const char* name : {"status", "stat", "cmdline", "environ", "maps"}) {
      scratch_file("file", dir + name);
    }
    for (const char* path : {"/proc/meminfo", "/proc/stat"}) scratch_file("file", path);
    return scratch_file("file", "/proc/partitions");
  }();
  write_file(file, std::string(reinterpret_cast<const char*>(data), size));
  check_table(file.c_str(), true);
  check_table(file.c_str(), false);
  check_process(dir);
  std::vector<std::string> names;
  CUnixProc::one_proc_infos("1", names);
  CUnixDisk::get_disk_info_from_proc(names);
  for (const std::string& name : names) check(!name.empty(), "files and disks have names");
  CMemInfo::MemStat memory;
  double usage = 0;
  check(CMemInfo::get_mem_stat(memory) == CMemInfo::get_mem_usage(usage), "memory is known or not");
  CMemInfo::get_process_mem_usage(1, usage);
  CCpuInfo::CpuStat first, second;
  CCpuInfo::get_cpu_stat(first);
  CCpuInfo::get_cpu_stat(second);
  check(first.count == second.count, "processors are counted alike");
  CCpuInfo::get_cpu_usage(first, second, usage);
  return 0;
}
