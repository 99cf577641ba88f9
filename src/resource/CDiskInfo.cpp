#include "utility/CDiskInfo.h"

#include "base/handles.h"
#include "base/line_reader.h"
#include "base/paths.h"
#include "utility/CStr.h"

namespace utility {
namespace {

constexpr std::size_t kLine = 4096;
// The mount of /proc itself stays: it has no slash at the end.
constexpr char kBelowProc[] = "/proc/";

// Fills `info` from a line of the mount table; false when the line does not name a mount point
// that can be measured.
bool parse_mount_line(const std::string& line, CDiskInfo::DiskInfo& info) {
  std::vector<std::string> fields;
  CStr::ext_line(fields, line);
  if (fields.size() < 3) return false;
  const std::string& mount = fields[1];
  if (mount.compare(0, sizeof kBelowProc - 1, kBelowProc) == 0) return false;
  if (!detail::exists(mount.c_str()) || ::statfs(mount.c_str(), &info.fs) != 0) return false;

  info.dev = std::move(fields[0]);
  info.mount = std::move(fields[1]);
  info.fstype = std::move(fields[2]);
  return true;
}

}  // namespace

int CDiskInfo::get_disk_info(std::vector<DiskInfo>& infos) {
  const detail::File file = detail::open_file("/etc/mtab", "re");
  if (!file) return 1;
  detail::LineReader reader(file.get(), kLine);
  if (!reader.ready()) return 3;

  while (reader.next()) {
    DiskInfo info;
    if (parse_mount_line(reader.text(), info)) infos.push_back(std::move(info));
  }
  return reader.failed() ? 2 : 0;
}

}  // namespace utility
