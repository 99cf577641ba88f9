#pragma once

#include <functional>
#include <string>
#include <vector>

/// Makes the steps of an operation go wrong one at a time: its allocations, and the system calls
/// that the C library makes for it.
namespace faults {

/// Kinds of steps: allocations, then system calls, of which alike ones count as one kind.
enum Kind : int { kNew, kNothrow, kMalloc, kFirstCall };
const char* kind_name(int kind);
constexpr int kMaxKinds = 32;

/// What a step does instead: it fails, is interrupted by a signal, or does less than was asked for.
enum Mode : int { kFail, kInterrupt, kShorten, kModes };

/// The step that comes after `nth` others of its kind that can go wrong so. -1: none.
struct Plan {
  int kind = kNew;
  Mode mode = kFail;
  int nth = -1;
};

struct Counts {
  int of[kModes][kMaxKinds] = {};
};

struct Run {
  bool threw = false;      ///< std::bad_alloc came out
  bool delivered = false;  ///< the step was taken
  Counts steps;            ///< those that could go wrong, by mode and kind
};

/// Runs `operation` and awaits the end of all processes that it started. Throws where that takes
/// longer than any operation may.
Run run(const std::function<void()>& operation, const Plan& plan);

/// From now on this thread's allocations are counted in `run` and go by `plan`; null ends that.
void watch_allocations(Run* run, const Plan& plan) noexcept;

/// Where operations put what they find; as here before each run.
struct Outputs {
  std::string text = "untouched";
  int number = 77;
  unsigned id = 77;
  long time = 77;
  double share = 77;
  bool found = true;
  std::vector<std::string> list = {"first"};
  std::vector<unsigned long> inodes = {77};
};

/// An operation that gives a code, and what comes of each kind of step that fails (or, with
/// "-eintr" and "-short", goes wrong so). "=" is the undisturbed outcome, a number the code with
/// all outputs untouched, "throw" std::bad_alloc; with "~" outputs are neither. What is not named
/// is "=" only; that "new" may throw goes without saying.
struct Row {
  const char* name;
  std::function<long(Outputs&)> operate;
  std::string outcomes;
  std::vector<std::string> files = {};  ///< outputs too; as after `prepare` before each run
};
#define CALL(expression) \
#expression,           \
      [](faults::Outputs & o) { return static_cast<void>(o), static_cast<long>(expression); }
#define TEXT(expression) CALL((o.text = (expression), 0))

/// Tries every fault on every row, in a sandbox, in its scratch directory, after `prepare`. Prints
/// what was tried where the environment has UTILITY_FAULTS.
void try_rows(const std::function<void()>& prepare, const std::vector<Row>& rows);

/// A callback that notes names.
template <typename Record>
int note(const Record& record, void* outputs) {
  static_cast<Outputs*>(outputs)->list.push_back(record.name);
  return 0;
}

}  // namespace faults
