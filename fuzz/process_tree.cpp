// One process as a tree of files in the place of /proc/1: the reader of the walk against the
// operations that read one file each, and these against plain rules.
//
// An input is a list of files: the byte 0x1E, a letter that names the file, its content. "S" is
// status, "A" cmdline, "T" stat, "E" environ, "M" maps, "X" the target of exe, "F" the descriptors,
// a byte each; a small letter makes a directory of that name. What is not in the list is missing.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "base/handles.h"
#include "check.h"
#include "lines.h"
#include "proc/ProcessReader.h"
#include "scratch.h"
#include "utility/CMemInfo.h"
#include "utility/CUnixProc.h"
#include "utility/CUnixProcNet.h"

using namespace utility;
using ProcData = CUnixProc::UnixProcData;

namespace {

constexpr std::string_view kLetters = "SATEM";
constexpr const char* kFiles[] = {"status", "cmdline", "stat", "environ", "maps"};
constexpr int kGone = 12;  // what an operation says of a file that it cannot open

// Where the tree is made, what its descriptors lead to, and what is read beside it.
struct Place {
  Place() : dir(scratch::dir() + "/tree") {
    for (const char* name : {"/tree", "/tree/1", "/tree/1/fd"}) {
      FUZZ_CHECK(::mkdir((scratch::dir() + name).c_str(), 0755) == 0);
    }
    root = detail::Fd(::open(dir.c_str(), O_RDONLY | O_DIRECTORY));
    scratch::put_over(dir + "/1", "/proc/1");
    stat.write("cpu 1 2 3\nbtime 1700000000\n");
    memory.write("MemTotal: 1000 kB\nMemFree: 1 kB\nBuffers: 1 kB\nCached: 1 kB\n");
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un name{AF_UNIX, {}};
    (scratch::dir() + "/socket").copy(name.sun_path, sizeof name.sun_path - 1);
    FUZZ_CHECK(::bind(fd, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0);
    ::close(fd);
    struct stat status {};
    FUZZ_CHECK(::stat(name.sun_path, &status) == 0);
    inode = status.st_ino;
  }

  std::string dir;
  scratch::File stat{"stat", "/proc/stat"};
  scratch::File memory{"meminfo", "/proc/meminfo"};
  detail::Fd root;
  unsigned long inode = 0;
};

void clear(const std::string& path) {
  if (::unlink(path.c_str()) != 0) ::rmdir(path.c_str());
}

void make_file(const std::string& path, bool is_directory, std::string_view content) {
  if (is_directory) {
    FUZZ_CHECK(::mkdir(path.c_str(), 0755) == 0);
    return;
  }
  const detail::Fd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  const auto size = static_cast<ssize_t>(content.size());
  FUZZ_CHECK(fd && ::write(fd.get(), content.data(), content.size()) == size);
}

// Links that may lead to the socket, to another file or nowhere, under numbers and other names.
void make_descriptors(const std::string& dir, std::string_view kinds) {
  static const std::string socket = scratch::dir() + "/socket";
  static const char* const targets[] = {socket.c_str(), "../stat", "nowhere", "socket:[1]"};
  static constexpr const char* kEnds[] = {"", "x"};
  for (std::size_t i = 0; i < kinds.size(); ++i) {
    const auto kind = static_cast<unsigned char>(kinds[i]);
    const std::string name = (kind & 8 ? "." : "") + std::to_string(i) + kEnds[kind >> 2 & 1];
    FUZZ_CHECK(::symlink(targets[kind & 3], (dir + name).c_str()) == 0);
  }
}

// The tree of one input, gone again with the object.
class Tree {
 public:
  Tree(const std::string& dir, std::string_view input) : dir_(dir + "/1/") {
    while (!input.empty()) {
      const std::size_t end = std::min(input.find('\x1e', 1), input.size());
      if (input.size() > 1 && input[0] == '\x1e') add(input[1], input.substr(2, end - 2));
      input.remove_prefix(end);
    }
  }
  ~Tree() {
    for (const std::string& path : made_) clear(path);
  }
  Tree(const Tree&) = delete;
  Tree& operator=(const Tree&) = delete;

  bool has(const std::string& name) const { return ::access((dir_ + name).c_str(), F_OK) == 0; }

 private:
  void add(char letter, std::string_view content) {
    const bool is_directory = letter >= 'a' && letter <= 'z';
    const char large = static_cast<char>(is_directory ? letter - 'a' + 'A' : letter);
    const std::size_t file = kLetters.find(large);
    if (file != std::string_view::npos && !has(kFiles[file])) {
      made_.push_back(dir_ + kFiles[file]);
      make_file(made_.back(), is_directory, content);
    } else if (letter == 'X') {
      const std::string target(content.substr(0, content.find('\0')));
      if (::symlink(target.c_str(), (dir_ + "exe").c_str()) == 0) made_.push_back(dir_ + "exe");
    } else if (letter == 'F' && !has_descriptors_) {
      has_descriptors_ = true;
      content = content.substr(0, 16);
      make_descriptors(dir_ + "fd/", content);
      for (std::size_t i = 0; i < content.size(); ++i) {
        for (const char* dot : {"", "."}) {
          for (const char* end : {"", "x"}) {
            made_.push_back(dir_ + "fd/" + dot + std::to_string(i) + end);
          }
        }
      }
    }
  }

  std::string dir_;
  std::vector<std::string> made_;
  bool has_descriptors_ = false;
};

ProcData fresh() {
  ProcData data;
  data.uid = 7;
  data.gid = 8;
  data.path = "path before";
  data.environ = "environ before";
  return data;
}

// A record as the operations that read one file each make it.
int read_singly(ProcData& data) {
  const std::string dir = "/proc/1/";
  data.pid = 1;
  for (const char* file : {"cmdline", "stat", "status"}) {
    if (::access((dir + file).c_str(), F_OK) != 0) return 0;
  }
  unsigned uid = data.uid;
  unsigned gid = data.gid;
  int code = CUnixProc::get_proc_name(dir + "status", data.name);
  if (code != 0) return code;
  FUZZ_CHECK(CUnixProc::get_uid(dir + "status", uid) == 0);
  FUZZ_CHECK(CUnixProc::get_gid(dir + "status", gid) == 0);

  code = CUnixProc::get_cmd(dir + "cmdline", data.cmd);
  if (code != 0) return code;
  if (data.cmd.empty()) data.cmd = "[" + data.name + "]";
  data.uid = uid;
  code = CUnixProc::get_info(dir + "stat", data.ppid, data.start_time);
  if (code != 0) return code;
  data.gid = gid;

  CUnixProc::get_proc_name_ext(dir + "cmdline", dir + "exe", data.path);
  CUnixProc::get_socket_inodes(dir + "fd", data.inodes);
  CUnixProc::get_proc_environ(dir + "environ", data.environ);
  const std::string file = data.path.substr(data.path.rfind('/') + 1);
  if (!data.path.empty() && !data.name.empty() && file.size() > data.name.size()) data.name = file;
  return 0;
}

void check_same(const ProcData& a, const ProcData& b) {
  FUZZ_CHECK(a.pid == b.pid && a.ppid == b.ppid && a.uid == b.uid && a.gid == b.gid);
  FUZZ_CHECK(a.start_time == b.start_time && a.inodes == b.inodes);
  FUZZ_CHECK(a.name == b.name && a.cmd == b.cmd && a.path == b.path && a.environ == b.environ);
}

void check_record(const Place& place) {
  ProcData singly = fresh();
  ProcData by_pid = fresh();
  ProcData in_walk = fresh();
  const int code = read_singly(singly);
  FUZZ_CHECK(CUnixProc::get_proc_data(1, by_pid) == code);
  FUZZ_CHECK(detail::ProcessReader(place.root.get(), "").read(1, in_walk) == code);
  check_same(by_pid, singly);
  check_same(in_walk, singly);
}

void check_descriptors(const Place& place) {
  std::vector<unsigned long> inodes;
  FUZZ_CHECK(CUnixProc::get_socket_inodes("/proc/1/fd", inodes) == 0);
  for (const unsigned long inode : inodes) FUZZ_CHECK(inode == place.inode);
  std::vector<unsigned long> numbered;
  const int code = CUnixProcNet::get_proc_socket_inodes("/proc/1/fd", numbered);
  FUZZ_CHECK(code == (numbered.empty() ? 2 : 0) && numbered.size() <= inodes.size());
}

void check_links_and_maps(const Tree& tree) {
  std::string path = "before";
  FUZZ_CHECK(CUnixProc::get_path_name(1, path) == 0);
  FUZZ_CHECK(tree.has("exe") || path == "before");

  std::vector<std::string> maps{"before"};
  const int code = CUnixProc::one_proc_infos("1", maps);
  FUZZ_CHECK(code == (tree.has("maps") ? 0 : kGone) && maps[0] == "before");
  for (const std::string& map : maps) {
    FUZZ_CHECK(map == "before" || words_of(map) == std::vector<std::string>{map});
  }

  double usage = -1;
  const bool has_status = tree.has("status");
  FUZZ_CHECK(CMemInfo::get_process_mem_usage(1, usage) == (has_status ? 0 : 1));
  FUZZ_CHECK(has_status || usage == -1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Place* const place = new Place;
  const Tree tree(place->dir, text_of(data, size, 49152));
  check_record(*place);
  check_descriptors(*place);
  check_links_and_maps(tree);
  return 0;
}
