#include "utility/CUnixLog.h"

#include <chrono>
#include <thread>

#include "base/callback.h"
#include "base/io.h"
#include "base/paths.h"
#include "base/text.h"
#include "utility/CUnixTools.h"

namespace utility {

using namespace detail;

namespace {

enum Code : int {
  kDone = 0,
  kNothingGiven = 1,
  kFileNotOpened = 3,
  kNoMemory = 4,
  kRunsAlready = 5,
  kServiceFailed = 6,
  kDoesNotRun = 7,
  kNoSuchPart = 8,
  kReadFailed = 9,
  kNoRule = 10,
  kNotValid = 11,
  kRuleExists = 12,
  kSeekFailed = 14,
  kWriteFailed = 15,
  kLineStopped = 17,
  kNotInTime = 18,
  kNotTruncated = 19,
  kActionMissing = 20,
  kActionNoFile = 21,
};

constexpr const char* kFacilities[] = {
    "*",   "kern",   "user",   "mail",   "daemon", "auth",   "syslog", "lpr",    "news",  "uucp",
    "ftp", "local0", "local1", "local2", "local3", "local4", "local5", "local6", "local7"};
constexpr const char* kLevels[] = {"*",       "emerg",  "alert", "crit",  "err",
                                   "warning", "notice", "info",  "debug", "none"};

constexpr std::size_t kLine = 1024;  // the room of a line of the configuration

// The configuration file of the daemon that is chosen now.
std::string file_path() { return "/etc/" + CUnixLog::m_syslog_name + ".conf"; }

// `line` without its comment and the blanks around it; empty when there is no rule in it.
std::string rule_text(std::string_view line) {
  std::string text(line);
  CStr::trim_remark("#", text);
  CStr::trim(text);
  return text;
}

struct FindContext {
  const std::string* fac;
  const std::string* level;
  CUnixLog::Callback callback;
  void* context;
};

struct ExistContext {
  const CUnixLog::UnixLogData* data;
  bool* found;
};

// kDone for an existing regular file, else the code that refuses it as an action.
int check_action(const std::string& path) {
  const FileStatus status(path.c_str());
  if (!status && errno == ENOENT) return kActionMissing;
  return status.is(S_IFREG) ? kDone : kActionNoFile;
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
  return write_at_once(file, spaces) ? kDone : kWriteFailed;
}

// Edits every line that holds the rule; `removed` tells whether there was one.
int remove_rule(const CUnixLog::UnixLogData& data, bool& removed) {
  const File file = open_file(file_path().c_str(), "r+e");
  if (!file) return kFileNotOpened;
  std::string text;
  if (!read_all(::fileno(file.get()), text)) return kReadFailed;

  const std::string key = data.fac + "." + data.level;
  long start = 0;
  long end = 0;
  long moved = 0;  // how far the edits have moved what follows them towards the beginning
  for (Lines<kLine> lines(text); lines.next(); start = end) {
    end = static_cast<long>(lines.consumed());
    const std::string line = rule_text(lines.line());
    const std::size_t at = line.find(key);
    if (at == std::string::npos) continue;

    std::string selectors;
    std::string action;
    if (const int divided = CUnixLog::divide_src_obj(line, selectors, action)) return divided;
    if (action != data.obj) continue;
    std::string rest = without_selector(line, selectors, key, at);
    if (const int replaced = CUnixLog::sub_line(file.get(), start - moved, end - moved, rest))
      return replaced;
    moved += end - start - static_cast<long>(rest.size());
    removed = true;
  }
  return kDone;
}

// 102 looks, 100 ms apart: about 10 seconds for the daemon to come or go.
int await_daemon(bool running) {
  for (int count = 0; CUnixLog::is_running() != running; ++count) {
    if (count > 100) return kNotInTime;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return kDone;
}

}  // namespace

std::string CUnixLog::m_syslog_name = "syslog";

int CUnixLog::set_syslog_name(const std::string& name) {
  if (name != "syslog" && name != "rsyslog") return kNothingGiven;
  m_syslog_name = name;
  return kDone;
}

bool CUnixLog::is_valid_fac(const std::string& fac) { return is_one_of(kFacilities, fac); }

bool CUnixLog::is_valid_level(const std::string& level) { return is_one_of(kLevels, level); }

int CUnixLog::divide_src_obj(const std::string& line, std::string& src, std::string& obj) {
  src.clear();
  obj.clear();
  if (line.empty()) return kNothingGiven;
  const std::vector<std::string> pieces = split(";", line);
  if (pieces.empty()) return kNoSuchPart;
  for (auto piece = pieces.begin(); piece != pieces.end() - 1; ++piece)
    src.append(*piece).append(";");

  const std::vector<std::string> words = words_of(pieces.back());
  if (words.size() < 2) return kNoSuchPart;
  src.append(words[0]);
  obj = words[1];
  for (auto word = words.begin() + 2; word != words.end(); ++word) obj.append(" ").append(*word);
  return kDone;
}

int CUnixLog::parse_line(const std::string& line, Callback callback, void* context) {
  if (line.empty()) return kNothingGiven;
  std::string selectors;
  UnixLogData rule;
  const int divided = divide_src_obj(line, selectors, rule.obj);
  for (const std::string& selector : split(";", selectors)) {
    const std::vector<std::string> parts = split(".", selector);
    if (parts.size() < 2) return kNoSuchPart;
    rule.fac = parts[0];
    rule.level = parts[1];
    if (stops(callback, rule, context)) return kLineStopped;
  }
  return divided;
}

int CUnixLog::get_all_log_data(Callback callback, void* context) {
  Lines<kLine> lines(open_to_read(file_path().c_str()));
  if (!lines) return kFileNotOpened;
  while (lines.next()) {
    const std::string text = rule_text(lines.line());
    if (!text.empty()) parse_line(text, callback, context);
  }
  return lines.failed() ? kReadFailed : kDone;
}

bool CUnixLog::is_part_of(const UnixLogData& query, const UnixLogData& rule) {
  if (rule.fac != "*" && !is_one_of(split(",", rule.fac), query.fac)) return false;
  return rule.level == "*" || rule.level == query.level;
}

int CUnixLog::find_ld(const std::string& fac, const std::string& level, Callback callback,
                      void* context) {
  if (!is_valid_fac(fac) || !is_valid_level(level)) return kNotValid;
  FindContext search{&fac, &level, callback, context};
  return get_all_log_data(proc_find, &search);
}

int CUnixLog::filter_logs_data(const std::string& fac, const std::string& level, Callback callback,
                               void* context) {
  return find_ld(fac, level, callback, context);
}

int CUnixLog::proc_find(const UnixLogData& rule, void* context) {
  const auto* const search = static_cast<const FindContext*>(context);
  if (search == nullptr || search->fac == nullptr || search->level == nullptr ||
      search->callback == nullptr) {
    return kNothingGiven;
  }
  const UnixLogData query{*search->fac, *search->level, ""};
  if (!is_part_of(query, rule)) return kDone;
  return stops(search->callback, rule, search->context) ? kLineStopped : kDone;
}

int CUnixLog::is_existed_data(const UnixLogData& data, bool& found) {
  ExistContext search{&data, &found};
  found = false;
  return get_all_log_data(proc_exist, &search);
}

int CUnixLog::proc_exist(const UnixLogData& rule, void* context) {
  const auto* const search = static_cast<const ExistContext*>(context);
  if (search == nullptr || search->data == nullptr || search->found == nullptr) {
    return kNothingGiven;
  }
  const UnixLogData& wanted = *search->data;
  if (rule.fac == wanted.fac && rule.level == wanted.level && rule.obj == wanted.obj)
    *search->found = true;
  return kDone;
}

int CUnixLog::add_log_data(UnixLogData& data) {
  // Facility and level are not validated: daemons know more names than the searches here do.
  bool found = false;
  if (const int looked = is_existed_data(data, found)) return looked;
  if (found) return kRuleExists;
  if (const int refused = check_action(data.obj)) return refused;
  const int put = put_line(data.fac + "." + data.level + "\t\t" + data.obj + "\n");
  return put != kDone ? put : restart_syslog();
}

int CUnixLog::del_log_data(UnixLogData& data) {
  bool removed = false;
  if (const int edited = remove_rule(data, removed)) return edited;
  return removed ? restart_syslog() : kNoRule;
}

int CUnixLog::put_line(const std::string& text) {
  if (text.empty()) return kNothingGiven;
  const Fd file(::open(file_path().c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666));
  if (!file) return kFileNotOpened;
  write_all(file.get(), "\n" + text.substr(0, text.find('\0')));
  return kDone;
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

  // The spaces go along: the old end never follows the new one, not even until the file is cut.
  if (std::fseek(file, start, SEEK_SET) != 0) return kSeekFailed;
  if (!write_at_once(file, {bytes.get(), used + freed})) return kWriteFailed;
  if (freed > 0) {
    const long size = start + static_cast<long>(used);
    if (const int refilled = refill(file, size, {bytes.get() + used, freed})) return refilled;
  }
  const bool is_placed = std::fseek(file, start + static_cast<long>(text.size()), SEEK_SET) == 0;
  return is_placed ? kDone : kSeekFailed;
}

bool CUnixLog::is_running() {
  return CUnixTools::exec_cmd(("ps -eo comm|grep -q " + m_syslog_name).c_str()) == 0;
}

int CUnixLog::start_syslog() {
  if (is_running()) return kRunsAlready;
  return succeeds("service " + m_syslog_name + " start") ? await_daemon(true) : kServiceFailed;
}

int CUnixLog::stop_syslog() {
  if (!is_running()) return kDoesNotRun;
  return succeeds("service " + m_syslog_name + " stop") ? await_daemon(false) : kServiceFailed;
}

int CUnixLog::restart_syslog() {
  if (is_running()) {
    if (const int stopped = stop_syslog()) return stopped;
  }
  return start_syslog();
}

}  // namespace utility
