// Operations that change a file are killed before each of their system calls in turn. What is found
// then is one of the states that the documentation lists, and every one of these is found.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>

#include "support/sandbox.h"
#include "support/shared.h"
#include "utility/CCSV.h"
#include "utility/CDiyLog.h"
#include "utility/CUnixLog.h"
#include "utility/CUnixUser.h"
#include "utility/CXmlEx.h"

namespace {

namespace fs = std::filesystem;
using namespace utility;

// What each of the files holds, or that it is missing. The log file, whose lines nobody can
// foresee, is told by its size.
using Files = std::vector<std::optional<std::string>>;
constexpr std::nullopt_t kMissing = std::nullopt;
constexpr char kLog[] = "./t.log";

struct State {
  const char* name;
  Files files;
  Files next;    // after the operation ran once more
  int code = 0;  // of that run
};

struct Operation {
  const char* name;
  std::vector<std::string> paths;
  std::vector<State> states;  // the first is the one before
  std::function<int()> run;   // marks what is to be looked at
};

// Nothing else closes these, so the tracer knows the operation's first and last moment by them.
constexpr int kBegin = -1234;
constexpr int kEnd = -1235;

template <typename Step>
int marked(Step step) {
  ::close(kBegin);
  const int code = step();
  ::close(kEnd);
  return code;
}

std::string times(std::size_t count, const std::string& text) {
  std::string all;
  while (count-- > 0) all += text;
  return all;
}

void put(const Operation& operation) {
  const Files& files = operation.states[0].files;
  for (std::size_t i = 0; i < files.size(); ++i) {
    const std::string& path = operation.paths[i];
    fs::remove(path);
    if (!files[i]) continue;
    sandbox::write_file(path, path == kLog ? "" : *files[i]);
    if (path == kLog) fs::resize_file(path, std::stoul(*files[i]));
  }
}

Files look(const Operation& operation) {
  Files files;
  for (const std::string& path : operation.paths) {
    files.emplace_back();
    if (!fs::exists(path)) continue;
    files.back() = path == kLog ? std::to_string(fs::file_size(path)) : sandbox::read_file(path);
  }
  return files;
}

std::string describe(const Files& files) {
  std::string text;
  for (const auto& file : files) {
    text +=
        file ? "\n" + std::to_string(file->size()) + " bytes: " + file->substr(0, 99) : "\nnone";
  }
  return text;
}

// How often each system call was made. Each has a count of its own, since sanitizers ask for memory
// now and then.
using Calls = std::map<std::uint64_t, int>;

// Runs the operation, fills `calls` and, before the `nth` time of `call`, kills it. The end counts
// as one more `close`. Returns the operation's code, or the signal that ended it, negative.
int run(const Operation& operation, Calls& calls, std::uint64_t call = 0, int nth = 0) {
  const pid_t child = ::fork();
  if (child == 0) {
    if (std::freopen("/dev/null", "w", stdout) == nullptr) ::_exit(99);
    ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    ::raise(SIGSTOP);
    ::_exit(operation.run());
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  ::ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  bool counting = false;
  int signal = 0;
  while (::ptrace(PTRACE_SYSCALL, child, nullptr, signal), ::waitpid(child, &status, 0) == child) {
    if (!WIFSTOPPED(status)) break;
    const bool at_call = WSTOPSIG(status) == (SIGTRAP | 0x80);
    signal = at_call ? 0 : WSTOPSIG(status);
    __ptrace_syscall_info info{};
    if (at_call) ::ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info);
    if (info.op != PTRACE_SYSCALL_INFO_ENTRY) continue;
    const auto& [number, arguments] = info.entry;
    if (counting && ++calls[number] == nth && number == call) ::kill(child, SIGKILL);
    const int closed = number == SYS_close ? static_cast<int>(arguments[0]) : 0;
    if (closed == kBegin || closed == kEnd) counting = closed == kBegin;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

struct Tally {
  int points;
  int found[32];
};

void kill_before(const Operation& operation, std::uint64_t call, int nth, Tally& tally) {
  Calls calls;
  put(operation);
  const int code = run(operation, calls, call, nth);
  if (code == operation.states[0].code) return;  // one call less than before
  ASSERT_EQ(code, -SIGKILL);
  ++tally.points;
  const Files files = look(operation);
  std::size_t i = 0;
  while (i < operation.states.size() && operation.states[i].files != files) ++i;
  ASSERT_LT(i, operation.states.size()) << "at call " << call << describe(files);
  if (++tally.found[i] > 1) return;
  const State& state = operation.states[i];
  EXPECT_EQ(run(operation, calls), state.code) << state.name;
  const Files next = look(operation);
  EXPECT_TRUE(next == state.next) << "after " << state.name << describe(next);
}

void kill_everywhere(const Operation& operation, Tally& tally) {
  Calls calls;
  put(operation);
  EXPECT_EQ(run(operation, calls), operation.states[0].code);
  for (const auto& [call, count] : calls) {
    for (int nth = 1; nth <= count; ++nth) kill_before(operation, call, nth, tally);
  }
}

// Kills the operation everywhere, and finds each of its states and no other.
void survey(const Operation& operation) {
  SCOPED_TRACE(operation.name);
  const Shared<Tally> shared;
  Tally& tally = *shared;
  sandbox::run([&] {
    fs::current_path(sandbox::scratch());
    // The log daemon's control stays out of it: every command fails, so an edit ends with 6.
    sandbox::bind_path("/bin/false", fs::canonical("/bin/sh"));
    kill_everywhere(operation, tally);
  });
  ::testing::Test::RecordProperty(operation.name, tally.points);
  const bool print = std::getenv("UTILITY_CRASH_TABLE") != nullptr;
  if (print) std::printf("%s: killed at %d points\n", operation.name, tally.points);
  for (std::size_t i = 0; i < operation.states.size(); ++i) {
    EXPECT_GT(tally.found[i], 0) << "never found: " << operation.states[i].name;
    if (print) std::printf("%6d  %s\n", tally.found[i], operation.states[i].name);
  }
}

Operation on_csv(const char* name, std::vector<State> states, bool (*edit)(CCSV&)) {
  return {name, {"./t.csv", "./~tempfile.csv"}, std::move(states), [edit] {
            CCSV csv;
            if (!csv.Open("./t.csv") || !csv.SetCurPos(1)) return 1;
            return marked([&] { return edit(csv) ? 0 : 2; });
          }};
}

Operation insertion(const char* name, const std::string& tail) {
  const std::string head = "a,b\r\n";
  const std::string line = "new,record\r\n";
  const std::string old = head + tail;
  const std::string now = head + line + tail;
  const auto again = [](std::string text) {
    return Files{text.insert(5, "new,record\r\n"), kMissing};
  };
  std::vector<State> states = {{"old file", {old, kMissing}, again(old)},
                               {"old file, whole work file", {old, tail}, again(old)},
                               {"new file, whole work file", {now, tail}, again(now)},
                               {"new file", {now, kMissing}, again(now)}};
  for (std::size_t moved = 0; moved < tail.size(); moved += 4096) {
    const std::string front = tail.substr(0, moved);
    states.push_back({"old file, work file begun", {old, front}, again(old)});
    if (moved == 0) continue;
    const std::string mixed = head + line + front + tail.substr(moved + line.size());
    states.push_back({"tail moved in part, whole work file", {mixed, tail}, again(mixed)});
  }
  return on_csv(name, std::move(states), [](CCSV& csv) {
    const char* fields[] = {"new", "record", ""};  // constants, as none needs quotes
    return csv.WriteRecord(fields, 2);
  });
}

Operation set_text(const char* name, const std::string& from, const std::string& to) {
  const std::string old = "<c><n>" + from + "</n></c>\n";
  const std::string now = "<c><n>" + to + "</n></c>\n";
  std::vector<State> states = {{"old file", {old}, {now}}, {"new file", {now}, {now}}};
  if (now.size() < old.size()) {
    const Files padded = {now + std::string(old.size() - now.size(), ' ')};
    states.push_back({"new file, blanks up to the old size", padded, padded});
  }
  return {name, {"./t.xml"}, std::move(states), [to] {
            return marked([&] { return CXmlEx::write_xml_node("./t.xml", "n", to) ? 0 : 1; });
          }};
}

}  // namespace

TEST(CrashPoints, LogRules) {
  const std::string between = " /m\n" + times(300, "# a line that stays\n");
  const std::string tail = " /m\n" + times(500, "x.y /z\n");
  const std::string old = "k.i;a.b" + between + "q.r;k.i" + tail;
  const std::string one = "a.b" + between + "q.r;k.i" + tail;
  const std::string two = "a.b" + between + "q.r;" + tail;
  const Files end = {two + "       "};
  CUnixLog::UnixLogData rule{"k", "i", "/m"};
  survey({"rule removal",
          {"/etc/syslog.conf"},
          {{"old file", {old}, end, 6},
           {"first line edited", {one + "    "}, end, 6},
           {"first line edited, spaces missing", {one}, {two + "   "}, 6},
           {"both edited, some spaces missing", {two + "    "}, {two + "    "}, 10},
           {"new file", end, end, 10}},
          [&] { return marked([&] { return CUnixLog::del_log_data(rule); }); }});
  const std::string line = "k.i\t\t/m\n";
  survey({"rule addition",
          {"/etc/syslog.conf"},
          {{"old file", {old}, {old + "\n" + line}},
           {"new file", {old + "\n" + line}, {old + "\n" + line + "\n" + line}}},
          [&] { return marked([&] { return CUnixLog::put_line(line); }); }});
}

TEST(CrashPoints, GroupFile) {
  const std::string front = "root:x:0:\n" + times(500, "other:x:9:a,b\n");
  const std::string old = front + "wheel:x:10:root\nlast:x:11:\n";
  const std::string now = front + "wheel:x:10:alice,bob\nlast:x:11:\n";
  const Files end = {now, kMissing, kMissing};
  const auto rewrite = [] { return CUnixUser::mod_group_member("wheel", {"alice", "bob"}); };
  survey({"group rewrite",
          {"/etc/group", "/etc/group.temp", "/etc/group.bak"},
          {{"old file", {old, kMissing, kMissing}, end},
           {"old file, empty working copy", {old, "", kMissing}, end},
           {"old file, whole working copy", {old, now, kMissing}, {now + now, kMissing, kMissing}},
           {"no file, whole working copy, old backup", {kMissing, now, old}, end, 22},
           {"new file, old backup", {now, kMissing, old}, end},
           {"new file", end, end}},
          [rewrite] { return marked(rewrite); }});
}

TEST(CrashPoints, CsvFile) {
  survey(insertion("CSV insertion, one block", times(300, "c,d,e\r\n")));
  survey(insertion("CSV insertion, many blocks", times(1500, "c,d,e\r\n")));

  const std::string record = times(2000, "c,d,e") + "\r\n";
  const std::string blank(record.size(), ' ');
  const Files deleted = {"a,b\r\n" + blank + record + "z\r\n", kMissing};
  survey(on_csv("CSV deletion",
                {{"old file", {"a,b\r\n" + record + record + "z\r\n", kMissing}, deleted},
                 {"new file", deleted, {"a,b\r\n" + blank + blank + "z\r\n", kMissing}}},
                [](CCSV& csv) { return csv.DelRecord(); }));

  const std::string old = "a b,c\n d,\" \"\n";
  const std::string now = "ab,c\r\nd,\" \"\r\n";
  survey(on_csv("CSV rewrite",
                {{"old file", {old, kMissing}, {now, kMissing}},
                 {"old file, empty work file", {old, ""}, {now, kMissing}},
                 {"old file, whole work file", {old, now}, {now, kMissing}},
                 {"new file", {now, kMissing}, {"ab,c\r\r\nd,\" \"\r\r\n", kMissing}}},
                [](CCSV& csv) { return csv.NeatenFile("./t.csv"); }));
}

TEST(CrashPoints, LogFile) {
  // A line: a date of 19 bytes, four blanks, the message and the line end.
  survey({"log restart",
          {kLog},
          {{"old file, without the line", {"10485740"}, {"0"}},
           {"old file, full", {"10485771"}, {"0"}},
           {"no file", {kMissing}, {"31"}},
           {"new file, empty", {"0"}, {"31"}}},
          [] {
            CDiyLog log;
            if (!log.init(kLog, 0)) return 1;
            return marked([&] { return log.write_log("message"), 0; });
          }});
}

TEST(CrashPoints, XmlFile) {
  survey(set_text("XML save, longer", "a", times(500, "longer text ")));
  survey(set_text("XML save, shorter", times(500, "longer text "), "a"));
}
