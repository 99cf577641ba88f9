#include "proc/ProcessReader.h"

#include <cctype>

#include "base/dir_walk.h"
#include "base/io.h"
#include "base/paths.h"

namespace utility::detail {
namespace {

using ProcData = CUnixProc::UnixProcData;

// Inside this file: the process ended between two steps.
constexpr int kVanished = -1;

// What a failed read means; the kernel tells of a process that is gone.
int read_failure() { return errno == ESRCH ? kVanished : kNotRead; }

// The kernel cuts names to 15 bytes; the file name of the executable tells the rest.
void lengthen_name(ProcData& data) {
  if (data.path.empty() || data.name.empty()) return;
  const std::size_t file_name = data.path.rfind('/') + 1;  // 0 without any "/"
  if (data.path.size() - file_name > data.name.size()) data.name = data.path.substr(file_name);
}

// The first piece of a command line's first line.
std::string_view first_piece(std::string_view line) {
  constexpr std::string_view kSeparators = "0x\t ";
  const std::size_t begin = line.find_first_not_of(kSeparators);
  if (begin == std::string_view::npos) return {};
  return line.substr(begin, line.find_first_of(kSeparators, begin) - begin);
}

}  // namespace

ssize_t read_stat(int fd, int& ppid, unsigned long& start_ticks) noexcept {
  start_ticks = 0;
  std::array<char, kLineCapacity + 1> text;
  const ssize_t count = read_some(fd, text.data(), kLineCapacity);
  char* const end = text.data() + std::max<ssize_t>(count, 0);
  *end = '\0';
  std::replace(text.data(), end, '\0', '?');  // to the scan it is a byte like any other
  // pid, name, state, parent, seventeen numbers of no interest, start. How far the scan comes is
  // not looked at, and numbers out of range are taken as it takes them.
  constexpr char kFormat[] = "%*d%*s%*s%d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%*d%lu";
  // NOLINTNEXTLINE(cert-err34-c)
  static_cast<void>(std::sscanf(text.data(), kFormat, &ppid, &start_ticks));
  return count;
}

long start_time(unsigned long ticks, long boot_time) {
  // Added without sign: a file may say anything.
  return static_cast<long>(ticks / 100 + static_cast<unsigned long>(boot_time));
}

void parse_id(const char* text, unsigned int& id) {
  char* end = nullptr;
  const long value = std::strtol(text, &end, 10);
  if (end != text) id = static_cast<unsigned int>(value);
}

void StatusFields::parse_line(const char* line) {
  const std::string_view key = first_word(line);
  const char* const value = key.data() + key.size();
  if (!has_name_ && key == "Name:") {
    has_name_ = true;
    name = first_word(value);
  } else if (!has_uid_ && key == "Uid:") {
    has_uid_ = true;
    parse_id(value, uid);
  } else if (!has_gid_ && key == "Gid:") {
    has_gid_ = true;
    parse_id(value, gid);
  }
}

std::string_view first_line(const char* text) {
  std::string_view rest = text;
  return take_line(rest, kLineCapacity - 1);
}

bool is_printable(std::string_view text) {
  // Nearly always ASCII: asking the locale for each byte would double the work of a walk.
  return std::all_of(text.begin(), text.end(), [](unsigned char c) {
    return (c >= ' ' && c <= '~') || std::isprint(c) != 0;
  });
}

int read_joined(const Fd& file, char* buffer, int limit, std::string& text) {
  const ssize_t count = read_some(file.get(), buffer, static_cast<std::size_t>(limit));
  if (count < 0) return kNotRead;
  return CUnixProc::parse_args(buffer, static_cast<int>(count), text);
}

int find_executable(std::string_view line, int dir, const char* exe, std::string& path) {
  std::string found(first_piece(line));
  if (found.empty() || found.front() != '/' || !FileStatus(found.c_str()).is(S_IFREG)) {
    if (!read_link_at(dir, exe, 4096, found)) return kNoExecutable;
    CStr::trim(found);
  }
  path = std::move(found);
  return kDone;
}

ProcessReader::ProcessReader(int dir, const char* prefix)
    : dir_(dir),
      path_(prefix),
      prefix_size_(path_.size()),
      cmdline_(make_buffer(kCmdBytes + 1)),
      text_(make_buffer(kEnvironBytes + 1)) {}

int ProcessReader::read(int pid, ProcData& data) {
  data.pid = pid;
  path_.resize(prefix_size_);
  path_.append(std::to_string(pid)).append("/");
  process_size_ = path_.size();

  const Fd cmdline = open("cmdline");
  const Fd stat = open("stat");
  Fd status = open("status");
  const bool all_open = cmdline && stat && status;
  if (!all_open && (is_missing("cmdline") || is_missing("stat") || is_missing("status"))) {
    return kDone;
  }

  StatusFields fields;
  fields.uid = data.uid;
  fields.gid = data.gid;
  int code = read_status(std::move(status), fields);
  if (code == kDone) {
    data.name = std::move(fields.name);
    code = read_cmd(cmdline, data);
  }
  if (code == kDone) {
    data.uid = fields.uid;
    code = read_stat(stat, data);
  }
  if (code != kDone) return code == kVanished ? kDone : code;
  data.gid = fields.gid;

  find_executable(first_line(cmdline_.get()), dir_, path_of("exe"), data.path);
  read_sockets(data.inodes);
  read_environ(data.environ);
  lengthen_name(data);
  return kDone;
}

// The path of a file of the process in hand; valid until the next call.
const char* ProcessReader::path_of(const char* file) {
  path_.resize(process_size_);
  return path_.append(file).c_str();
}

Fd ProcessReader::open(const char* file) {
  return Fd(::openat(dir_, path_of(file), O_RDONLY | O_CLOEXEC));
}

bool ProcessReader::is_missing(const char* file) {
  return ::faccessat(dir_, path_of(file), F_OK, 0) != 0;
}

int ProcessReader::read_status(Fd file, StatusFields& fields) {
  Lines<kLineCapacity> lines(std::move(file));
  if (!lines) return kNotOpened;
  if (!cmdline_ || !text_) return kNoMemory;
  while (!fields.complete() && lines.next()) fields.parse_line(lines.text());
  return lines.failed() ? read_failure() : kDone;
}

int ProcessReader::read_cmd(const Fd& file, ProcData& data) {
  if (!file) return kNotOpened;
  const ssize_t count = read_some(file.get(), cmdline_.get(), kCmdBytes);
  if (count < 0) return read_failure();
  cmdline_[static_cast<std::size_t>(count)] = '\0';
  CUnixProc::parse_args(cmdline_.get(), static_cast<int>(count), data.cmd);
  if (data.cmd.empty()) data.cmd = "[" + data.name + "]";
  return kDone;
}

int ProcessReader::read_stat(const Fd& file, ProcData& data) {
  if (!file) return kNotOpened;
  unsigned long ticks = 0;
  if (detail::read_stat(file.get(), data.ppid, ticks) < 0 && errno == ESRCH) return kVanished;
  if (!boot_time_) {
    long boot_time = 0;
    if (const int code = CUnixProc::get_boottime(boot_time)) return code;
    boot_time_ = boot_time;
  }
  data.start_time = start_time(ticks, *boot_time_);
  return kDone;
}

void ProcessReader::read_sockets(std::vector<unsigned long>& inodes) {
  DirWalk descriptors(dir_, path_of("fd"));
  while (const char* name = descriptors.next()) {
    if (name[0] != '.') append_if_socket(descriptors.fd(), name, inodes);
  }
}

void ProcessReader::read_environ(std::string& environ) {
  const Fd file = open("environ");
  if (!file) {
    if (is_missing("environ")) environ.clear();
    return;
  }
  if (read_joined(file, text_.get(), kEnvironBytes, environ) != kDone) return;
  if (!is_printable(environ)) environ.clear();
}

}  // namespace utility::detail
