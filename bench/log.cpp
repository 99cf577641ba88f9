#include <fcntl.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <memory>
#include <string>

#include "support/harness.h"
#include "utility/CDiyLog.h"

namespace {

constexpr std::size_t kLine = 104;
constexpr std::size_t kPrefix = sizeof "2026/11/14 17:09:44    " - 1;
constexpr std::streamoff kSizeLimit = 10 * 1024 * 1024;

const std::string message(kLine - kPrefix - 1, 'm');

/// A log as it is written with nothing but the standard library.
class PlainLog {
 public:
  explicit PlainLog(std::string path) : path_(std::move(path)), stream_(path_, std::ios::app) {}

  void write(const char* text) {
    const std::time_t now = std::time(nullptr);
    stream_ << std::put_time(std::localtime(&now), "%Y/%m/%d %H:%M:%S    ") << text << std::endl;
    if (stream_.tellp() < kSizeLimit) return;
    stream_.close();
    std::remove(path_.c_str());
    stream_.open(path_, std::ios::app);
  }

 private:
  std::string path_;
  std::ofstream stream_;
};

/// The same bytes and calls, with nothing formatted.
class BareLog {
 public:
  explicit BareLog(const std::string& path)
      : fd_(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666)),
        line_(std::string(kPrefix, 'p') + message + "\n") {}

  void write() const {
    bench::require(::write(fd_, line_.data(), line_.size()) == kLine, "a line is not written");
    ::lseek(fd_, 0, SEEK_CUR);
  }

 private:
  int fd_;
  std::string line_;
};

}  // namespace

void set_up() {
  static utility::CDiyLog ours;
  bench::require(ours.init(bench::scratch_file("library.log"), 0), "no log file");
  static PlainLog plain(bench::scratch_file("plain.log"));
  static const BareLog bare(bench::scratch_file("floor.log"));
  const auto theirs = spdlog::rotating_logger_mt("bench", bench::scratch_file("spdlog.log"),
                                                 static_cast<std::size_t>(kSizeLimit), 0);
  theirs->set_pattern("%Y/%m/%d %H:%M:%S    %v");
  theirs->flush_on(spdlog::level::info);

  const auto write_ours = [] { ours.write_log("%s", message.c_str()); };
  const auto write_plain = [] { plain.write(message.c_str()); };
  const auto write_theirs = [theirs] { theirs->info("{}", message.c_str()); };
  write_ours();
  write_plain();
  write_theirs();
  for (const char* log : {"library.log", "plain.log", "spdlog.log"}) {
    std::ifstream file(bench::scratch_file(log));
    const std::string text(std::istreambuf_iterator<char>(file), {});
    bench::require(text.size() == kLine && text.substr(kPrefix) == message + "\n",
                   std::string(log) + " holds another line");
  }

  bench::work("log/library", write_ours);
  bench::work("log/floor", [] { bare.write(); });
  bench::work("log/ofstream", write_plain);
  bench::work("log/spdlog", write_theirs);
}
