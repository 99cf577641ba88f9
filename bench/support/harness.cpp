#include "support/harness.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <string_view>

#include "support/load.h"

namespace bench {
namespace {

std::map<std::string, std::function<void()>>& runs() {
  static std::map<std::string, std::function<void()>> all;
  return all;
}

std::vector<std::string>& options() {
  static std::vector<std::string> all;
  return all;
}

// Null when the option is not there.
const char* option_text(const std::string& name) {
  for (const std::string& given : options()) {
    if (given.compare(0, name.size(), name) == 0) return given.c_str() + name.size();
  }
  return nullptr;
}

double seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

struct Scratch {
  std::string dir;
  Scratch() {
    dir = std::filesystem::temp_directory_path() / ("utility_bench." + std::string(6, 'X'));
    require(::mkdtemp(dir.data()) != nullptr, "no directory for scratch files");
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  ~Scratch() {
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
  }
};

}  // namespace

bool smoke() { return option_text("--smoke") != nullptr; }

bool checking() { return option_text("--run=") == nullptr; }

int option(const char* name, int otherwise) {
  const char* text = option_text(std::string("--") + name + "=");
  return text == nullptr ? otherwise : std::atoi(text);
}

void require(bool agreed, const std::string& what) {
  if (agreed) return;
  std::fprintf(stderr, "bench: %s\n", what.c_str());
  std::exit(1);
}

void register_run(const std::string& name, std::function<void()> run) {
  runs()[name] = std::move(run);
}

void timed_work(const std::string& name, std::function<double()> run) {
  register_run(name, run);
  benchmark::RegisterBenchmark(name.c_str(), [run](benchmark::State& state) {
    for (auto _ : state) state.SetIterationTime(run());
  })->UseManualTime();
}

std::vector<char*> c_array(const std::vector<std::string>& texts) {
  std::vector<char*> array;
  for (const std::string& text : texts) array.push_back(const_cast<char*>(text.c_str()));
  array.push_back(nullptr);
  return array;
}

double run_program(const std::vector<std::string>& arguments, std::string* output) {
  const std::vector<char*> argv = c_array(arguments);
  std::array<int, 2> ends{-1, -1};
  require(::pipe2(ends.data(), O_CLOEXEC) == 0, "no pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (output != nullptr) {
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  } else {
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  }
  pid_t pid = 0;
  const bool started = ::posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0;
  posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);
  require(started, "cannot run " + arguments[0]);

  std::array<char, 65536> block;
  for (ssize_t got = 0; (got = ::read(ends[0], block.data(), block.size())) > 0;) {
    if (output != nullptr) output->append(block.data(), static_cast<std::size_t>(got));
  }
  ::close(ends[0]);
  int status = 0;
  rusage used{};
  while (::wait4(pid, &status, 0, &used) < 0 && errno == EINTR) continue;
  require(WIFEXITED(status) && WEXITSTATUS(status) == 0, arguments[0] + " failed");
  return seconds(used.ru_utime) + seconds(used.ru_stime);
}

std::string scratch_file(const std::string& name) {
  static const Scratch scratch;
  return scratch.dir + "/" + name;
}

}  // namespace bench

int main(int argc, char** argv) {
  using namespace bench;
  if (argc > 1 && std::strcmp(argv[1], "--load") == 0) return serve_load(argc, argv);
  options().assign(argv + 1, argv + argc);
  set_up();
  if (const char* name = option_text("--run=")) {
    require(runs().count(name) != 0, std::string("no work named ") + name);
    for (int times = option("times", 1); times > 0; --times) runs()[name]();
    return 0;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
