#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "support/floor.h"
#include "support/harness.h"
#include "support/load.h"
#include "utility/CUnixProcNet.h"

namespace {

using utility::CUnixProcNet;
using Lines = std::vector<std::string>;

Lines sorted(Lines lines) {
  std::sort(lines.begin(), lines.end());
  return lines;
}

std::string line(int pid, const std::string& local_port, const std::string& remote_port) {
  return std::to_string(pid) + ": " + local_port + " " + remote_port;
}

Lines library_lines() {
  std::vector<CUnixProcNet::ProcNetInfo> found;
  bench::require(CUnixProcNet::get_proc_net_info(found) == 0, "the library found no sockets");
  Lines lines;
  for (const auto& one : found) {
    lines.push_back(line(one.pid, std::to_string(one.local_port), std::to_string(one.remote_port)));
  }
  return sorted(std::move(lines));
}

// "tcp ESTAB 0 0 127.0.0.1:37000 127.0.0.1:37001 users:(("name",pid=12,fd=4),...)"
Lines ss_lines() {
  std::string output;
  bench::run_program({"ss", "-Htunap"}, &output);
  std::istringstream text(output);
  Lines lines;
  for (std::string row; std::getline(text, row);) {
    std::istringstream columns(row);
    std::string skipped;
    std::string local;
    std::string remote;
    columns >> skipped >> skipped >> skipped >> skipped >> local >> remote;
    const auto port = [](const std::string& address) {
      const std::string digits = address.substr(address.rfind(':') + 1);
      return digits == "*" ? "0" : digits;
    };
    for (std::size_t at = 0; (at = row.find("pid=", at)) != std::string::npos; ++at) {
      lines.push_back(line(std::atoi(row.c_str() + at + 4), port(local), port(remote)));
    }
  }
  return sorted(std::move(lines));
}

const std::vector<std::string> kLsof{"lsof", "-i", "-n", "-P", "-w"};

std::size_t lsof_count() {
  std::string output;
  bench::run_program(kLsof, &output);
  return static_cast<std::size_t>(std::count(output.begin(), output.end(), '\n')) - 1;
}

void floor_walk() {
  for (const char* table : {"/proc/net/tcp", "/proc/net/tcp6", "/proc/net/udp", "/proc/net/udp6"}) {
    bench::floor::touch_table(table);
  }
  bench::floor::each_process([](int proc, const char* name) {
    const std::string process = name;
    if (bench::floor::touch_descriptors(proc, (process + "/fd").c_str()) == 0) return;
    std::array<char, 1024> target;
    benchmark::DoNotOptimize(
        ::readlinkat(proc, (process + "/root").c_str(), target.data(), target.size()));
  });
}

void compare_sockets(int sockets) {
  const Lines ours = library_lines();
  bench::require(static_cast<int>(ours.size()) == sockets, "the library misses sockets");
  bench::require(ours == ss_lines(), "ss and the library find other sockets");
  bench::require(ours.size() == lsof_count(), "lsof and the library find other sockets");
}

}  // namespace

void set_up() {
  const int sockets = bench::option("sockets", bench::smoke() ? 500 : 20000);
  const int processes = bench::smoke() ? 10 : 100;
  static const bench::Load load({processes, 0, sockets / processes, 0});

  if (bench::checking()) compare_sockets(sockets);

  const std::string size = "/" + std::to_string(sockets);
  bench::work("sockets/library" + size, [] {
    std::vector<CUnixProcNet::ProcNetInfo> found;
    CUnixProcNet::get_proc_net_info(found);
    benchmark::DoNotOptimize(found.data());
  });
  bench::work("sockets/floor" + size, floor_walk);
  bench::timed_work("sockets/ss" + size, [] { return bench::run_program({"ss", "-tunap"}); });
  bench::timed_work("sockets/lsof" + size, [] { return bench::run_program(kLsof); });
}
