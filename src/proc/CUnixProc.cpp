#include "utility/CUnixProc.h"

#include <signal.h>

#include <chrono>
#include <thread>

#include "base/callback.h"
#include "base/dir_walk.h"
#include "base/io.h"
#include "base/paths.h"
#include "proc/ProcessReader.h"

namespace utility {

using namespace detail;

namespace {

// Hands what stands after `key` to `take`, on the first line that begins with it.
template <typename Take>
int read_key(const std::string& path, std::string_view key, Take take) {
  if (path.empty()) return kUnusable;
  Lines<kLineCapacity> lines(open_to_read(path.c_str()));
  if (!lines) return kNotOpened;
  if (const char* rest = find_field(lines, key)) take(rest);
  return lines.failed() ? kNotRead : kDone;
}

// Joins the first `limit` bytes of a cmdline or environ file; a missing file is an empty one.
int read_args(const std::string& path, int limit, std::string& text) {
  if (path.empty()) return kUnusable;
  const Fd file = open_to_read(path.c_str());
  if (!file) {
    if (exists(path.c_str())) return kNotOpened;
    text.clear();
    return kDone;
  }
  const Buffer buffer = make_buffer(static_cast<std::size_t>(limit));
  if (!buffer) return kNoMemory;
  return read_joined(file, buffer.get(), limit, text);
}

// The path in a line of a maps file; empty when the line names no file or a deleted one. `fields`
// is working space, so that its memory serves all lines.
std::string mapped_path(std::string line, std::vector<std::string>& fields) {
  CStr::trim(line);
  if (contains(line, "(deleted)") || (contains(line, "[") && contains(line, "]"))) return {};
  fields.clear();
  CStr::ext_line(fields, line);
  return fields.size() > 5 ? std::move(fields[5]) : "";
}

// Collects the pid of a record that `matches`, given the record and the key as what it is.
template <typename Key, typename Matches>
int collect(const CUnixProc::UnixProcData& data, void* ctx, Matches matches) {
  const auto* filter = static_cast<const CUnixProc::ProcFilterCtx*>(ctx);
  if (filter == nullptr || filter->key == nullptr || filter->pids == nullptr) return 0;
  if (matches(*static_cast<const Key*>(filter->key))) filter->pids->push_back(data.pid);
  return 0;
}

using std::chrono::steady_clock;

// How long to rest between two walks, and how long zombies are watched for what follows them.
constexpr std::chrono::milliseconds kRest(10);
constexpr std::chrono::seconds kPatience(2);

// True for a process that has ended and only waits for its parent to notice. One whose first thread
// has ended while others still run shows the same state, but has more than one thread.
bool is_zombie(int pid) {
  const std::string path = "/proc/" + std::to_string(pid) + "/status";
  Lines<kLineCapacity> lines(open_to_read(path.c_str()));
  const char* state = find_field(lines, "State:");
  if (state == nullptr || first_word(state) != "Z") return false;
  const char* threads = find_field(lines, "Threads:");
  return threads != nullptr && std::strtol(threads, nullptr, 10) <= 1;
}

// Kills what `filter` collects for `key` until a walk collects nothing: what is restarted meanwhile
// goes too. Zombies cannot be killed, and may be there for ever.
int kill_matching(CUnixProc::EnumCallback filter, const void* key) {
  std::vector<int> pids;
  const std::unique_ptr<CUnixProc::ProcFilterCtx> ctx(new (std::nothrow)
                                                          CUnixProc::ProcFilterCtx{key, &pids});
  if (!ctx) return kUnusable;
  for (auto last_alive = steady_clock::now();; std::this_thread::sleep_for(kRest)) {
    pids.clear();
    CUnixProc::get_all_proc_data(filter, ctx.get());
    if (pids.empty()) return kDone;
    if (!std::all_of(pids.begin(), pids.end(), is_zombie)) {
      last_alive = steady_clock::now();
    } else if (steady_clock::now() - last_alive > kPatience) {
      return kDone;
    }
    for (const int pid : pids) CUnixProc::kill_proc(pid);
  }
}

}  // namespace

int CUnixProc::get_proc_data(int pid, UnixProcData& data) {
  return ProcessReader(AT_FDCWD, "/proc/").read(pid, data);
}

int CUnixProc::get_all_proc_data(EnumCallback callback, void* ctx) {
  ProcWalk processes(begins_with_pid);
  if (!processes) return kNoDirectory;
  ProcessReader reader(processes.fd(), "");
  while (processes.next()) {
    UnixProcData data;
    if (const int code = reader.read(processes.pid(), data)) return code;
    if (stops(callback, data, ctx)) return kStopped;
  }
  return kDone;
}

bool CUnixProc::is_number(const char* text) { return text != nullptr && is_decimal(text); }

// NOLINTNEXTLINE(performance-unnecessary-value-param): the path by value is the interface.
int CUnixProc::get_info(std::string stat_path, int& ppid, long& start_time) {
  if (stat_path.empty()) return kUnusable;
  const Fd file = open_to_read(stat_path.c_str());
  if (!file) return kNotOpened;
  unsigned long ticks = 0;
  read_stat(file.get(), ppid, ticks);
  long boot_time = 0;
  const int code = get_boottime(boot_time);
  if (code == kDone) start_time = detail::start_time(ticks, boot_time);
  return code;
}

int CUnixProc::get_boottime(long& boot_time) {
  return read_key("/proc/stat", "btime", [&boot_time](const char* rest) {
    char* end = nullptr;
    const unsigned long value = std::strtoul(rest, &end, 10);
    if (end != rest) boot_time = static_cast<long>(value);
  });
}

int CUnixProc::get_uid(const std::string& status_path, unsigned int& uid) {
  return read_key(status_path, "Uid:", [&uid](const char* rest) { parse_id(rest, uid); });
}

int CUnixProc::get_gid(const std::string& status_path, unsigned int& gid) {
  return read_key(status_path, "Gid:", [&gid](const char* rest) { parse_id(rest, gid); });
}

int CUnixProc::get_proc_name(const std::string& status_path, std::string& name) {
  return read_key(status_path, "Name:", [&name](const char* rest) { name = first_word(rest); });
}

int CUnixProc::get_cmd(const std::string& cmdline_path, std::string& cmd) {
  return read_args(cmdline_path, kCmdBytes, cmd);
}

int CUnixProc::get_proc_environ(const std::string& environ_path, std::string& environ) {
  const int code = read_args(environ_path, kEnvironBytes, environ);
  if (code == kDone && !is_printable(environ)) environ.clear();
  return code;
}

int CUnixProc::parse_args(char* buffer, int count, std::string& text) {
  if (buffer == nullptr) return kUnusable;
  text.clear();
  const char* const end = buffer + std::max(count, 0);
  for (const char* arg = buffer; end - arg > 1 && *arg != '\0';) {
    const std::size_t length = ::strnlen(arg, static_cast<std::size_t>(end - arg));
    if (!text.empty()) text += ' ';
    text.append(arg, length);
    arg += std::min<std::ptrdiff_t>(static_cast<std::ptrdiff_t>(length) + 1, end - arg);
  }
  return kDone;
}

int CUnixProc::get_proc_name_ext(const std::string& cmdline_path, const std::string& exe_path,
                                 std::string& path) {
  Lines<kLineCapacity> lines(open_to_read(cmdline_path.c_str()));
  if (!lines) return kNotOpened;
  const std::string_view line = lines.next() ? lines.line() : std::string_view();
  return find_executable(line, AT_FDCWD, exe_path.c_str(), path);
}

int CUnixProc::get_path_name(int pid, std::string& path) {
  if (pid < 0) return kUnusable;
  const std::string link = "/proc/" + std::to_string(pid) + "/exe";
  if (!exists(link.c_str())) return kDone;
  if (read_link_at(AT_FDCWD, link.c_str(), 4096, path)) return kDone;
  // Asked again: the process may have ended just now.
  return exists(link.c_str()) ? kNotRead : kDone;
}

int CUnixProc::get_all_path_name(std::vector<std::string>& paths) {
  ProcWalk processes(begins_with_pid);
  if (!processes) return kNoDirectory;
  while (processes.next()) {
    std::string path;
    if (const int code = get_path_name(processes.pid(), path)) return code;
    if (!path.empty() && std::find(paths.begin(), paths.end(), path) == paths.end()) {
      paths.push_back(std::move(path));
    }
  }
  return kDone;
}

int CUnixProc::get_socket_inodes(const std::string& fd_dir, std::vector<unsigned long>& inodes) {
  if (fd_dir.empty()) return kUnusable;
  DirWalk entries(fd_dir.c_str());
  if (!entries) return kNoDirectory;
  constexpr std::size_t kMaxPath = 4095;
  while (const char* name = entries.next()) {
    if (name[0] == '.') continue;
    const std::string entry = join_path(fd_dir.c_str(), name, kMaxPath);
    append_if_socket(AT_FDCWD, entry.c_str(), inodes);
  }
  return kDone;
}

int CUnixProc::one_proc_infos(const char* pid_text, std::vector<std::string>& paths) {
  constexpr std::size_t kMaxPath = 511;
  const std::string dir = std::string("/proc/") + or_empty(pid_text);
  Lines<1024> lines(open_to_read(join_path(dir.c_str(), "maps", kMaxPath).c_str()));
  if (!lines) return kNotOpened;
  std::vector<std::string> fields;
  while (lines.next()) {
    std::string path = mapped_path(std::string(lines.line()), fields);
    if (!path.empty()) paths.push_back(std::move(path));
  }
  return kDone;
}

int CUnixProc::get_all_proc_map_info(std::vector<UnixProcMapInfo>& infos) {
  ProcWalk processes(is_decimal);
  if (!processes) return kNoDirectory;
  while (processes.next()) {
    UnixProcMapInfo info;
    info.pid = processes.pid();
    if (one_proc_infos(processes.name(), info.maps) != kDone || info.maps.empty()) continue;
    std::sort(info.maps.begin(), info.maps.end());
    info.maps.erase(std::unique(info.maps.begin(), info.maps.end()), info.maps.end());
    infos.push_back(std::move(info));
  }
  return kDone;
}

int CUnixProc::filter_procs_by_pathname(const UnixProcData& data, void* ctx) {
  return collect<std::string>(data, ctx, [&data](const std::string& key) {
    return data.path == key || contains(data.cmd, key);
  });
}

int CUnixProc::filter_procs_by_procname(const UnixProcData& data, void* ctx) {
  return collect<std::string>(data, ctx,
                              [&data](const std::string& key) { return data.name == key; });
}

int CUnixProc::filter_procs_by_ppid(const UnixProcData& data, void* ctx) {
  return collect<int>(data, ctx, [&data](int key) { return data.ppid == key; });
}

int CUnixProc::kill_proc(int pid) {
  if (pid <= 0) return kUnusable;
  return ::kill(pid, SIGKILL) == 0 ? kDone : kNotKilled;
}

int CUnixProc::kill_proc_tree(const std::string& key) {
  const bool is_path = exists(key.c_str());
  return kill_matching(is_path ? filter_procs_by_pathname : filter_procs_by_procname, &key);
}

int CUnixProc::kill_proc_tree(const int& pid) {
  // 0 is what process 1, which cannot be killed, and unreadable parents show: nobody's child.
  if (pid <= 0) return kDone;
  const int code = kill_matching(filter_procs_by_ppid, &pid);
  if (code == kDone) kill_proc(pid);
  return code;
}

}  // namespace utility
