#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iterator>

#include "faults/faults.h"
#include "support/sandbox.h"
#include "utility/utility.h"

using namespace utility;
using Xml = utility::CXmlEx;
using Conv = utility::CConv;
using BinHex = utility::CBinHex;
using faults::Outputs;
using Files = std::vector<std::string>;

namespace {

// Outcomes that are shared.
constexpr char kRead[] = "malloc:0,=,throw open:0 read:0 stat:0";
constexpr char kNoText[] = "nothrow:0~";
constexpr char kNoConversion[] = "nothrow:0~ malloc:0~";
constexpr char kAuthenticated[] =
    "nothrow:4,6 malloc:4,= signal:13,= socket:2 connect:5 send:7 receive:1,8 poll:17 "
    "connect-eintr:5 receive-short:14,=";

int digest(Outputs& o) {
  char text[] = "text";
  char bytes[17] = "untouched";
  const int code = CHmacMd5::md5(text, 4, bytes);
  o.text = bytes;
  return code;
}
int keyed_digest(Outputs& o) {
  char key[80];
  std::memset(key, 'k', sizeof key);
  char bytes[17] = "untouched";
  const int code = CHmacMd5::hmac_md5("text", 4, key, sizeof key, bytes);
  o.text = bytes;
  return code;
}
int digest_text(Outputs& o) {
  char bytes[] = "0123456789abcdef";
  o.text = CHmacMd5::checksumtostring(bytes);
  return 0;
}

// A file of three records, at the second.
struct Table : CCSV {
  Table() { is_open = Open("./table") && SetCurPos(1); }
  ~Table() { Close(); }
  bool is_open = false;
};
bool read_record(int& cols) {
  Table table;
  char** record = nullptr;
  const bool done = table.ReadRecord(&record, &cols);
  CCSV::FreeRecord(record);
  return done;
}
bool write_record() {
  static char s_end[] = "";
  struct Record {
    Record() { std::memcpy(fields[0] = new char[4], "x y", 4); }
    ~Record() { delete[] fields[0]; }
    char* fields[2] = {nullptr, s_end};
  } record;
  return Table().WriteRecord(const_cast<const char**>(record.fields), 1);
}

int log_line(Outputs& o) {
  CDiyLog log;
  o.found = log.init("./log", 0);
  log.write_log("%600d", 1);
  return 0;
}
int dump(Outputs& o) {
  char out[200] = "untouched";
  char data[] = "text";
  const int code = CDump::sndump(out, sizeof out, data, 4);
  o.text = out;
  return code;
}

// A mail server that agrees to everything, one session after the other.
[[noreturn]] void serve_mail(int listener, const std::string& method) {
  for (;;) {
    const int peer = ::accept(listener, nullptr, nullptr);
    std::FILE* const lines = ::fdopen(peer, "r");
    char line[1000] = "QUIT";
    bool is_text = false;
    do {
      const int at_once = 1;  // the client waits for it between text and end
      ::setsockopt(peer, IPPROTO_TCP, TCP_QUICKACK, &at_once, sizeof at_once);
      if (is_text && std::strcmp(line, ".\r\n") != 0) continue;
      const std::string verb(line, 4);
      is_text = verb == "DATA";
      std::string reply = "250 ok\r\n";
      if (verb == "EHLO") reply = "250-AUTH " + method + "\r\n" + reply;
      // Else it is about authentication: a challenge and a consent at once.
      const char* const others[] = {"EHLO", "MAIL", "RCPT", "DATA", ".\r\n", "QUIT"};
      if (std::count(std::begin(others), std::end(others), verb) == 0)
        reply = "235 PHRlc3RAdGVzdD4=\r\n";
      ::send(peer, reply.data(), reply.size(), MSG_NOSIGNAL);
    } while (std::fgets(line, sizeof line, lines) != nullptr);
    std::fclose(lines);
  }
}

constexpr short kFirstPort = 2000;
constexpr const char* kMethods[] = {"none", "PLAIN", "LOGIN", "CRAM-MD5"};

// Starts a server for each method, which the sandbox's first process inherits.
void start_mail_servers() {
  sockaddr_in address{AF_INET, htons(kFirstPort), {htonl(INADDR_LOOPBACK)}, {}};
  for (const char* method : kMethods) {
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(listener, 8), 0);
    const pid_t child = ::fork();
    if (child == 0) {
      if (::fork() == 0) serve_mail(listener, method);
      ::_exit(0);
    }
    ::waitpid(child, nullptr, 0);
    ::close(listener);
    address.sin_port = htons(static_cast<in_port_t>(ntohs(address.sin_port) + 1));
  }
}

int send_mail(int method) {
  const short port = static_cast<short>(kFirstPort + method);
  const char need_auth = method > 0 ? 1 : 0;
  CSmtp::send_mail_t mail{"127.0.0.1", "user",  "pass", need_auth, port, "me@x",
                          "hi",        {"a@x"}, {},     "body",    4};
  return CSmtp::sendmail(mail);
}
int test_mail(Outputs& o) {
  CSmtp::test_mail_t account{"127.0.0.1", "user", "pass", 0, kFirstPort, "me@x"};
  char flags = 77;
  const int code = CSmtp::testmail(account, flags);
  o.number = static_cast<unsigned char>(flags);
  return code;
}

}  // namespace

TEST(Faults, Codecs) {
  const std::vector<faults::Row> rows = {
      {TEXT(md5wrapper().getHashFromFile("./file")), "malloc:0~,= open:0~ read:0~,="},
      {CALL(digest(o)), "nothrow:2"},
      {CALL(keyed_digest(o)), "nothrow:2"},
      {CALL(digest_text(o)), kNoText},
      {TEXT(Base64::encode("some text")), kNoText},
      {TEXT(Base64::decode("YWJj\nZGVm")), kNoText},
      {TEXT(BinHex::simple_bin2hex("text")), kNoText},
      {TEXT(BinHex::simple_hex2bin("41")), kNoText},
      {TEXT(Conv::gbk_to_utf8_string("text")), kNoConversion},
      {TEXT(Conv::utf8_to_gbk_string("text")), kNoConversion},
      {TEXT(Conv::unicode_to_utf8_string(L"text")), kNoConversion},
      {CALL(Conv::utf8_to_unicode_string("text").size()), "nothrow:0 malloc:0"},
      {TEXT(Conv::url_encode("a b")), kNoText},
      {TEXT(xxtea_encrypt("text", "key")), "malloc:0~"},
      {TEXT(xxtea_decrypt(xxtea_encrypt("text", "key"), "key")), "malloc:0~"},
      {TEXT(aes_encrypt("text", 1)), kNoText},
      {TEXT(aes_decrypt(aes_encrypt("text", 1), 1)), kNoText},
  };
  faults::try_rows([] { sandbox::write_file("./file", "text"); }, rows);
}

TEST(Faults, Documents) {
  const auto prepare = [] {
    sandbox::write_file("./table", "a,b\r\n\"c d\",e\r\nf,g\r\n");
    sandbox::write_file("./doc", "<r><a x='1'>text</a></r>");
  };
  const Files table = {"./table", "./~tempfile.csv"};
  const Files doc = {"./doc"};
  const std::vector<faults::Row> rows = {
      {CALL(Table().Create("./table")), "nothrow:0~,= malloc:0,= open:0,= stat:0~,=", table},
      {CALL(Table().is_open), "nothrow:0 malloc:0 open:0 read:0 stat:0"},
      {CALL(Table().GetCols(o.list)), "nothrow:0 malloc:0 open:0 read:0 stat:0"},
      {CALL(read_record(o.number)), "nothrow:0,0~ malloc:0 open:0 read:0 stat:0"},
      {CALL(write_record()),
       "nothrow:0 malloc:0 open:0 read:0 write:0 stat:0,= unlink:1~,=", table},
      {CALL(Table().DelRecord()), "nothrow:0 malloc:0 open:0 read:0 write:0 stat:0,=", table},
      {CALL(Table().NeatenFile("./table")),
       "open:0,= write:0 close:0,= stat:0,= access:0 truncate:0 rename:0", table},
      {CALL(Xml::write_xml_node("./doc", "a", "new")),
       "malloc:0,=,throw open:0 read:0 write:0 close:0~,= stat:0 truncate:0,0~", doc},
      {CALL(Xml::write_xml_attribute("./doc", "a", "x", "new")),
       "malloc:0,=,throw open:0 read:0 write:0 close:0~,= stat:0 truncate:0,0~", doc},
      {CALL(Xml::read_xml_node("./doc", "a", o.text)), kRead, doc},
      {CALL(Xml::read_xml_attribute("./doc", "a", "x", o.text)), kRead, doc},
      {CALL(Xml::add_xml_xpath_node("./doc", "a/b")),
       "malloc:0,1,=,throw open:0,1 read:1 write:0 close:0~,= stat:0,1 truncate:0,0~", doc},
  };
  faults::try_rows(prepare, rows);
}

TEST(Faults, Diagnostics) {
  const std::vector<faults::Row> rows = {
      {CALL(log_line(o)), "new:0~ nothrow:0~ malloc:0~,= open:0~", {"./log"}},
      {CALL(dump(o)), "nothrow:2"},
      {CALL(CEvent().init()), "nothrow:0"},
  };
  faults::try_rows([] {}, rows);
}

TEST(Faults, Mail) {
  const std::vector<faults::Row> rows = {
      {CALL(send_mail(0)),
       "nothrow:4,6 malloc:4,= signal:13,= socket:2 connect:5 send:7 receive:1,8 poll:17 "
       "connect-eintr:5"},
      {CALL(send_mail(1)), kAuthenticated},
      {CALL(send_mail(2)), kAuthenticated},
      {CALL(send_mail(3)),
       "nothrow:1,15,2,4,6 malloc:4,= signal:13,= socket:2 connect:5 send:7 receive:1,8 poll:17 "
       "connect-eintr:5 receive-short:14,="},
      {CALL(test_mail(o)),
       "nothrow:4~,6~ malloc:4~ signal:13~,= socket:2~ connect:5~ send:7~ receive:1~,8~ poll:17~ "
       "connect-eintr:5~ receive-short:9~,="},
  };
  faults::try_rows(start_mail_servers, rows);
}
