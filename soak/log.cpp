#include "log.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "support/harness.h"
#include "utility/CDiyLog.h"
#include "watch.h"

namespace soak {
namespace {

constexpr std::size_t kProcesses = 2;
constexpr std::size_t kThreads = 8;
constexpr std::size_t kStamp = sizeof "2026/11/14 17:09:44    " - 1;

// What was read: how often each line of each writer.
using Tally = std::vector<std::vector<int>>;

std::string message(std::size_t writer, std::size_t number) {
  return std::to_string(writer) + " " + std::to_string(number) + " " + std::string(70, 'm');
}

// A message of one byte that takes a descriptor along.
class Parcel {
 public:
  explicit Parcel(int fd = -1) {
    header_.msg_iov = &content_;
    header_.msg_iovlen = 1;
    header_.msg_control = control_.data();
    header_.msg_controllen = control_.size();
    cmsghdr* part = CMSG_FIRSTHDR(&header_);
    part->cmsg_len = CMSG_LEN(sizeof fd);
    part->cmsg_level = SOL_SOCKET;
    part->cmsg_type = SCM_RIGHTS;
    descriptor() = fd;
  }
  Parcel(const Parcel&) = delete;
  Parcel& operator=(const Parcel&) = delete;

  int& descriptor() { return *reinterpret_cast<int*>(control_.data() + CMSG_LEN(0)); }
  bool send(int socket) { return ::sendmsg(socket, &header_, 0) == 1; }
  bool receive(int socket) { return ::recvmsg(socket, &header_, 0) == 1; }

 private:
  char byte_ = 0;
  iovec content_{&byte_, 1};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control_{};
  msghdr header_{};
};

// One process's part of the lines. The log deletes its file whenever that is full, so each new file
// goes to `reader` as soon as a line is in it.
void write_lines(std::size_t process, const std::string& path, std::size_t each, int reader) {
  // The log, and the time zone's file at its first line; the memory is rather that of our threads.
  watch("log, process " + std::to_string(process), {1024 + 256 * kThreads, 2}, [&] {
    const int fd = ::dup(reader);  // the number that the log's files will have
    ::close(fd);
    utility::CDiyLog log;
    bench::require(log.init(path, 0), "no log file");
    std::atomic<ino_t> sent{0};
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kThreads; ++i) {
      threads.emplace_back([&, writer = process * kThreads + i] {
        for (std::size_t number = 0; number < each; ++number) {
          log.write_log("%s", message(writer, number).c_str());
          struct stat file {};
          if (::fstat(fd, &file) != 0 || file.st_ino == sent) continue;
          bench::require(Parcel(fd).send(reader), "a log file could not be sent");
          sent = file.st_ino;
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    return std::to_string(kThreads * each) + " lines by " + std::to_string(kThreads) + " threads";
  });
}

// All files that the log has had, by inode numbers; until the last writer is gone.
std::map<ino_t, int> receive_files(int socket) {
  std::map<ino_t, int> files;
  for (;;) {
    Parcel parcel;
    if (!parcel.receive(socket)) return files;
    struct stat file {};
    ::fstat(parcel.descriptor(), &file);
    if (!files.emplace(file.st_ino, parcel.descriptor()).second) ::close(parcel.descriptor());
  }
}

void count_lines(int fd, Tally& tally) {
  std::ifstream file("/proc/self/fd/" + std::to_string(fd));
  for (std::string line; std::getline(file, line);) {
    bench::require(line.size() > kStamp, "a line is cut: " + line);
    char* rest = nullptr;
    const std::size_t writer = std::strtoul(line.c_str() + kStamp, &rest, 10);
    const std::size_t number = std::strtoul(rest, nullptr, 10);
    bench::require(line.substr(kStamp) == message(writer, number), "a line is torn: " + line);
    ++tally.at(writer).at(number);
  }
}

}  // namespace

void write_logs() {
  const std::size_t each = (bench::smoke() ? 240000 : 1000000) / (kProcesses * kThreads);
  std::array<int, 2> ends{-1, -1};
  bench::require(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) == 0, "no socket pair");
  std::vector<pid_t> processes;
  const std::string path = bench::scratch_file("log");
  for (std::size_t i = 0; i < kProcesses; ++i) {
    processes.push_back(::fork());
    if (processes.back() != 0) continue;
    ::close(ends[0]);
    write_lines(i, path, each, ends[1]);
    ::_exit(0);
  }
  ::close(ends[1]);
  const std::map<ino_t, int> files = receive_files(ends[0]);
  for (const pid_t process : processes) {
    int status = 0;
    ::waitpid(process, &status, 0);
    bench::require(status == 0, "a writer failed");
  }
  Tally tally(kProcesses * kThreads, std::vector<int>(each));
  for (const auto& file : files) count_lines(file.second, tally);
  bench::require(tally == Tally(tally.size(), std::vector<int>(each, 1)),
                 "lines were lost or came twice");
  bench::require(files.size() > kProcesses, "the log was never full");
  std::fprintf(stderr, "    %zu lines in %zu files\n", tally.size() * each, files.size());
}

}  // namespace soak
