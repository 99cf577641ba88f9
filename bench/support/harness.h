#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

// What every program here has in common. A program registers pieces of work, named
// "<row>/<who>[/<size>]", as Google Benchmarks; the contestants of one row do the same work, and
// the program first requires that their results agree.
namespace bench {

/// True for a run that only shows that everything works; loads are small then.
bool smoke();

/// False where the system calls of one piece of work are counted: nothing else is to be done then.
bool checking();

/// Ends the program with `what` on standard error unless `agreed`.
void require(bool agreed, const std::string& what);

/// Has `--run=NAME` call `run` without Google Benchmark around it, for counting its system calls.
void register_run(const std::string& name, std::function<void()> run);

/// Registers `run`, measured by the CPU time of this thread.
template <class Run>
void work(const std::string& name, Run run) {
  register_run(name, run);
  benchmark::RegisterBenchmark(name.c_str(), [run](benchmark::State& state) mutable {
    for (auto _ : state) run();
  });
}

/// Registers `run`, which returns the seconds that it took: those of other programs.
void timed_work(const std::string& name, std::function<double()> run);

/// `texts` as an argument vector, ended by a null pointer; valid as long as they are.
std::vector<char*> c_array(const std::vector<std::string>& texts);

/// Runs a program to its end and returns the CPU seconds that it took.
///
/// @param output  receives its standard output; null throws that away.
double run_program(const std::vector<std::string>& arguments, std::string* output = nullptr);

/// The value of the option "--NAME=", or `otherwise`.
int option(const char* name, int otherwise);

/// A file of this program's own, removed at its end.
std::string scratch_file(const std::string& name);

}  // namespace bench

/// What a program defines: checks that the contestants agree and registers them.
void set_up();
