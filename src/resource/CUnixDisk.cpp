#include "utility/CUnixDisk.h"

#include <iostream>

#include "base/callback.h"
#include "base/io.h"
#include "base/text.h"

namespace utility {

using namespace detail;

namespace {

enum Code : int { kDone = 0, kNotProvided = 1, kStopped = 2, kListNotOpened = 10 };

constexpr std::size_t kDiskName = 3;  // "sda"; longer names are partitions
constexpr char kDevices[] = "/dev/";

// The name in a line "major minor blocks name" of the partition list, empty for any other line.
std::string parse_partition_line(const char* line) {
  std::array<char, 128 + 1> name{};
  // The numbers must be there but are not kept.
  if (std::sscanf(line, " %*d %*d %*u %128[^\n ]", name.data()) != 1) return {};
  return name.data();
}

bool is_whole_disk(const std::string& name) { return name.size() == kDiskName; }

bool is_partition_of(const std::string& disk, const std::string& name) {
  return name.size() > kDiskName && name.compare(0, kDiskName, disk, 0, kDiskName) == 0;
}

// Calls `tell` for each name of the partition list, with the whole list, until it asks to stop.
template <typename Tell>
int walk_names(const Tell& tell) {
  std::vector<std::string> names;
  if (CUnixDisk::get_disk_info_from_proc(names) != kDone) return kListNotOpened;
  for (const std::string& name : names) {
    if (tell(name, names)) return kStopped;
  }
  return kDone;
}

}  // namespace

int CUnixDisk::get_disk_info_from_proc(std::vector<std::string>& names) {
  Lines<128> lines(open_to_read("/proc/partitions"));
  if (!lines) return kListNotOpened;
  while (lines.next()) {
    std::string name = parse_partition_line(lines.text());
    if (begins_with(name, "sd") || begins_with(name, "hd")) names.push_back(std::move(name));
  }
  return kDone;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): by value in the published interface
int CUnixDisk::get_disk_partition_total(std::string disk, std::vector<std::string>& names) {
  return static_cast<int>(std::count_if(names.begin(), names.end(), [&](const std::string& name) {
    return is_partition_of(disk, name);
  }));
}

int CUnixDisk::get_vgs(int (*callback)(const UnixDiskVg&, void*), void* context) {
  return walk_names([&](const std::string& name, std::vector<std::string>& names) {
    if (!is_whole_disk(name)) return false;
    UnixDiskVg vg;
    vg.name = vg.id = name;
    vg.path = kDevices + name;
    vg.lv_count = get_disk_partition_total(name, names);
    return stops(callback, vg, context);
  });
}

int CUnixDisk::get_pvs(int (*callback)(const UnixDiskPv&, void*), void* context) {
  return walk_names([&](const std::string& name, const std::vector<std::string>& /*names*/) {
    return is_whole_disk(name) && stops(callback, UnixDiskPv{name, kDevices + name, name}, context);
  });
}

int CUnixDisk::get_lvs_by_vg(const std::string& vg, int (*callback)(const UnixDiskLv&, void*),
                             void* context) {
  return walk_names([&](const std::string& name, const std::vector<std::string>& /*names*/) {
    if (!is_partition_of(vg, name)) return false;
    const UnixDiskLv lv{name, kDevices + name, vg};
    std::cout << lv.path << std::endl;
    return stops(callback, lv, context);
  });
}

int CUnixDisk::get_pvs_by_vg(const std::string& /*vg*/,
                             int (* /*callback*/)(const UnixDiskPv&, void*), void* /*context*/) {
  return kDone;
}

int CUnixDisk::is_active_vg(const std::string& /*vg*/, bool& /*active*/) { return kNotProvided; }

int CUnixDisk::get_vg(void* /*handle*/, UnixDiskVg& /*vg*/) { return kNotProvided; }

int CUnixDisk::get_vgname_by_id(const std::string& /*id*/, std::string& /*name*/) {
  return kNotProvided;
}

int CUnixDisk::get_pv(void* /*group*/, void* /*handle*/, UnixDiskPv& /*pv*/) {
  return kNotProvided;
}

int CUnixDisk::get_pvname_by_id(const std::string& /*id*/, std::string& /*name*/) {
  return kNotProvided;
}

int CUnixDisk::get_lv(void* /*handle*/, UnixDiskLv& /*lv*/) { return kNotProvided; }

int CUnixDisk::string_to_unique_id(const std::string& /*text*/, void* /*id*/) {
  return kNotProvided;
}

int CUnixDisk::HexToDec(const char* /*hex*/) { return kDone; }

int CUnixDisk::get_name(const std::string& /*dir*/, const std::string& /*key*/,
                        std::string& /*name*/) {
  return kNotProvided;
}

void CUnixDisk::get_filenames_from_rdsk(std::vector<std::string>& /*names*/) {}

std::string CUnixDisk::unique_id_to_string(void* /*id*/) { return {}; }

}  // namespace utility
