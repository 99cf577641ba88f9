// The editing and daemon-control half of CUnixLog.

#include <chrono>
#include <cstring>
#include <thread>

#include "base/io.h"
#include "service/CUnixLog_common.h"
#include "service/service_command.h"
#include "utility/CUnixLog.h"
#include "utility/CUnixTools.h"

namespace utility {

using namespace detail;

namespace {

// kLogDone for an existing regular file, else the code that refuses it as an action.
int check_action(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0 && errno == ENOENT) return kActionMissing;
  return S_ISREG(status.st_mode) ? kLogDone : kActionNoFile;
}

// What is left of `line`, selectors `selectors`, when the selector `key` at `at` goes.
std::string without_selector(std::string line, const std::string& selectors, const std::string& key,
                             std::size_t at) {
  if (selectors == key) return "\n";
  line.erase(at, key.size());
  if (at < line.size() && line[at] == ';') line.erase(at, 1);
  return line + "\n";
}

// Writes where the stream stands, at once where it has a descriptor: the stream's own blocks would
// be that many moments at which a crash leaves the file half changed. Seek before going on.
bool write_at_once(FILE* file, std::string_view bytes) {
  const int fd = ::fileno(file);
  if (fd >= 0) return std::fflush(file) == 0 && write_all(fd, bytes);
  return std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size() && std::fflush(file) == 0;
}

// Cuts the file to `size` and appends `spaces`.
int refill(FILE* file, long size, std::string_view spaces) {
  const int fd = ::fileno(file);
  if (fd < 0) return kReadFailed;
  if (::ftruncate(fd, size) != 0) return kNotTruncated;
  if (std::fseek(file, size, SEEK_SET) != 0) return kSeekFailed;
  return write_at_once(file, spaces) ? kLogDone : kWriteFailed;
}

// Edits every line that holds the rule; `removed` tells whether there was one.
int remove_rule(const CUnixLog::UnixLogData& data, bool& removed) {
  const File file = open_file(log_file_path().c_str(), "r+e");
  if (!file) return kFileNotOpened;
  std::string text;
  if (!read_all(::fileno(file.get()), text)) return kReadFailed;

  const std::string key = data.fac + "." + data.level;
  long start = 0;
  long end = 0;
  long moved = 0;  // how far the edits have moved what follows them towards the beginning
  for (Lines<kLogLine> lines(text); lines.next(); start = end) {
    end = static_cast<long>(lines.consumed());
    const std::string line = rule_text(lines.line());
    const std::size_t at = line.find(key);
    if (at == std::string::npos) continue;

    std::string selectors;
    std::string action;
    const int divided = CUnixLog::divide_src_obj(line, selectors, action);
    if (divided != kLogDone) return divided;
    if (action != data.obj) continue;
    std::string rest = without_selector(line, selectors, key, at);
    const int replaced = CUnixLog::sub_line(file.get(), start - moved, end - moved, rest);
    if (replaced != kLogDone) return replaced;
    moved += end - start - static_cast<long>(rest.size());
    removed = true;
  }
  return kLogDone;
}

// 102 looks, 100 ms apart: about 10 seconds for the daemon to come or go.
int await_daemon(bool running) {
  for (int count = 0; CUnixLog::is_running() != running; ++count) {
    if (count > 100) return kNotInTime;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return kLogDone;
}

}  // namespace

int CUnixLog::add_log_data(UnixLogData& data) {
  // Facility and level are not validated: daemons know more names than the searches here do.
  bool found = false;
  const int looked = is_existed_data(data, found);
  if (looked != kLogDone) return looked;
  if (found) return kRuleExists;
  const int refused = check_action(data.obj);
  if (refused != kLogDone) return refused;
  const int put = put_line(data.fac + "." + data.level + "\t\t" + data.obj + "\n");
  return put != kLogDone ? put : restart_syslog();
}

int CUnixLog::del_log_data(UnixLogData& data) {
  bool removed = false;
  const int edited = remove_rule(data, removed);
  if (edited != kLogDone) return edited;
  return removed ? restart_syslog() : kNoRule;
}

int CUnixLog::put_line(const std::string& text) {
  if (text.empty()) return kNothingGiven;
  const Fd file(::open(log_file_path().c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666));
  if (!file) return kFileNotOpened;
  write_all(file.get(), "\n" + text.substr(0, text.find('\0')));
  return kLogDone;
}

int CUnixLog::sub_line(FILE* file, long start, long end, std::string& text) {
  if (file == nullptr) return kNothingGiven;
  if (std::fseek(file, 0, SEEK_END) != 0) return kSeekFailed;
  const long old_size = std::ftell(file);
  if (end > old_size) return kReadFailed;
  if (start < 0 || start > end) return kSeekFailed;
  const auto room = static_cast<std::size_t>(end - start);
  const auto tail_size = static_cast<std::size_t>(old_size - end);
  const std::size_t freed = room > text.size() ? room - text.size() : 0;
  const std::size_t used = text.size() + tail_size;
  const Buffer bytes = make_buffer(used + freed);
  if (!bytes) return kNoMemory;
  char* const tail = bytes.get() + text.size();
  text.copy(bytes.get(), text.size());
  std::memset(tail + tail_size, ' ', freed);
  if (std::fseek(file, end, SEEK_SET) != 0) return kSeekFailed;
  if (std::fread(tail, 1, tail_size, file) != tail_size) return kReadFailed;

  // The spaces go along, so that the old end never follows the new one, not even until the
  // file is cut.
  if (std::fseek(file, start, SEEK_SET) != 0) return kSeekFailed;
  if (!write_at_once(file, {bytes.get(), used + freed})) return kWriteFailed;
  if (freed > 0) {
    const long size = start + static_cast<long>(used);
    const int refilled = refill(file, size, {bytes.get() + used, freed});
    if (refilled != kLogDone) return refilled;
  }
  const bool is_placed = std::fseek(file, start + static_cast<long>(text.size()), SEEK_SET) == 0;
  return is_placed ? kLogDone : kSeekFailed;
}

bool CUnixLog::is_running() {
  return CUnixTools::exec_cmd(("ps -eo comm|grep -q " + m_syslog_name).c_str()) == 0;
}

int CUnixLog::start_syslog() {
  if (is_running()) return kRunsAlready;
  return run_service(m_syslog_name, "start") ? await_daemon(true) : kServiceFailed;
}

int CUnixLog::stop_syslog() {
  if (!is_running()) return kDoesNotRun;
  return run_service(m_syslog_name, "stop") ? await_daemon(false) : kServiceFailed;
}

int CUnixLog::restart_syslog() {
  if (is_running()) {
    const int stopped = stop_syslog();
    if (stopped != kLogDone) return stopped;
  }
  return start_syslog();
}

}  // namespace utility
