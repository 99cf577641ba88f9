#include "utility/CDiskInfo.h"

#include "base/io.h"
#include "base/paths.h"
#include "base/text.h"

namespace utility {

using namespace detail;

namespace {

enum Code : int { kDone = 0, kNotOpened = 1, kReadFailed = 2 };

// Fills `info` from a line of the mount table; false when it names none that can be measured.
bool parse_mount_line(const std::string& line, CDiskInfo::DiskInfo& info) {
  std::vector<std::string> fields = words_of(line);
  if (fields.size() < 3) return false;
  const std::string& mount = fields[1];
  // The mount of /proc itself stays: it has no slash at the end.
  if (begins_with(mount, "/proc/")) return false;
  if (!exists(mount.c_str()) || ::statfs(mount.c_str(), &info.fs) != 0) return false;

  info.dev = std::move(fields[0]);
  info.mount = std::move(fields[1]);
  info.fstype = std::move(fields[2]);
  return true;
}

}  // namespace

int CDiskInfo::get_disk_info(std::vector<DiskInfo>& infos) {
  Lines<4096> lines(open_to_read("/etc/mtab"));
  if (!lines) return kNotOpened;
  while (lines.next()) {
    DiskInfo info;
    if (parse_mount_line(lines.text(), info)) infos.push_back(std::move(info));
  }
  return lines.failed() ? kReadFailed : kDone;
}

}  // namespace utility
