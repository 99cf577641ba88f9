// Operations of all families on several threads at once: each must find what it finds alone. The
// thread sanitizer sees here what does not happen to go wrong.

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <thread>

#include "support/sandbox.h"
#include "utility/utility.h"

using namespace utility;  // NOLINT(google-build-using-namespace): a few names of every family

constexpr std::size_t kThreads = 4;
constexpr std::size_t kRounds = 5;
constexpr short kMailPort = 2525;

static pid_t sleeper;
static CDiyLog shared_log;

static int bound_socket(int type, std::uint16_t port) {
  const int fd = ::socket(AF_INET, type, 0);
  const sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
  EXPECT_EQ(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  return fd;
}

// Serves one client after the other, and refuses it while a second one waits.
static void serve_mail(int listener) {
  FILE* peer = ::fdopen(::accept(listener, nullptr, nullptr), "r");
  ::dprintf(::fileno(peer), "220 ready\r\n");
  for (char line[512]; std::fgets(line, sizeof line, peer) != nullptr;) {
    pollfd second{listener, POLLIN, 0};
    ::dprintf(::fileno(peer), ::poll(&second, 1, 0) == 0 ? "250 ok\r\n" : "550 no\r\n");
  }
  std::fclose(peer);
}

// What follows prints what it finds; `dir` is the thread's own.

static void read_kernel(std::ostream& out, const std::string&) {
  const auto print = [](const CUnixProc::UnixProcData& data, void* to) {
    if (data.pid != sleeper) return 0;
    *static_cast<std::ostream*>(to) << data.name << data.cmd << data.path << data.inodes.size();
    return 0;
  };
  std::vector<CUnixProcNet::ProcNetInfo> sockets;
  std::vector<std::string> names;
  CNetInfo::net_interface lo;
  out << CUnixProc::get_all_proc_data(print, &out) << CUnixProcNet::get_proc_net_info(sockets)
      << CNetInfo::get_all_ni(names) << CNetInfo::get_net_info("lo", lo) << names.at(0) << lo.mtu;
  for (const auto& one : sockets) out << (one.pid == sleeper ? one.protocol + one.state : "");
}

static void look_up(std::ostream& out, const std::string&) {
  for (unsigned id = 0; id < 20; ++id) {
    CUnixUser::UnixUserData user;
    CUnixUser::UnixGroupData group;
    out << CUnixUser::get_user_data(CUnixUser::getusernamebyid(id), user) << user.home
        << CUnixUser::get_group_data(CUnixUser::getgrpnamebyid(id), group) << group.name;
  }
  std::string version;
  out << COS_info::get_os_vesion_str(version) << version << CUnixTools::get_process_user()
      << CUnixTools::get_agent_names("script") << CUnixTools::get_tarvel_path();
}

static void run_and_edit(std::ostream& out, const std::string& dir) {
  const std::string table = dir + "/sub/x.csv", tree = dir + "/sub/x.xml", copy = dir + "/copy";
  sandbox::write_file(table, "a,\"b \"\"c\"\"\"\nd,e\nf,g\n");
  sandbox::write_file(tree, "<a><b>text</b></a>");
  CCSV csv;
  std::vector<std::string> texts;
  out << csv.Open(table.c_str()) << csv.SetCurPos(1) << csv.DelRecord() << csv.GetCols(texts)
      << CUnixTools::exec_cmd_results("echo one; echo two", texts, 80) << texts.at(1) << texts.at(3)
      << CUnixTools::exec_cmd("exit 7") << CXmlEx::write_xml_node(tree, "a/b", "new");
  csv.Close();
  out << CUnixTools::copy_directory((dir + "/sub").c_str(), copy.c_str())
      << sandbox::read_file(copy + "/x.csv") << sandbox::read_file(copy + "/x.xml")
      << CUnixFile::delete_item(copy, true) << CUnixTools::rm_dir((dir + "/sub").c_str());
}

static void convert(std::ostream& out, const std::string&) {
  char digest[16], key[] = "key", time[64];
  std::vector<std::string> words;
  CStr::ext_line_strtok(",;", words, "one,two;three");
  out << CHmacMd5::hmac_md5("text", 4, key, 3, digest) << CHmacMd5::checksumtostring(digest)
      << md5wrapper().getHashFromString("text") << Base64::encode("text") << words.at(2)
      << CBinHex::simple_bin2hex(xxtea_encrypt("text", "key")) << aes_encrypt("text", 2)
      << CConv::gbk_to_utf8_string(CConv::utf8_to_gbk_string("\xe4\xb8\xad").c_str())
      << CIPFormat::instance()->ipv6_zero_compress("1:0:0:0:2:0:0:3")
      << CTime::get_local_time_all(2000000000, time, 64) << CConv::url_encode("a b");
}

static void hand_over(std::ostream& out, const std::string&) {
  CEvent done;
  out << done.init();
  std::thread other([&done] { done.signal(); });
  out << done.wait(-1);
  other.join();
  for (int i = 0; i < 100; ++i) shared_log.write_log("%s", std::string(700, 'm').c_str());
}

static void send_mail(std::ostream& out, const std::string&) {
  CSmtp::test_mail_t account{"127.0.0.1", "", "", 0, kMailPort, "me@x"};
  char flags = 0;
  out << CSmtp::testmail(account, flags) << int{flags};
}

// In step with the other threads in the first round, then each in an order of its own.
static std::string run_rounds(std::size_t thread) {
  constexpr std::array kAll{read_kernel, look_up, run_and_edit, convert, hand_over, send_mail};
  std::string all;
  for (std::size_t round = 0; round < kRounds; ++round) {
    std::array<std::string, kAll.size()> found;
    for (std::size_t i = 0; i < kAll.size(); ++i) {
      const std::size_t at = (i + round * thread) % kAll.size();
      if (round > 0 && kAll[at] == send_mail) continue;  // takes half a second each time
      std::ostringstream out;
      kAll[at](out, sandbox::scratch() + "/" + std::to_string(thread));
      found[at] = out.str();
    }
    for (const std::string& text : found) all += text + '\n';
  }
  return all;
}

TEST(Threads, EachFindsWhatItFindsAlone) {
  sandbox::run([] {
    // Where TZ is unset, the C library reads the zone anew each time, under a lock of its own that
    // the thread sanitizer cannot see.
    ::setenv("TZ", "ABC-5:30", 1);
    const int mail = bound_socket(SOCK_STREAM, kMailPort), held = bound_socket(SOCK_DGRAM, 9000);
    ::listen(mail, kThreads);
    for (sleeper = ::fork(); sleeper == 0;) ::pause();
    ::close(held);
    if (::fork() == 0) {
      for (;;) serve_mail(mail);
    }
    ::close(mail);
    ASSERT_TRUE(shared_log.init(sandbox::scratch() + "/log", 0));
    std::string found[kThreads];
    std::vector<std::thread> threads;
    std::atomic<std::size_t> ready{0};
    while (threads.size() < kThreads) {
      threads.emplace_back([&found, &ready, thread = threads.size()] {
        for (++ready; ready != kThreads;) continue;
        found[thread] = run_rounds(thread);
      });
    }
    for (std::thread& thread : threads) thread.join();
    const std::string alone = run_rounds(kThreads);
    for (const std::string& one : found) EXPECT_EQ(one, alone);
    std::istringstream lines(sandbox::read_file(sandbox::scratch() + "/log"));
    std::size_t count = 0;
    for (std::string line; std::getline(lines, line); ++count)
      EXPECT_EQ(line.substr(23), std::string(700, 'm'));
    EXPECT_EQ(count, (kThreads + 1) * kRounds * 100);
  });
}
