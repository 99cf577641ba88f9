#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <set>
#include <sstream>

#include "faults/faults.h"
#include "support/open_descriptors.h"
#include "support/sandbox.h"
#include "support/shared.h"

namespace faults {
namespace {

constexpr const char* kModeNames[] = {"", "-eintr", "-short"};

using Content = std::optional<std::string>;

Content content(const std::string& file) {
  if (std::filesystem::is_directory(file)) return "";
  return std::filesystem::exists(file) ? Content(sandbox::read_file(file)) : Content();
}

std::string describe(const Outputs& o, const Row& row) {
  std::ostringstream text;
  text << o.text << '|' << o.number << '|' << o.id << '|' << o.time << '|' << o.share << o.found;
  for (const std::string& item : o.list) text << '|' << item;
  for (const unsigned long inode : o.inodes) text << '|' << inode;
  for (const std::string& file : row.files) text << '|' << content(file).value_or("(none)");
  return text.str();
}

// Calls `visit(name, count)` for what was tried.
template <typename Visit>
void for_each_count(const Counts& counts, Visit visit) {
  for (int mode = 0; mode < kModes; ++mode) {
    for (int kind = 0; kind < kMaxKinds; ++kind) {
      if (const int count = counts.of[mode][kind]) {
        visit(std::string(kind_name(kind)) + kModeNames[mode], count);
      }
    }
  }
}

class Trial {
 public:
  Trial(const Row& row, Counts& tried) : row_(row), tried_(tried), untouched_(describe({}, row)) {
    for (const std::string& file : row.files) files_.push_back(content(file));
  }

  void run() {
    attempt({});  // what is done once in a process is done now
    const Run calm = attempt({});
    calm_code_ = code_;
    calm_ = outputs_;
    std::string outcomes;
    for (int mode = 0; mode < kModes; ++mode) {
      for (int kind = 0; kind < kMaxKinds; ++kind) {
        outcomes += try_kind(kind, static_cast<Mode>(mode), calm.steps.of[mode][kind]);
      }
    }
    EXPECT_EQ(outcomes.substr(0, outcomes.find_last_not_of(' ') + 1), row_.outcomes);
    attempt({});
    EXPECT_EQ(outputs_, calm_) << "a fault has lasting effects";
    restore();
  }

 private:
  // What comes of it when each of the `count` steps goes wrong, as in `Row::outcomes`.
  std::string try_kind(int kind, Mode mode, int count) {
    std::set<std::string> seen;
    for (int nth = 0; nth < count; ++nth) {
      const Run run = attempt({kind, mode, nth});
      if (!run.delivered) continue;
      ++tried_.of[mode][kind];
      if (kind != kNew || !run.threw) seen.insert(outcome(run.threw));
    }
    if (seen.empty() || seen == std::set<std::string>{"="}) return {};
    std::string text = std::string(kind_name(kind)) + kModeNames[mode];
    char separator = ':';
    for (const std::string& each : seen) text += std::exchange(separator, ',') + each;
    return text + " ";
  }

  std::string outcome(bool threw) const {
    if (!threw && code_ == calm_code_ && outputs_ == calm_) return "=";
    return (threw ? "throw" : std::to_string(code_)) + (outputs_ == untouched_ ? "" : "~");
  }

  Run attempt(const Plan& plan) {
    SCOPED_TRACE(kind_name(plan.kind) + (kModeNames[plan.mode] + std::to_string(plan.nth)));
    restore();
    const std::size_t descriptors = open_descriptors();
    Outputs outputs;
    const Run run = faults::run([&] { code_ = row_.operate(outputs); }, plan);
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
    outputs_ = describe(outputs, row_);
    return run;
  }

  void restore() const {
    for (std::size_t i = 0; i < files_.size(); ++i) {
      const std::string& file = row_.files[i];
      if (content(file) == files_[i]) continue;
      std::filesystem::remove(file);
      if (files_[i]) sandbox::write_file(file, *files_[i]);
    }
  }

  const Row& row_;
  Counts& tried_;
  std::vector<Content> files_;
  const std::string untouched_;
  std::string calm_;
  long calm_code_ = 0;
  std::string outputs_;
  long code_ = 0;
};

void try_all(const std::vector<Row>& rows, Counts& total) {
  const bool prints = std::getenv("UTILITY_FAULTS") != nullptr;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Counts tried;
    Trial(row, tried).run();
    for (int mode = 0; mode < kModes; ++mode) {
      for (int kind = 0; kind < kMaxKinds; ++kind) total.of[mode][kind] += tried.of[mode][kind];
    }
    if (!prints) continue;
    std::printf("%s", row.name);
    for_each_count(tried,
                   [](const std::string& name, int n) { std::printf("\t%s %d", name.c_str(), n); });
    std::puts("");
  }
}

}  // namespace

void try_rows(const std::function<void()>& prepare, const std::vector<Row>& rows) {
  const Shared<Counts> shared;
  Counts& total = *shared;
  sandbox::run([&] {
    std::filesystem::current_path(sandbox::scratch());
    prepare();
    try_all(rows, total);
  });
  using ::testing::Test;
  Test::RecordProperty("operations", static_cast<int>(rows.size()));
  for_each_count(total,
                 [](const std::string& name, int count) { Test::RecordProperty(name, count); });
}

}  // namespace faults
