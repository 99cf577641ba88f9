#include <gtest/gtest.h>
#include <sys/socket.h>

#include <filesystem>

#include "faults/faults.h"
#include "support/sandbox.h"
#include "utility/utility.h"

namespace fs = std::filesystem;
using namespace utility;
using ProcNet = utility::CUnixProcNet;
using Proc = utility::CUnixProc;
using Netlink = utility::CUnixNetlink;
using Net = utility::CNetInfo;
using File = utility::CUnixFile;
using Disk = utility::CUnixDisk;
using faults::note;
using faults::Outputs;

namespace {

// Outcomes that are shared.
constexpr char kByKey[] = "nothrow:7 malloc:12,= open:12 read:9";
constexpr char kRequest[] = "socket:2 request:4";
constexpr char kPartitions[] = "malloc:10,= open:10 read:0,=";

constexpr char kStatus[] = "/proc/1/status";

int note_text(const std::string& text, void* outputs) {
  static_cast<Outputs*>(outputs)->list.push_back(text);
  return 0;
}

int process(Outputs& o) {
  Proc::UnixProcData data;
  data.inodes = o.inodes;
  const int code = Proc::get_proc_data(1, data);
  o.text += data.name + data.cmd + data.path + data.environ;
  o.inodes = data.inodes;
  return code;
}

// Touches a file where only root may.
int start_daemon(const char* user) {
  static char* no_environment[] = {nullptr};
  return Proc::create_proc("/bin/touch", "made", ".", user, no_environment);
}

int mappings(Outputs& o) {
  std::vector<Proc::UnixProcMapInfo> infos;
  const int code = Proc::get_all_proc_map_info(infos);
  for (const auto& info : infos) o.number += static_cast<int>(info.maps.size());
  return code;
}

template <typename Info>
int sockets(Outputs& o, int (*get)(std::vector<Info>&)) {
  std::vector<Info> infos;
  const int code = get(infos);
  for (const Info& info : infos) o.list.push_back(info.local_addr + info.state);
  return code;
}
int sockets_below_root(std::vector<ProcNet::NetInfo>& infos) {
  return ProcNet::get_net_info("/", infos);
}

int interface(Outputs& o) {
  Net::net_interface info;
  const int code = Net::get_net_info("lo", info);
  o.text += info.addr + info.macaddr + info.netmask + info.broadaddr;
  o.number += info.flags + info.mtu;
  return code;
}

int counters(Outputs& o) {
  Net::NetStat stat{77, 0, 0, 0, 0, 0};
  const int code = Net::get_net_stat("lo", stat);
  o.time = stat.rx_packets;
  return code;
}

int disks(Outputs& o) {
  std::vector<CDiskInfo::DiskInfo> infos;
  const int code = CDiskInfo::get_disk_info(infos);
  for (const auto& info : infos) o.list.push_back(info.mount);
  return code;
}

int processors(Outputs& o) {
  CCpuInfo::CpuStat stat;
  const int code = CCpuInfo::get_cpu_stat(stat);
  o.list.resize(o.list.size() + stat.ents.size());
  return code;
}

// These change from run to run.
int memory(Outputs& o) {
  const int code = CMemInfo::get_mem_usage(o.share);
  if (code == 0) o.share = 0;
  return code;
}
int memory_of_process(Outputs& o) {
  const int code = CMemInfo::get_process_mem_usage(1, o.share);
  if (code == 0) o.share = 0;
  return code;
}

}  // namespace

TEST(Faults, Processes) {
  const std::vector<faults::Row> rows = {
      {CALL(process(o)),
       "nothrow:7,7~ malloc:12~,= open:0~,12,12~,= read:0~,9,9~,= readlink:0~ read-short:0~"},
      {CALL(Proc::get_all_proc_data(note<Proc::UnixProcData>, &o)),
       "nothrow:7 malloc:12,= open:12,12~,5,= read:9,9~,= list:0,="},
      {CALL(Proc::get_info("/proc/1/stat", o.number, o.time)),
       "nothrow:7~ malloc:12,12~,= open:12,12~ read:0~,9~"},
      {CALL(Proc::get_boottime(o.time)), kByKey},
      {CALL(Proc::get_uid(kStatus, o.id)), kByKey},
      {CALL(Proc::get_gid(kStatus, o.id)), kByKey},
      {CALL(Proc::get_proc_name(kStatus, o.text)), kByKey},
      {CALL(Proc::get_cmd("/proc/1/cmdline", o.text)), "nothrow:7 open:12 read:9 read-short:0~"},
      {CALL(Proc::get_proc_environ("/proc/1/environ", o.text)), "nothrow:7 open:12 read:9"},
      {CALL(Proc::get_proc_name_ext("/proc/1/cmdline", "/proc/1/exe", o.text)),
       "nothrow:7 malloc:12,= open:12 readlink:10"},
      {CALL(Proc::get_path_name(1, o.text)), "access:0 readlink:9"},
      {CALL(Proc::get_all_path_name(o.list)), "open:5 list:0,= readlink:9,9~"},
      {CALL(Proc::get_socket_inodes("/proc/self/fd", o.inodes)), "open:5"},
      {CALL(Proc::one_proc_infos("1", o.list)), "nothrow:12 malloc:12,= open:12 read:0,0~,="},
      {CALL(mappings(o)), "nothrow:0~ malloc:0~,= open:0~,5 read:0~,= list:0,="},
      {CALL(start_daemon("")), "stat:1 fork:3 wait:3~ limit:2", {"./made"}},
      {CALL(start_daemon("nobody")), "nothrow:1 stat:1,= fork:3 wait:3 limit:2", {"./made"}},
      {CALL(Proc::kill_proc(1)), "kill:4"},  // which the kernel ignores
      {CALL(Proc::kill_proc_tree("no such name")), "nothrow:1,="},
      {CALL(Proc::kill_proc_tree(4000000)), "nothrow:1,="},
  };
  // How this program was called decides nothing: no path, so the executable's link is read.
  faults::try_rows([] { sandbox::bind_content("/proc/1/cmdline", "program"); }, rows);
}

TEST(Faults, Network) {
  const auto listen_somewhere = [] {
    static const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(::listen(socket, 1), 0);
  };
  const std::vector<faults::Row> rows = {
      {CALL(sockets(o, sockets_below_root)), "nothrow:0,= malloc:0,= open:0,= read:0,= access:0,="},
      {CALL(sockets(o, ProcNet::get_proc_net_info)),
       "nothrow:0,= malloc:0,= open:0,4,= read:0,= list:0,= stat:0,= access:0,= readlink:0"},
      {CALL(sockets(o, Netlink::get_all_netlink_infos)),
       "nothrow:3,3~ malloc:3,3~ open:3,3~ read:0,= access:0,="},
      {CALL(sockets(o, Net::get_all_netlink_info)),
       "nothrow:16,= malloc:16,= open:16,= read:16,= access:16,="},
      {CALL(ProcNet::get_proc_socket_inodes("/proc/self/fd", o.inodes)),
       "open:4 list:0,= stat:0,="},
      {CALL(ProcNet::get_link_src("/proc/1/exe", o.text)), "readlink:5"},
      {CALL(Net::get_all_ni(o.list)), "nothrow:3 socket:2 request:4"},
      {CALL(Net::get_flags("lo", o.number)), kRequest},
      {CALL(Net::get_mtu("lo", o.number)), kRequest},
      {CALL(Net::get_addr("lo", o.text)), kRequest},
      {CALL(Net::get_netmask("lo", o.text)), kRequest},
      {CALL(Net::get_broadaddr("lo", o.text)), kRequest},
      {CALL(Net::get_macaddr("lo", o.text)), "nothrow:3 socket:2 request:4"},
      {CALL(interface(o)), "nothrow:3,3~ socket:2,2~ request:4,4~"},
      {CALL(counters(o)), "nothrow:3 malloc:5,= open:5 read:6"},
      {TEXT(CIPFormat().ipv6_zero_compress("1:0:0:0:0:0:0:1")), "nothrow:0~"},
  };
  faults::try_rows(listen_somewhere, rows);
}

TEST(Faults, Resources) {
  const auto prepare = [] {
    fs::remove("/etc/mtab");  // a link
    sandbox::write_file("/etc/mtab", "tmpfs / ext4 rw 0 0\nproc /proc proc rw 0 0\n");
    sandbox::bind_content("/proc/partitions", "\n 8 0 1 sda\n 8 1 1 sda1\n");
    sandbox::write_file("./dir/sub/file", "text");
    sandbox::write_file("./dir/file", "text");
  };
  const std::vector<std::string> tree = {"./dir/file", "./dir/sub/file"};
  const std::vector<faults::Row> rows = {
      {CALL(File::mod_mode("./dir/file", 0600)), "access:10 rights:13"},
      {CALL(File::rename_item("./dir/file", "./new")),
       "access:10,= rename:12",
       {"./dir/file", "./new"}},
      {CALL(File::create_item("./new", '_', 0600)), "open:7 rights:13~", {"./new"}},
      {CALL(File::create_item("./d", 'd', 0700)), "mkdir:8 rights:13~", {"./d"}},
      {CALL(File::has_subitem("./dir")), "open:0 list:0,= stat:1,2"},
      {CALL(File::get_sub_item("./dir", 'a', note<File::UnixFileData>, &o)),
       "nothrow:0~ malloc:0~ open:4,= list:0,= stat:2,2~,="},
      {CALL(File::delete_item("./dir", true)),
       "nothrow:5,5~ malloc:5,5~ open:4,5,= list:11,5,= stat:2,2~,5,= access:10,5,5~ "
       "unlink:11~,5,5~",
       tree},
      {CALL(File::get_quota_disk(note_text, &o)), "malloc:17,= open:17 read:0,="},
      {CALL(Disk::get_disk_info_from_proc(o.list)), kPartitions},
      {CALL(Disk::get_vgs(note<Disk::UnixDiskVg>, &o)), kPartitions},
      {CALL(Disk::get_pvs(note<Disk::UnixDiskPv>, &o)), kPartitions},
      {CALL(Disk::get_lvs_by_vg("sda", note<Disk::UnixDiskLv>, &o)), kPartitions},
      {CALL(disks(o)), "nothrow:3 malloc:1,= open:1 read:2,2~ access:0~ statfs:0~"},
      {CALL(processors(o)), "nothrow:3 malloc:1,= open:1 read:2,2~"},
      {CALL(memory(o)), "new:1 malloc:2,= open:2 read:2"},
      {CALL(memory_of_process(o)), "new:3 malloc:1,3,= open:1,3 read:3,="},
  };
  faults::try_rows(prepare, rows);
}
