// Makes operations for faults.py to disturb. `driver` names them; `driver N` makes the Nth; `driver
// threads` makes those that read on several threads; `driver -` makes those that are asked for,
// each in a process of its own: it reads the number of an operation and of the allocation in it
// that fails (0: none) and answers how the operation ended, its result, how many descriptors it
// left open, whether it leaks, and whether it came to the allocation.

#include <fcntl.h>
#include <netdb.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <thread>

#include "support/sandbox.h"
#include "utility/utility.h"

using namespace utility;  // NOLINT(google-build-using-namespace): a few names of every family

extern int g_until_failure;  // see allocations.cpp
// NOLINTNEXTLINE(bugprone-reserved-identifier): the sanitizer's
extern "C" int __lsan_do_recoverable_leak_check() __attribute__((weak));

namespace {

using Texts = std::vector<std::string>;
using Inodes = std::vector<unsigned long>;
using Bytes = std::array<char, 200>;

char s_key[80] = "key";
CSmtp::send_mail_t s_mail{"127.0.0.1", "user",  "pass", 1,      2525, "me@x",
                          "hi",        {"a@x"}, {},     "body", 4};

// Where an operation puts what it finds, as long as it lasts.
template <typename Value>
Value& fresh(Value&& value = Value()) {
  return value;
}
template <typename Record>
int pass(const Record& /*record*/, void* /*context*/) {
  return 0;
}
// A file of three records, at the second.
struct Table : CCSV {
  Table() {
    if (Open("table")) SetCurPos(1);
  }
  ~Table() { Close(); }
};
bool read_record() {
  char** record = nullptr;
  int cols = 0;
  const bool done = Table().ReadRecord(&record, &cols);
  CCSV::FreeRecord(record);
  return done;
}
bool write_record() {
  const char* fields[] = {"new", "record", ""};  // constants, as none needs quotes
  return Table().WriteRecord(fields, 2);
}
bool log_line() {
  CDiyLog log;
  const bool done = log.init("log", 0);
  log.write_log("%d", 1);
  return done;
}

struct Operation {
  const char* name;
  long (*run)();
  bool only_reads = false;  // so that threads may do it at once
};
#define NAMED(reads, ...)                                              \
  {                                                                    \
#__VA_ARGS__, [] { return static_cast<long>(__VA_ARGS__); }, reads \
  }
#define CALL(...) NAMED(false, __VA_ARGS__)
#define READ(...) NAMED(true, __VA_ARGS__)
#define TEXT(...) READ((static_cast<void>(__VA_ARGS__), 0))

const Operation kOperations[] = {
    READ(CUnixUser::get_user_data("al", fresh<CUnixUser::UnixUserData>())),
    CALL(CUnixUser::get_all_user_data(pass, nullptr)),
    READ(CUnixUser::is_user_exist("al", fresh<int>())),
    CALL(CUnixUser::create_user("bo")),
    CALL(CUnixUser::mod_user_data({"al", 1001, 50, "", "/al", "/sh"})),
    CALL(CUnixUser::mod_passwd("al", "secret")),
    CALL(CUnixUser::delete_user("al")),
    CALL(CUnixUser::get_all_group_data(pass, nullptr)),
    CALL(CUnixUser::create_group("new")),
    CALL(CUnixUser::delete_group("staff")),
    CALL(CUnixUser::mod_grp_data({"staff", 51, {"al"}})),
    CALL(CUnixUser::mod_group_member("staff", {"al", "bo"})),
    READ(CUnixServ::get_serv_data("one", fresh<CUnixServ::UnixServData>())),
    CALL(CUnixServ::get_all_serv_data(pass, nullptr)),
    CALL(CUnixServ::start_serv("one")),
    CALL(CUnixLog::restart_syslog()),
    READ(CUnixLog::get_all_log_data(pass, nullptr)),
    READ(CUnixLog::is_existed_data({"e", "f", "/z"}, fresh<bool>())),
    CALL(CUnixLog::put_line("g.h /i")),
    CALL(CUnixLog::add_log_data(fresh<CUnixLog::UnixLogData>({"g", "h", "./log"}))),
    CALL(CUnixLog::del_log_data(fresh<CUnixLog::UnixLogData>({"kern", "*", "./log"}))),
    TEXT(CUnixTools::get_oem_and_issue(fresh<int>(), fresh<int>())),
    TEXT(CUnixTools::get_agent_names("script_server")),
    CALL((static_cast<void>(CUnixTools::operate_agent_service(0)), 0)),
    CALL(CUnixTools::iptables_allow_port("centos", 80)),
    CALL(CUnixTools::iptables_banned_port("centos", 25)),
    CALL(CUnixTools::create_file("new", 0600)),
    CALL(CUnixTools::copy_regular_file("file", "old")),
    CALL(CUnixTools::copy_file("dir", "copy", true)),
    CALL(CUnixTools::move_file("file", "old", true)),
    CALL(CUnixTools::rm_file("dir")),
    CALL(CUnixTools::mkdir_parents("p/q", 0700)),
    TEXT(CUnixTools::exec_cmd("exit 5")),
    READ(CUnixTools::exec_cmd_results("printf 'a\\nb\\n'", fresh<Texts>(), 100)),
    TEXT(CUnixTools::get_process_path(1) + CUnixTools::get_process_user()),
    READ(CUnixProc::get_proc_data(::getppid(), fresh<CUnixProc::UnixProcData>())),
    READ(CUnixProc::get_all_proc_data(pass, nullptr)),
    READ(CUnixProc::get_proc_name_ext("/proc/1/cmdline", "/proc/1/exe", fresh<std::string>())),
    READ(CUnixProc::get_all_path_name(fresh<Texts>())),
    READ(CUnixProc::get_socket_inodes("/proc/self/fd", fresh<Inodes>())),
    READ(CUnixProc::get_all_proc_map_info(fresh<std::vector<CUnixProc::UnixProcMapInfo>>())),
    CALL(CUnixProc::create_proc("/bin/true", "", "/", "nobody", environ)),
    CALL(CUnixProc::kill_proc_tree("no such name")),
    READ(CUnixProcNet::get_proc_net_info(fresh<std::vector<CUnixProcNet::ProcNetInfo>>())),
    READ(CNetInfo::get_all_netlink_info(fresh<std::vector<CNetInfo::NetLinkInfo>>())),
    READ(CNetInfo::get_all_ni(fresh<Texts>())),
    READ(CNetInfo::get_net_info("lo", fresh<CNetInfo::net_interface>())),
    READ(CNetInfo::get_net_stat("lo", fresh<CNetInfo::NetStat>())),
    TEXT(CIPFormat().ipv6_zero_compress("1:0:0:0:0:0:0:1")),
    CALL(CUnixFile::create_item("new", '_', 0600)),
    CALL(CUnixFile::create_item("d", 'd', 0700)),
    READ(CUnixFile::get_sub_item("dir", 'a', pass, nullptr)),
    CALL(CUnixFile::delete_item("dir", true)),
    READ(CUnixFile::get_quota_disk(pass, nullptr)),
    READ(CUnixDisk::get_disk_info_from_proc(fresh<Texts>())),
    READ(CUnixDisk::get_vgs(pass, nullptr)),
    READ(CDiskInfo::get_disk_info(fresh<std::vector<CDiskInfo::DiskInfo>>())),
    READ(CMemInfo::get_process_mem_usage(1, fresh<double>())),
    TEXT(md5wrapper().getHashFromFile("file")),
    READ(CHmacMd5::hmac_md5("text", 4, s_key, sizeof s_key, fresh<Bytes>().data())),
    TEXT(Base64::decode(Base64::encode("some text"))),
    TEXT(CBinHex::simple_hex2bin(CBinHex::simple_bin2hex("text"))),
    TEXT(CConv::utf8_to_gbk_string(CConv::gbk_to_utf8_string("text").c_str())),
    TEXT(CConv::unicode_to_utf8_string(CConv::utf8_to_unicode_string("text").c_str())),
    CALL(Table().Create("table")),
    CALL(Table().GetCols(fresh<Texts>())),
    {"CCSV::ReadRecord()", [] { return static_cast<long>(read_record()); }},
    {"CCSV::WriteRecord()", [] { return static_cast<long>(write_record()); }},
    {"CCSV::DelRecord()", [] { return static_cast<long>(Table().DelRecord()); }},
    {"CCSV::NeatenFile()", [] { return static_cast<long>(Table().NeatenFile("table")); }},
    CALL(CXmlEx::write_xml_node("doc", "a", "new")),
    READ(CXmlEx::read_xml_attribute("doc", "a", "x", fresh<std::string>())),
    CALL(CXmlEx::add_xml_xpath_node("doc", "a/b")),
    {"CDiyLog::init()", [] { return static_cast<long>(log_line()); }},
    READ(CDump::sndump(fresh<Bytes>().data(), 200, s_key, 4)),
    READ(CEvent().init()),
    CALL(CSmtp::sendmail(s_mail)),
};

// Makes what only reads on four threads at once; each must find what is found alone afterwards.
int run_threads() {
  constexpr std::size_t kCount = std::size(kOperations);
  std::array<std::array<long, kCount>, 4> found{};
  std::atomic<int> ready{0};
  const auto work = [&](std::size_t thread) {
    for (++ready; ready != 4;) continue;
    for (std::size_t i = 0; i < 5 * kCount; ++i) {
      const std::size_t at = (thread * kCount / 4 + i) % kCount;
      if (kOperations[at].only_reads) found[thread][at] += kOperations[at].run();
    }
  };
  std::vector<std::thread> threads;
  while (threads.size() < 4) threads.emplace_back(work, threads.size());
  for (std::thread& thread : threads) thread.join();
  int wrong = 0;
  for (std::size_t at = 0; at < kCount; ++at) {
    const long alone = kOperations[at].only_reads ? 5 * kOperations[at].run() : 0;
    for (const auto& codes : found) wrong += codes[at] == alone ? 0 : 1;
    if (wrong > 0) std::fprintf(stderr, "%d wrong up to %s\n", wrong, kOperations[at].name);
  }
  return wrong;
}

struct Outcome {
  const char* ended;
  long code;
  int left_open, leaks;
  bool failed;  // the allocation
};

void run(const Operation& operation, int failing_allocation, Outcome& outcome) {
  const int before = sandbox::open_descriptors();
  const char* ended = "returned";
  try {
    g_until_failure = failing_allocation;
    outcome.code = operation.run();
  } catch (const std::bad_alloc&) {
    ended = "threw";
  }
  outcome.failed = failing_allocation > 0 && g_until_failure == 0;
  g_until_failure = 0;
  outcome.left_open = sandbox::open_descriptors() - before;
  if (outcome.failed && __lsan_do_recoverable_leak_check != nullptr)
    outcome.leaks = __lsan_do_recoverable_leak_check();
  outcome.ended = ended;
}

// What it does around an operation is done by system calls that no operation makes, which nobody
// disturbs.
void answer(int to, const Outcome& outcome) {
  char text[100];
  const int size =
      std::snprintf(text, sizeof text, "%s %ld %d %d %d\n", outcome.ended, outcome.code,
                    outcome.left_open, outcome.leaks, outcome.failed ? 1 : 0);
  const iovec out{text, static_cast<std::size_t>(size)};
  [[maybe_unused]] const ssize_t written = ::writev(to, &out, 1);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    for (const Operation& operation : kOperations) std::puts(operation.name);
    return 0;
  }
  if (std::strcmp(argv[1], "threads") == 0) return run_threads();
  const int requests = ::fcntl(0, F_DUPFD_CLOEXEC, 50);
  const int answers = ::fcntl(1, F_DUPFD_CLOEXEC, 50);
  if (std::freopen("/dev/null", "r", stdin) == nullptr) return 1;
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 1;
  if (*argv[1] != '-') {
    Outcome outcome{"died", 0, 0, 0, false};
    ::getpgid(0);  // from here on it is the operation's
    run(kOperations[std::stoul(argv[1])], 0, outcome);
    answer(answers, outcome);
    ::_exit(0);  // without exit handlers: what was disturbed stays so
  }
  // The C library itself crashes where its first allocation for one of these databases fails.
  ::getpwnam("root");
  ::getgrnam("root");
  ::gethostbyname("127.0.0.1");
  ::getservbyname("smtp", "tcp");
  void* const shared =
      ::mmap(nullptr, sizeof(Outcome), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  int request[2];
  const iovec in{request, sizeof request};
  while (::readv(requests, &in, 1) == sizeof request) {
    Outcome& outcome = *new (shared) Outcome{"died", 0, 0, 0, false};
    const pid_t child = ::fork();
    if (child == 0) {
      run(kOperations[request[0]], request[1], outcome);
      ::_exit(0);  // without exit handlers, which belong to the parent
    }
    siginfo_t info;
    ::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED);
    answer(answers, outcome);
  }
}
