// One short function for each of five tasks.

#include <unistd.h>
#include <utility/CCSV.h>
#include <utility/CSmtp.h>
#include <utility/CUnixProcNet.h>
#include <utility/CUnixTools.h>
#include <utility/CUnixUser.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

using namespace utility;

//! [listen]
void print_listeners() {
  std::vector<CUnixProcNet::ProcNetInfo> sockets;
  if (CUnixProcNet::get_proc_net_info(sockets) != 0) return;
  for (const auto& socket : sockets) {
    if (socket.state != "LISTENING") continue;
    std::printf("process %d listens on %s port %u\n", socket.pid, socket.local_addr.c_str(),
                socket.local_port);
  }
}
//! [listen]

//! [member]
int add_member(const std::string& group, const std::string& user) {
  int found = 0;
  if (CUnixUser::is_group_exist(group, found) != 0 || found == 0) return 3;
  CUnixUser::UnixGroupData data;
  if (const int code = CUnixUser::get_group_data(group, data); code != 0) return code;
  if (std::count(data.members.begin(), data.members.end(), user) > 0) return 0;
  data.members.push_back(user);
  return CUnixUser::mod_group_member(group, data.members);
}
//! [member]

//! [csv]
char* copy(const std::string& text) {
  char* result = new char[text.size() + 1];
  std::memcpy(result, text.c_str(), text.size() + 1);
  return result;
}

bool append_host(const std::string& file, const std::string& name, const std::string& comment) {
  CCSV csv;
  if (!csv.Open(file.c_str())) return false;  // stands at the end
  char** record = new char*[3];
  record[0] = copy(name);
  record[1] = copy(comment);
  record[2] = copy("");  // the end
  const bool written = csv.WriteRecord(const_cast<const char**>(record), 2);
  CCSV::FreeRecord(record);
  csv.Close();
  return written;
}
//! [csv]

//! [port]
bool open_port(const std::string& distribution, int port) {
  const bool firewall = distribution == "ubuntu" ? ::access("/usr/sbin/ufw", X_OK) == 0
                                                 : ::access("/bin/firewall-cmd", X_OK) == 0;
  return firewall && CUnixTools::iptables_allow_port(distribution, port) == 0;
}
//! [port]

//! [alert]
int send_alert(const std::string& text) {
  std::string body;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    if (text[begin] == '.') body += '.';
    body.append(text, begin, end - begin).append("\r\n");
    begin = end + 1;
  }
  CSmtp::send_mail_t mail{};
  mail.server = "127.0.0.1";
  mail.port = 2525;
  mail.from = "agent@here";
  mail.to = {"root@there"};
  mail.subject = "Alert";
  mail.body = body.data();
  mail.body_len = static_cast<int>(body.size());
  return CSmtp::sendmail(mail);
}
//! [alert]

int main() {
  print_listeners();
  const bool made = CUnixUser::create_group("watchers") == 0;
  std::puts(made && add_member("watchers", "root") == 0 ? "member added" : "no member");
  std::ofstream("hosts.csv") << "name,comment\r\n";
  std::puts(append_host("hosts.csv", "web", "first, and fastest") ? "record added" : "no record");
  std::puts(open_port("debian", 8443) ? "port open" : "port not open: no such firewall");
  std::puts(send_alert("The disk is full.\n.\nReally.\n") == 0 ? "alert sent" : "no alert");
  return 0;
}
