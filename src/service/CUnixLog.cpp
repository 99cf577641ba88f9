// The reading half of CUnixLog.

#include "utility/CUnixLog.h"

#include "base/callback.h"
#include "base/io.h"
#include "base/text.h"
#include "service/CUnixLog_common.h"
#include "utility/CStr.h"

namespace utility {

using namespace detail;

namespace {

constexpr const char* kFacilities[] = {
    "*",   "kern",   "user",   "mail",   "daemon", "auth",   "syslog", "lpr",    "news",  "uucp",
    "ftp", "local0", "local1", "local2", "local3", "local4", "local5", "local6", "local7"};
constexpr const char* kLevels[] = {"*",       "emerg",  "alert", "crit",  "err",
                                   "warning", "notice", "info",  "debug", "none"};

std::vector<std::string> split(const char* separator, const std::string& text) {
  std::vector<std::string> pieces;
  CStr::ext_line(separator, pieces, text);
  return pieces;
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

}  // namespace

std::string CUnixLog::m_syslog_name = "syslog";

std::string detail::log_file_path() { return "/etc/" + CUnixLog::m_syslog_name + ".conf"; }

std::string detail::rule_text(std::string_view line) {
  std::string text(line);
  CStr::trim_remark("#", text);
  CStr::trim(text);
  return text;
}

int CUnixLog::set_syslog_name(const std::string& name) {
  if (name != "syslog" && name != "rsyslog") return kNothingGiven;
  m_syslog_name = name;
  return kLogDone;
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

  std::vector<std::string> words;
  CStr::ext_line(words, pieces.back());
  if (words.size() < 2) return kNoSuchPart;
  src.append(words[0]);
  obj = words[1];
  for (auto word = words.begin() + 2; word != words.end(); ++word) obj.append(" ").append(*word);
  return kLogDone;
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
  const Fd file = open_to_read(log_file_path().c_str());
  if (!file) return kFileNotOpened;
  Lines<kLogLine> lines(file.get());
  while (lines.next()) {
    const std::string text = rule_text(lines.line());
    if (!text.empty()) parse_line(text, callback, context);
  }
  return lines.failed() ? kReadFailed : kLogDone;
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
  if (!is_part_of(query, rule)) return kLogDone;
  const bool is_stopped = search->callback(rule, search->context) != 0;
  return is_stopped ? kLineStopped : kLogDone;
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
  if (rule.fac == wanted.fac && rule.level == wanted.level && rule.obj == wanted.obj) {
    *search->found = true;
  }
  return kLogDone;
}

}  // namespace utility
