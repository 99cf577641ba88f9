#pragma once

#include <optional>

#include "base/handles.h"
#include "base/text.h"
#include "utility/CUnixProc.h"

namespace utility::detail {

enum ProcCode : int {
  kDone = 0,
  kUnusable = 1,
  kNoLimit = 2,
  kNoChild = 3,
  kNotKilled = 4,
  kNoDirectory = 5,
  kNoMemory = 7,
  kNotRead = 9,
  kNoExecutable = 10,
  kNotOpened = 12,
  kStopped = 13,
};

/// How many bytes of a command line and of an environment are looked at.
constexpr int kCmdBytes = 4096;
constexpr int kEnvironBytes = 40960;
/// Lines of status files and of the first argument arrive in pieces of one byte less.
constexpr int kLineCapacity = 4096;

/// Reads from a stat file its 4th field, the parent, and its 22nd, the start in clock ticks.
///
/// Fields are whatever white space separates, so a blank in the process name shifts them. From the
/// first field on that is no number, nothing is found: `ppid` is left alone and the ticks are 0.
/// Returns the negative count of a failed read, where the file reads as an empty one.
ssize_t read_stat(int fd, int& ppid, unsigned long& start_ticks) noexcept;

/// Seconds since the epoch of a start `ticks` after `boot_time`. The rate is taken to be 100 ticks
/// per second, what the kernel shows on x86-64 whatever it runs at.
long start_time(unsigned long ticks, long boot_time);

/// Takes the low 32 bits of the number that `text` begins with; without one, `id` is left alone.
void parse_id(const char* text, unsigned int& id);

/// The fields of a status file that a process record holds.
struct StatusFields {
  std::string name;
  unsigned int uid = 0;
  unsigned int gid = 0;

  /// Looks for a field in `line`. The first line of a key counts, even where it holds no value.
  void parse_line(const char* line);
  /// True when no further line can add anything.
  bool complete() const { return has_name_ && has_uid_ && has_gid_; }

 private:
  bool has_name_ = false;
  bool has_uid_ = false;
  bool has_gid_ = false;
};

/// The first line of `text` with its line feed, cut to 4095 bytes.
std::string_view first_line(const char* text);

/// True when every byte of `text` is printable.
bool is_printable(std::string_view text);

/// Reads up to `limit` bytes of `file` into `buffer` in one call and joins the NUL-separated texts.
///
/// @return 0, or 9 when the read failed, where `text` is untouched and errno says why.
int read_joined(const Fd& file, char* buffer, int limit, std::string& text);

/// Finds the executable of the process whose first line of arguments is `line` and whose link is
/// `exe` below the open directory `dir`. As CUnixProc::get_proc_name_ext: 0, or 10.
int find_executable(std::string_view line, int dir, const char* exe, std::string& path);

/// Fills the records of a walk over the process table.
///
/// Reads each file of a process with one call; 17 calls and one for each descriptor make a record.
/// Files are named from the open /proc: a number comes again only after all others had their turn,
/// so a directory held open for each process would add two calls and nothing else.
class ProcessReader {
 public:
  /// Processes are found as `prefix` + pid below the open directory `dir`.
  ProcessReader(int dir, const char* prefix);

  /// As CUnixProc::get_proc_data; the boot time is read once for all processes.
  int read(int pid, CUnixProc::UnixProcData& data);

 private:
  const char* path_of(const char* file);
  Fd open(const char* file);
  bool is_missing(const char* file);

  int read_status(Fd file, StatusFields& fields);
  int read_cmd(const Fd& file, CUnixProc::UnixProcData& data);
  int read_stat(const Fd& file, CUnixProc::UnixProcData& data);
  void read_sockets(std::vector<unsigned long>& inodes);
  void read_environ(std::string& environ);

  int dir_;
  std::string path_;
  std::size_t prefix_size_;
  std::size_t process_size_ = 0;
  std::optional<long> boot_time_;
  Buffer cmdline_;
  Buffer text_;
};

}  // namespace utility::detail
