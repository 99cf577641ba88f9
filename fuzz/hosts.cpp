// Files of the kernel's, with anything in them: the operations that read one file and those that
// read many agree, and no line is too odd.
#include <signal.h>
#include <sys/prctl.h>

#include <vector>

#include "fuzz.h"
#include "utility/CCpuInfo.h"
#include "utility/CDiskInfo.h"
#include "utility/CMemInfo.h"
#include "utility/CNetInfo.h"
#include "utility/CUnixDisk.h"
#include "utility/CUnixNetlink.h"
#include "utility/CUnixProc.h"
#include "utility/CUnixProcNet.h"

using namespace utility;

namespace {

// One socket table, read by the three classes that read such.
void check_tables(const std::string& path, bool v4) {
  std::vector<CNetInfo::NetLinkInfo> shown;
  std::vector<CUnixNetlink::NetLinkInfo> plain;
  std::vector<CUnixProcNet::NetInfo> held;
  CNetInfo::resolve_netlink_file(
      {path.c_str(), "p", v4 ? CNetInfo::resolve_v4_data : CNetInfo::resolve_v6_data}, shown);
  CUnixNetlink::resolve_netlink_file(
      {path.c_str(), "p", v4 ? CUnixNetlink::resolve_v4_data : CUnixNetlink::resolve_v6_data},
      plain);
  CUnixProcNet::resolve_net_file(
      {path, "p", v4 ? CUnixProcNet::resolve_v4_data : CUnixProcNet::resolve_v6_data}, held);
  check(shown.size() == plain.size() && plain.size() == held.size(), "three classes see one table");
  for (std::size_t i = 0; i < plain.size(); ++i) {
    check(shown[i].local_addr == plain[i].local_addr && plain[i].remote_addr == held[i].remote_addr,
          "addresses are the same");
    check(shown[i].local_port == CNetInfo::port2str(plain[i].local_port) &&
              plain[i].remote_port == held[i].remote_port && plain[i].inode == held[i].inode,
          "numbers are the same");
  }
}

// A process whose files may say anything; it does nothing and ends with the fuzzer.
pid_t idle_process() {
  const pid_t child = ::fork();
  if (child != 0) return child;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  for (;;) ::pause();
}

// The files of a process, read one by one and as a record.
void check_process(int pid, const std::string& dir) {
  CUnixProc::UnixProcData whole;
  CUnixProc::UnixProcData parts;
  check(CUnixProc::get_proc_data(pid, whole) == 0, "a process is read");
  CUnixProc::get_proc_name(dir + "status", parts.name);
  CUnixProc::get_uid(dir + "status", parts.uid);
  CUnixProc::get_gid(dir + "status", parts.gid);
  CUnixProc::get_info(dir + "stat", parts.ppid, parts.start_time);
  CUnixProc::get_cmd(dir + "cmdline", parts.cmd);
  CUnixProc::get_proc_environ(dir + "environ", parts.environ);
  check(whole.uid == parts.uid && whole.gid == parts.gid && whole.ppid == parts.ppid &&
            whole.start_time == parts.start_time && whole.environ == parts.environ,
        "a record is what its files say");
  check(parts.cmd.empty() || whole.cmd == parts.cmd, "so is its command line");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const pid_t pid = idle_process();
  static const std::string dir = "/proc/" + std::to_string(pid) + "/";
  static const ScratchFile status("status", (dir + "status").c_str());
  static const ScratchFile stat("stat", (dir + "stat").c_str());
  static const ScratchFile cmdline("cmdline", (dir + "cmdline").c_str());
  static const ScratchFile environ("environ", (dir + "environ").c_str());
  static const ScratchFile maps("maps", (dir + "maps").c_str());
  static const ScratchFile meminfo("meminfo", "/proc/meminfo");
  static const ScratchFile cpus("cpus", "/proc/stat");
  static const ScratchFile partitions("partitions", "/proc/partitions");
  static const ScratchFile table("table");

  const std::string text(reinterpret_cast<const char*>(data), size);
  for (const ScratchFile* file :
       {&status, &stat, &cmdline, &environ, &maps, &meminfo, &cpus, &partitions, &table}) {
    file->write(text);
  }
  check_tables(table.path, true);
  check_tables(table.path, false);
  check_process(pid, dir);
  std::vector<std::string> names;
  CUnixProc::one_proc_infos(std::to_string(pid).c_str(), names);
  for (const std::string& name : names) check(!name.empty(), "a mapped file has a name");
  CMemInfo::MemStat memory;
  double usage = 0;
  const int known = CMemInfo::get_mem_stat(memory);
  check(CMemInfo::get_mem_usage(usage) == known, "memory is known or not");
  CMemInfo::get_process_mem_usage(pid, usage);
  CCpuInfo::CpuStat first;
  CCpuInfo::CpuStat second;
  CCpuInfo::get_cpu_stat(first);
  CCpuInfo::get_cpu_stat(second);
  check(first.count == second.count, "processors are counted alike");
  CCpuInfo::get_cpu_usage(first, second, usage);
  CUnixDisk::get_disk_info_from_proc(names);
  CUnixDisk::get_disk_partition_total("sda", names);
  return 0;
}
