#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>

#include <cstring>
#include <filesystem>
#include <sstream>

#include "resource/os_version.h"
#include "support/sandbox.h"
#include "utility/CCpuInfo.h"
#include "utility/CDiskInfo.h"
#include "utility/CMemInfo.h"
#include "utility/COS_info.h"
#include "utility/CUnixDisk.h"
#include "utility/CUnixFile.h"

using namespace utility;

namespace {

template <typename... Parts>
std::string text(const Parts&... parts) {
  std::ostringstream stream;
  ((stream << parts << " "), ...);
  return stream.str();
}

// The readers tell in one text what their operations returned and gave; -1 and "kept" are what the
// outputs held before.
std::string memory() {
  CMemInfo::MemStat stat;
  double usage = -1;
  double share = -1;
  const int host = CMemInfo::get_mem_stat(stat);
  const int used = CMemInfo::get_mem_usage(usage);
  const int process = CMemInfo::get_process_mem_usage(1, share);
  return text(host, used, process, stat.total, stat.free, usage, share);
}

std::string cpus() {
  CCpuInfo::CpuStat stat{-1, {{"kept"}}};
  const int result = CCpuInfo::get_cpu_stat(stat);
  std::string seen = text(result, stat.count);
  for (const auto& cpu : stat.ents) {
    seen += text(std::string(cpu.name, ::strnlen(cpu.name, sizeof cpu.name)), cpu.user, cpu.nice,
                 cpu.system, cpu.idle, cpu.iowait, cpu.irq, cpu.softirq);
  }
  return seen;
}

// Notes what a callback was given; a record of "sdz" asks to stop.
int note(void* seen, const std::string& record) {
  *static_cast<std::string*>(seen) += "[" + record + "]";
  return record.find("sdz") == std::string::npos ? 0 : -1;
}
int note_vg(const CUnixDisk::UnixDiskVg& vg, void* seen) {
  return note(seen, text(vg.name, vg.path, vg.id, vg.lv_count, vg.extra, vg.active));
}
int note_pv(const CUnixDisk::UnixDiskPv& pv, void* seen) {
  return note(seen, text(pv.name, pv.path, pv.vg_name));
}
int note_lv(const CUnixDisk::UnixDiskLv& lv, void* seen) {
  return note(seen, text(lv.name, lv.path, lv.vg_name));
}

std::string mounts() {
  std::vector<CDiskInfo::DiskInfo> infos(1);
  std::string seen = text(CDiskInfo::get_disk_info(infos));
  for (const auto& info : infos) seen += info.dev + "|" + info.mount + "|" + info.fstype + " ";
  std::string ext;
  const auto note_ext = [](const std::string& mount, void* to) { return note(to, mount); };
  return seen + text(CUnixFile::get_quota_disk(note_ext, &ext)) + ext;
}

std::string volumes() {
  std::vector<std::string> names = {"kept"};
  std::string results = text(CUnixDisk::get_disk_info_from_proc(names));
  for (const std::string& name : names) results += name + " ";
  std::string seen;
  testing::internal::CaptureStdout();
  results += text(CUnixDisk::get_vgs(note_vg, &seen));
  results += text(CUnixDisk::get_pvs(note_pv, &seen));
  for (const char* group : {"sdaX", "sd", "sdz"}) {
    results += text(CUnixDisk::get_lvs_by_vg(group, note_lv, &seen));
  }
  return results + testing::internal::GetCapturedStdout() + seen;
}

struct Source {
  const char* path;
  std::string (*read)();
};
const Source kMem{"/proc/meminfo", memory};
const Source kRss{"/proc/1/status", memory};
const Source kCpu{"/proc/stat", cpus};
const Source kMounts{"/etc/mtab", mounts};
const Source kVolumes{"/proc/partitions", volumes};
const std::string kHost = "MemTotal: 10000 kB\nMemFree: 990\nCached: 9 kB\nBuffers: 1";
const std::string kTicks = " 1 2 3 4 5 6 7 ";

struct Row {
  const char* sentence;
  Source source;
  std::string content;
  std::string expected;
};
// The first rows see a process of 154 kB, those of `kRss` the memory of the row before them.
const std::vector<Row> kRows = {
    {"no Buffers", kMem, "MemTotal: 10\nMemFree: 3\nCached: 4", "2 2 3 10 7 -1 -1 "},
    {"no numbers", kMem, "MemTotal: kB\nMemFree:\nCached:5\nBuffers: x", "0 0 0 0 0 0 0 "},
    {"keys by their beginning", kMem,
     "MemTotalX 100\nMemFreeX 1\nCachedX 2\nBuffersX 3\nSwapCached: 9", "0 0 0 100 6 94 154 "},
    {"garbage", kMem, std::string("\0\xff MemTotal: 3\n\n\0", 17), "2 2 3 0 0 -1 -1 "},
    {"no fifth key", kMem, kHost + "\nMemFree: 1\n", "0 0 0 10000 1000 90 1.5 "},
    {"half up", kRss, "Name: a\nVmRSS:\t  155 kB\n", "0 0 0 10000 1000 90 1.6 "},
    {"a kernel thread", kRss, "Name: kthreadd\n", "0 0 0 10000 1000 90 0 "},
    {"no second field", kRss, "VmRSS:\nVmRSS: 155 kB\n", "0 0 0 10000 1000 90 0 "},
    {"the key's beginning", kRss, "xVmRSS: 1\nVmRSSX 200\n", "0 0 0 10000 1000 90 2 "},
    {"511 bytes", kRss, std::string(511, 'x') + "VmRSS: 10000", "0 0 0 10000 1000 90 100 "},
    {"single CPUs, lines of 1023 bytes, names of 16", kCpu,
     "cpu" + kTicks + "\n cpu0" + kTicks + "8\nintr" + kTicks + "\ncpu1 1 2 3 4 5 6\n" +
         std::string(1023, 'x') + "cpu4567890abcdefgh" + kTicks,
     "0 2 kept 0 0 0 0 0 0 0 cpu0" + kTicks + "cpu4567890abcdef" + kTicks},
    {"garbage", kCpu, std::string("\0\xff\ncpu\n\n cp", 11), "5 0 kept 0 0 0 0 0 0 0 "},
    {"mounts that can be measured, lines of 4095 bytes; ext to a stop", kMounts,
     "a / ext4\nx /proc/sys xfs rw\n/proc /proc proc\nshort /\n\n\xff /no/such ext40\n" +
         std::string(4095, 'x') + "b /etc c\nd /d\\040e ext3 rw 0 0\nf /sdz ext2\nh /h ext4",
     "0 || a|/|ext4 /proc|/proc|proc b|/etc|c 5 [/][/d e][/sdz]"},
    {"sd and hd, four fields, the last to a blank, lines of 127 bytes", kVolumes,
     "major minor  #blocks  name\n\n   8    0  976762584 sda\n 254 0 1 vda\n8 0 hda\n8 x 1 hda\n"
     "8 0 1 \n-3 +0 99999999999999999999999 hda1 x\n8 0 1 sd\tb\n" +
         std::string(115, ' ') + "8 3   9 sdc33\n" + std::string(300, ' ') + "8 0 1 sde\n",
     "0 kept sda hda1 sd\tb sdc3 sde 0 0 0 0 0 [sda /dev/sda sda 0 0 1 ][sde /dev/sde sde 0 0 1 ]"
     "[sda /dev/sda sda ][sde /dev/sde sde ]"},
    {"partitions", kVolumes, "8 0 1 sda\n8 1 1 sda1\n65 0 1 sdaa\n8 16 1 sdb1\n",
     "0 kept sda sda1 sdaa sdb1 0 0 0 0 0 /dev/sda1\n/dev/sdaa\n[sda /dev/sda sda 2 0 1 ]"
     "[sda /dev/sda sda ][sda1 /dev/sda1 sdaX ][sdaa /dev/sdaa sdaX ]"},
    {"stops", kVolumes, "8 0 1 sdz\n8 0 1 sdz1\n8 0 1 sdz2\n8 0 1 sdb\n",
     "0 kept sdz sdz1 sdz2 sdb 2 2 0 0 2 /dev/sdz1\n[sdz /dev/sdz sdz 2 0 1 ][sdz /dev/sdz sdz "
     "][sdz1 /dev/sdz1 sdz ]"},
};

}  // namespace

TEST(HostFiles, AreUnderstood) {
  sandbox::run([] {
    std::filesystem::remove(kMounts.path);
    sandbox::write_file(kMounts.path, "");
    sandbox::bind_content(kRss.path, "Name: a\nVmRSS:\t  154 kB\n");
    for (const Row& row : kRows) {
      sandbox::bind_content(row.source.path, row.content);
      EXPECT_EQ(row.source.read(), row.expected) << row.source.path << ": " << row.sentence;
    }
  });
}

TEST(HostFiles, FailuresHaveTheirCodes) {
  const auto body = [] {
    std::filesystem::remove(kMounts.path);
    std::filesystem::create_directory(kMounts.path);  // opens, but cannot be read
    sandbox::bind_path("/proc/self/mem", kCpu.path);  // so too
    EXPECT_EQ(mounts() + cpus(), "2 || 0 2 0 kept 0 0 0 0 0 0 0 ");
    std::filesystem::remove(kMounts.path);
    std::filesystem::create_directory(sandbox::scratch() + "/empty");
    sandbox::bind_path(sandbox::scratch() + "/empty", "/proc");
    EXPECT_EQ(memory() + cpus(), "2 2 1 0 0 -1 -1 1 -1 kept 0 0 0 0 0 0 0 ");
    EXPECT_EQ(mounts() + volumes(), "1 || 17 10 kept 10 10 10 10 10 ");
  };
  sandbox::run(body, {120, false});  // the leak check needs /proc
}

TEST(HostFigures, LoadBetweenTwoSamples) {
  using Entries = std::vector<CCpuInfo::CpuStatEnt>;
  const auto load = [](int count1, const Entries& first, int count2, const Entries& second) {
    CCpuInfo::CpuStat before{count1, first};
    CCpuInfo::CpuStat after{count2, second};
    double usage = -1;
    const int result = CCpuInfo::get_cpu_usage(before, after, usage);
    return text(result, usage);
  };
  const Entries some = {{"", 9, 9, 9, 9, 9, 9, 9}, {}};
  EXPECT_EQ(load(2, some, 2, {{"", 10, 11, 12, 13, 14, 15, 16}, {"", 4}}), "0 31.25 ");
  EXPECT_EQ(load(1, some, 1, {{"", 9, 10, 9, 9, 9, 9, 9}, {"", 0, 0, 0, 7}}), "0 100 ") << "count";
  EXPECT_EQ(load(3, {}, 3, {{"", INT64_MAX, 1}}), "0 100 ") << "no such entries; sums wrap";
  EXPECT_EQ(load(2, some, 1, some), "4 -1 ");
  EXPECT_EQ(load(2, some, 2, {{"", 8, 10, 9, 9, 9, 9, 9}, {}}), "4 -1 ") << "no time between";
}

TEST(HostFigures, PackedVersion) {
  using detail::pack_os_version;
  EXPECT_EQ(pack_os_version("Linux", "4.18.0", "x86_64"), 0x2000000 + (4 << 20) + (1 << 15));
  EXPECT_EQ(pack_os_version("GNU/Linux", "3.9", "-x64"), 0x2000000 + (3 << 20) + (9 << 15) + 1);
  EXPECT_EQ(pack_os_version("linux", "V-", ""), 6 << 20) << "'V' is '0' + 32 + 6";
  EXPECT_EQ(pack_os_version("", "", ""), 0);
}

TEST(HostFigures, AgreeWithTheRunningKernel) {
  sandbox::run([] {
    utsname names{};
    ASSERT_EQ(::uname(&names), 0);
    int version = -1;
    EXPECT_EQ(COS_info::get_os_vesion(version), 0);
    EXPECT_EQ(version >> 15, 1024 + (names.release[0] - '0') * 32 + names.release[2] - '0');
    struct sysinfo host {};
    ASSERT_EQ(::sysinfo(&host), 0);
    CMemInfo::MemStat stat;
    EXPECT_EQ(CMemInfo::get_mem_stat(stat), 0);
    EXPECT_EQ(static_cast<unsigned long>(stat.total), host.totalram * host.mem_unit / 1024);
    ASSERT_EQ(::mount("made-here", "/mnt", "tmpfs", 0, "size=1m"), 0);
    sandbox::write_file("/mnt/file", std::string(262144, 'x'));
    std::filesystem::remove(kMounts.path);
    std::filesystem::create_symlink("/proc/mounts", kMounts.path);
    std::vector<CDiskInfo::DiskInfo> disks(1);
    EXPECT_EQ(CDiskInfo::get_disk_info(disks), 0);
    const auto& made = disks.back();  // the latest mount stands last
    EXPECT_EQ(text(made.dev, made.mount, made.fstype), "made-here /mnt tmpfs ");
    EXPECT_EQ(text(made.fs.f_blocks - made.fs.f_bfree, made.fs.f_bfree), "64 192 ") << "of 4 KiB";
  });
}
