// The reading half of CUnixLog.

#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <string_view>
#include <vector>

#include "base/callback.h"
#include "base/handles.h"
#include "base/line_reader.h"
#include "service/log_file.h"
#include "utility/CStr.h"
#include "utility/CUnixLog.h"

namespace utility {
namespace {

constexpr std::array<std::string_view, 19> kFacilities = {
    "*",   "kern",   "user",   "mail",   "daemon", "auth",   "syslog", "lpr",    "news",  "uucp",
    "ftp", "local0", "local1", "local2", "local3", "local4", "local5", "local6", "local7"};
constexpr std::array<std::string_view, 10> kLevels = {
    "*", "emerg", "alert", "crit", "err", "warning", "notice", "info", "debug", "none"};

template <class List>
bool contains(const List& list, const std::string& text) {
  return std::find(list.begin(), list.end(), text) != list.end();
}

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

std::string detail::log_file_path() {
  return "/etc/" + CUnixLog::m_syslog_name + ".conf";
}

std::string detail::rule_text(const LineReader& lines) {
  std::string text(lines.line());
  CStr::trim_remark("#", text);
  CStr::trim(text);
  return text;
}

int CUnixLog::set_syslog_name(const std::string& name) {
  if (name != "syslog" && name != "rsyslog") return 1;
  m_syslog_name = name;
  return 0;
}

bool CUnixLog::is_valid_fac(const std::string& fac) {
  return contains(kFacilities, fac);
}

bool CUnixLog::is_valid_level(const std::string& level) {
  return contains(kLevels, level);
}

int CUnixLog::divide_src_obj(const std::string& line, std::string& src, std::string& obj) {
  if (line.empty()) return 1;
  src.clear();
  obj.clear();
  const std::vector<std::string> pieces = split(";", line);
  if (pieces.empty()) return 8;
  for (auto piece = pieces.begin(); piece != pieces.end() - 1; ++piece)
    src.append(*piece).append(";");

  std::vector<std::string> words;
  CStr::ext_line(words, pieces.back());
  if (words.size() < 2) return 8;
  src.append(words[0]);
  obj = words[1];
  for (auto word = words.begin() + 2; word != words.end(); ++word) obj.append(" ").append(*word);
  return 0;
}

int CUnixLog::parse_line(const std::string& line, Callback callback, void* context) {
  if (line.empty()) return 1;
  std::string selectors;
  UnixLogData rule;
  const int divided = divide_src_obj(line, selectors, rule.obj);
  for (const std::string& selector : split(";", selectors)) {
    const std::vector<std::string> parts = split(".", selector);
    if (parts.size() < 2) return 8;
    rule.fac = parts[0];
    rule.level = parts[1];
    if (detail::stops(callback, rule, context)) return 17;
  }
  return divided;
}

int CUnixLog::get_all_log_data(Callback callback, void* context) {
  const detail::File file = detail::open_file(detail::log_file_path().c_str(), "re");
  if (!file) return 3;
  detail::LineReader lines(file.get(), detail::kLogLineCapacity);
  if (!lines.ready()) return 4;
  while (lines.next()) {
    const std::string text = detail::rule_text(lines);
    if (!text.empty()) parse_line(text, callback, context);
  }
  return lines.failed() ? 9 : 0;
}

bool CUnixLog::is_part_of(const UnixLogData& query, const UnixLogData& rule) {
  if (rule.fac != "*" && !contains(split(",", rule.fac), query.fac)) return false;
  return rule.level == "*" || rule.level == query.level;
}

int CUnixLog::find_ld(const std::string& fac, const std::string& level, Callback callback,
                      void* context) {
  if (!is_valid_fac(fac) || !is_valid_level(level)) return 11;
  const std::unique_ptr<FindContext> search(new (std::nothrow)
                                                FindContext{&fac, &level, callback, context});
  return search ? get_all_log_data(proc_find, search.get()) : 4;
}

int CUnixLog::filter_logs_data(const std::string& fac, const std::string& level, Callback callback,
                               void* context) {
  return find_ld(fac, level, callback, context);
}

int CUnixLog::proc_find(const UnixLogData& rule, void* context) {
  const auto* const search = static_cast<const FindContext*>(context);
  if (search == nullptr || search->fac == nullptr || search->level == nullptr ||
      search->callback == nullptr) {
    return 1;
  }
  const UnixLogData query{*search->fac, *search->level, ""};
  if (!is_part_of(query, rule)) return 0;
  return search->callback(rule, search->context) != 0 ? 17 : 0;
}

int CUnixLog::is_existed_data(const UnixLogData& data, bool& found) {
  const std::unique_ptr<ExistContext> search(new (std::nothrow) ExistContext{&data, &found});
  if (!search) return 4;
  found = false;
  return get_all_log_data(proc_exist, search.get());
}

int CUnixLog::proc_exist(const UnixLogData& rule, void* context) {
  const auto* const search = static_cast<const ExistContext*>(context);
  if (search == nullptr || search->data == nullptr || search->found == nullptr) return 1;
  const UnixLogData& wanted = *search->data;
  if (rule.fac == wanted.fac && rule.level == wanted.level && rule.obj == wanted.obj) {
    *search->found = true;
  }
  return 0;
}

}  // namespace utility
