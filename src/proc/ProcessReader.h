#pragma once

#include <optional>

#include "base/handles.h"
#include "proc/CUnixProc_text.h"
#include "utility/CUnixProc.h"

namespace utility::detail {

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
