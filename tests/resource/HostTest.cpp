#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/utsname.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <sstream>

#include "resource/os_version.h"
#include "support/cases.h"
#include "support/sandbox.h"
#include "utility/utility.h"

using namespace utility;
namespace fs = std::filesystem;

namespace {

// What the operations answer, one named field to a line; -1 is what an output held before.
std::ostringstream s_told;

template <class Value>
void tell(const char* name, const Value& value) {
  s_told << name << " = " << value << "\n";
}

// Tells of a record; one of "sdz" asks to stop.
int tell_record(const std::string& text) {
  s_told << text << "\n";
  return text.find("sdz") == std::string::npos ? 0 : -1;
}

void tell_memory() {
  CMemInfo::MemStat stat{7, 0};
  double usage = -1;
  tell("get_mem_stat", CMemInfo::get_mem_stat(stat));
  tell("total", stat.total);
  tell("free", stat.free);
  tell("get_mem_usage", CMemInfo::get_mem_usage(usage));
  tell("usage", usage);
}

void tell_process() {
  double share = -1;
  tell("get_process_mem_usage", CMemInfo::get_process_mem_usage(1, share));
  tell("share", share);
}

void tell_cpus() {
  CCpuInfo::CpuStat stat{-1, {{"kept"}}};
  tell("get_cpu_stat", CCpuInfo::get_cpu_stat(stat));
  tell("count", stat.count);
  for (const auto& cpu : stat.ents) {
    s_told << std::string(cpu.name, ::strnlen(cpu.name, sizeof cpu.name)) << ": user " << cpu.user
           << ", nice " << cpu.nice << ", system " << cpu.system << ", idle " << cpu.idle
           << ", iowait " << cpu.iowait << ", irq " << cpu.irq << ", softirq " << cpu.softirq
           << "\n";
  }
}

void tell_mounts() {
  std::vector<CDiskInfo::DiskInfo> infos = {{"kept", "here", "x", {}}};
  tell("get_disk_info", CDiskInfo::get_disk_info(infos));
  for (const auto& [dev, dir, type, fs] : infos) {
    s_told << dev << " on " << dir << " type " << type << "\n";
  }
  const auto quota = [](const std::string& dir, void*) { return tell_record("quota on " + dir); };
  tell("get_quota_disk", CUnixFile::get_quota_disk(quota, nullptr));
}

int tell_vg(const CUnixDisk::UnixDiskVg& vg, void*) {
  return tell_record("group " + vg.name + ": path " + vg.path + ", id " + vg.id + ", lv_count " +
                     std::to_string(vg.lv_count) + ", extra " + std::to_string(vg.extra) +
                     (vg.active ? ", active" : ""));
}

// Physical and logical volumes.
template <class Volume>
int tell_volume(const Volume& volume, void*) {
  return tell_record("volume " + volume.name + ": path " + volume.path + ", vg_name " +
                     volume.vg_name);
}

void tell_volumes() {
  std::vector<std::string> names = {"kept"};
  tell("get_disk_info_from_proc", CUnixDisk::get_disk_info_from_proc(names));
  for (const std::string& name : names) tell("name", name);
  tell("get_vgs", CUnixDisk::get_vgs(tell_vg, nullptr));
  tell("get_pvs", CUnixDisk::get_pvs(tell_volume, nullptr));
  testing::internal::CaptureStdout();
  for (const char* group : {"sdaX", "sd", "sdz"}) {
    tell("get_lvs_by_vg", CUnixDisk::get_lvs_by_vg(group, tell_volume, nullptr));
  }
  tell("printed", testing::internal::GetCapturedStdout());
}

const std::map<std::string, void (*)()> kTellers = {{"memory", tell_memory},
                                                    {"process", tell_process},
                                                    {"cpus", tell_cpus},
                                                    {"mounts", tell_mounts},
                                                    {"volumes", tell_volumes}};

// Writes what these tell.
void tell_of(const Words& names, const char* file) {
  s_told.str("");
  for (const std::string& name : names) kTellers.at(name)();
  sandbox::write_file(file, s_told.str());
}

CCpuInfo::CpuStat sample(const Words& lines, int count) {
  CCpuInfo::CpuStat stat;
  for (const std::string& line : lines) {
    CCpuInfo::CpuStatEnt cpu;
    std::istringstream(line) >> cpu.user >> cpu.nice >> cpu.system >> cpu.idle >> cpu.iowait >>
        cpu.irq >> cpu.softirq;
    stat.ents.push_back(cpu);
  }
  stat.count = count;
  return stat;
}

int load_between(const Words& first, int count, const Words& second, int second_count,
                 double& usage) {
  CCpuInfo::CpuStat a = sample(first, count), b = sample(second, second_count);
  return CCpuInfo::get_cpu_usage(a, b, usage);
}

}  // namespace

TEST(Host, FilesAreUnderstood) { run_cases(FIXTURES "/hosts.txt", {{"tell", call(tell_of)}}); }

TEST(Host, LoadAndVersion) {
  run_cases(FIXTURES "/figures.txt", {{"get_cpu_usage", call(load_between)},
                                      {"pack_os_version", call(detail::pack_os_version)},
                                      {"get_os_vesion_str", call(COS_info::get_os_vesion_str)}});
  utsname names{};
  ASSERT_EQ(::uname(&names), 0);
  int version = -1;
  EXPECT_EQ(COS_info::get_os_vesion(version), 0);
  EXPECT_EQ(version >> 15, 1024 + (names.release[0] - '0') * 32 + names.release[2] - '0');
}

TEST(Host, FileSystemsHaveTheirSizes) {
  ASSERT_EQ(::mount("made-here", "/mnt", "tmpfs", 0, "size=1m"), 0);
  sandbox::write_file("/mnt/file", std::string(262144, 'x'));
  fs::remove("/etc/mtab");
  fs::create_symlink("/proc/mounts", "/etc/mtab");
  std::vector<CDiskInfo::DiskInfo> disks;
  EXPECT_EQ(CDiskInfo::get_disk_info(disks), 0);
  EXPECT_EQ(disks.back().dev, "made-here") << "the latest mount stands last";
  EXPECT_EQ(disks.back().fs.f_blocks - disks.back().fs.f_bfree, 64U) << "of 4 KiB";
}

TEST(Volumes, WhatOtherSystemsHaveIsNotProvided) {
  using D = CUnixDisk;
  bool active = true;
  std::string text = "kept";
  D::UnixDiskVg vg;
  D::UnixDiskPv pv;
  D::UnixDiskLv lv;
  EXPECT_EQ(D::is_active_vg(text, active) + D::get_vg(nullptr, vg) + D::get_lv(nullptr, lv), 3);
  EXPECT_EQ(D::get_vgname_by_id(text, text) + D::get_pv(nullptr, nullptr, pv), 2);
  EXPECT_EQ(D::get_pvname_by_id(text, text) + D::string_to_unique_id(text, nullptr), 2);
  EXPECT_EQ(D::get_name(text, text, text), 1);
  EXPECT_EQ(D::get_pvs_by_vg(text, nullptr, nullptr) + D::HexToDec("ff"), 0);
  EXPECT_TRUE(active && D::unique_id_to_string(nullptr) + text == "kept");
}
