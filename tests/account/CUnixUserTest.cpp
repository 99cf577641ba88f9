#include "utility/CUnixUser.h"

#include <crypt.h>
#include <gtest/gtest.h>
#include <shadow.h>
#include <signal.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "support/cases.h"
#include "support/sandbox.h"

namespace {

using U = utility::CUnixUser;
using User = U::UnixUserData;
using Group = U::UnixGroupData;
using Texts = std::vector<std::string>;
namespace fs = std::filesystem;

std::string getent(const std::string& database, const std::string& name = "") {
  const std::string file = sandbox::scratch() + "/entries";
  EXPECT_NE(std::system(("getent " + database + " " + name + " > " + file).c_str()), -1);
  return sandbox::read_file(file);
}

void use_fixtures() {
  for (const std::string name : {"/passwd", "/group"}) {
    sandbox::write_file("/etc" + name, sandbox::read_file(FIXTURES + name));
  }
}

std::string line_of(const User& user) {
  return user.name + ":x:" + std::to_string(user.uid) + ":" + std::to_string(user.gid) + ":" +
         user.gecos + ":" + user.home + ":" + user.shell + "\n";
}
std::string line_of(const Group& group) {
  std::string members;
  U::get_new_grp_mem_list(group.members, members);
  return group.name + ":x:" + std::to_string(group.gid) + ":" + members + "\n";
}

}  // namespace

TEST(CUnixUser, RunsExactlyTheseCommands) {
  use_fixtures();
  sandbox::record_shell(false);
  // A check of the result of `call(row)` and of what it runs.
  const auto runs = [](auto call) {
    return [call](const Case& row) {
      row.expect("result", call(row));
      Texts expected;
      for (const auto& command : row.all("command")) expected.push_back("/usr/sbin/" + command);
      EXPECT_EQ(sandbox::shell_commands(), expected);
      EXPECT_EQ(sandbox::read_file("/etc/group"), sandbox::read_file(FIXTURES "/group"));
    };
  };
  const auto named = [&runs](int (*call)(const std::string&)) {
    return runs([call](const Case& row) { return call(row["name"]); });
  };
  const auto id = [](const Case& row, const char* name) {
    return row.has(name) ? static_cast<unsigned>(row.number(name)) : 0;
  };
  const auto text = [](const Case& row, const char* name) {
    return row.has(name) ? row[name] : "";
  };
  const auto change_user = [id, text](const Case& row) {
    return U::mod_user_data({row["name"], id(row, "uid"), id(row, "gid"), text(row, "gecos"),
                             text(row, "home"), text(row, "shell")});
  };
  const auto change_group = [id](const Case& row) {
    return U::mod_grp_data({row["name"], id(row, "gid"), row.all("member")});
  };
  for_each_case(
      FIXTURES "/commands.txt",
      {{"create_user", named(U::create_user)},
       {"delete_user", named(U::delete_user)},
       {"create_group", named(U::create_group)},
       {"delete_group", named(U::delete_group)},
       {"mod_user_data", runs(change_user)},
       {"mod_grp_data", runs(change_group)},
       {"mod_passwd", runs([](const Case& row) { return U::mod_passwd(row["name"], "x"); })}});
  sandbox::write_file("/etc/passwd", "");
  EXPECT_EQ(U::delete_group("*"), 0);
  EXPECT_EQ(sandbox::shell_commands(), Texts{"/usr/sbin/groupdel \\*"});
}

TEST(CUnixUser, FindsWhatTheDatabasesHold) {
  use_fixtures();
  // More members than a first guess at the buffer holds.
  Group many{"many", 4301, Texts(200, "member")};
  sandbox::write_file("/etc/group", sandbox::read_file("/etc/group") + line_of(many));
  const auto collect = [](const auto& record, void* text) {
    *static_cast<std::string*>(text) += line_of(record);
    errno = EIO;
    return 0;
  };
  std::string seen;
  EXPECT_EQ(U::get_all_user_data(collect, &seen), 0);
  EXPECT_EQ(U::get_all_group_data(collect, &seen), 0);
  EXPECT_EQ(seen, getent("passwd") + getent("group"));
  EXPECT_EQ(U::get_group_data("many", many), 0);
  EXPECT_EQ(line_of(many), getent("group", "many"));
  const auto stop = [](const auto& /*record*/, void* /*context*/) { return -1; };
  EXPECT_EQ(U::get_all_user_data(stop, nullptr), 20);
  EXPECT_EQ(U::get_all_group_data(stop, nullptr), 20);
  EXPECT_EQ(U::get_all_user_data(nullptr, nullptr), 0);
  EXPECT_EQ(U::get_all_group_data(nullptr, nullptr), 0);

  User user{"kept", 7, 8, "c", "h", "s"};
  Group group{"kept", 7, {"m"}};
  EXPECT_EQ(U::get_user_data("", user), 1);
  EXPECT_EQ(U::get_user_data("carol", user), 2);
  EXPECT_EQ(line_of(user), "kept:x:7:8:c:h:s\n");
  EXPECT_EQ(U::get_group_data("", group), 1);
  EXPECT_EQ(U::get_group_data("carol", group), 3);
  EXPECT_EQ(line_of(group), "kept:x:7:m\n");
  EXPECT_EQ(U::getusernamebyid(1000) + U::getgrpnamebyid(50), "alicestaff");
  EXPECT_EQ(U::getusernamebyid(~5U) + U::getgrpnamebyid(7), "42949672907");

  int found = 7;
  for (auto [name, present] : {std::pair{"roo", 0}, {"nobody", 0}, {"root:x", 1}, {"ro", 1}}) {
    EXPECT_EQ(U::is_user_exist(name, found), 0);
    EXPECT_EQ(found, present) << name;
  }
  for (const char* file : {"/etc/passwd", "/etc/group"}) fs::remove(file);
  for (auto scan : {U::is_user_exist, U::is_group_exist}) EXPECT_EQ(scan("ro", found), 22);
  EXPECT_EQ(found, 1) << "untouched";
  for (auto add : {U::create_user, U::create_group}) EXPECT_EQ(add("carol"), 22);
  EXPECT_EQ(U::mod_group_member("root", {}), 22);
}

TEST(CUnixUser, RewritesTheGroupFileByteForByte) {
  for_each_case(FIXTURES "/members.txt",
                {{"members", [](const Case& row) {
                    sandbox::write_file("/etc/group", row["before"], 0660);
                    EXPECT_EQ(U::mod_group_member("wheel", row.all("member")), 0);
                    row.expect("after", sandbox::read_file("/etc/group"));
                    EXPECT_EQ(fs::status("/etc/group").permissions(), fs::perms{0660});
                    EXPECT_FALSE(fs::exists("/etc/group.temp") || fs::exists("/etc/group.bak"));
                  }}});
  const std::string line = "wheel:x:10:root", new_line = "wheel:x:10:a\n";
  sandbox::write_file("/etc/group", line);
  sandbox::write_file("/etc/group.temp", "stale:x:1:\n");
  EXPECT_EQ(U::mod_group_member("wheel", {"a"}), 0);
  EXPECT_EQ(sandbox::read_file("/etc/group"), "stale:x:1:\n" + new_line);
  EXPECT_EQ(U::mod_group_member("missing", {"a"}), 3);
  EXPECT_FALSE(fs::exists("/etc/group") || fs::exists("/etc/group.bak")) << "the hard ending";

  // As containers have it: the file cannot be replaced, and the copies gather beside it.
  sandbox::write_file("/etc/group", "");
  sandbox::bind_content("/etc/group", line);
  for (const std::string& stands : {new_line, new_line + new_line}) {
    EXPECT_EQ(U::mod_group_member("wheel", {"a"}), 0);
    EXPECT_EQ(sandbox::read_file("/etc/group"), line) << "a mount point";
    EXPECT_EQ(sandbox::read_file("/etc/group.temp"), stands);
  }
  ASSERT_EQ(::umount("/etc/group"), 0);

  sandbox::write_file("/etc/group", line);
  ASSERT_EQ(::mount(nullptr, "/etc", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
  EXPECT_EQ(U::mod_group_member("wheel", {"a"}), 22);
  EXPECT_EQ(sandbox::read_file("/etc/group"), line);
}

TEST(CUnixUser, MembersAreAppendedToATextAndNoneEmptyIt) {
  std::string text = "pre:";
  U::get_new_grp_mem_list({"x", "", "y"}, text);
  EXPECT_EQ(text, "pre:x,,y");
  U::get_new_grp_mem_list({}, text);
  EXPECT_EQ(text, "");
}

TEST(CUnixUser, AccountsFromBirthToEnd) {
  fs::create_directory(sandbox::scratch() + "/home");
  sandbox::bind_path(sandbox::scratch() + "/home", "/home");
  EXPECT_EQ(U::create_group("alice"), 0);
  EXPECT_EQ(U::mod_grp_data({"alice", 4300, {"root", "daemon"}}), 0);
  EXPECT_EQ(getent("group", "alice"), "alice:x:4300:root,daemon\n");
  EXPECT_EQ(U::create_user("alice"), 0);
  User user;
  EXPECT_EQ(U::get_user_data("alice", user), 0);
  EXPECT_EQ(line_of(user), getent("passwd", "alice"));
  sandbox::write_file(user.home + "/letter", "kept");
  // The second time without a standard input, so that the pipe takes its place.
  for (const std::string password : {"p:a s$w\"ord", "other"}) {
    EXPECT_EQ(U::mod_passwd("alice", password), 0);
    const std::string hash = ::getspnam("alice")->sp_pwdp;
    EXPECT_EQ(::crypt(password.c_str(), hash.c_str()), hash);
    ::close(0);
  }
  EXPECT_EQ(::dup(1), 0) << "a descriptor was left open";
  for (const char* comment : {"Alice L., Room 5", ""}) {
    user = {"alice", 4242, 50, comment, "/home/moved", "/bin/bash"};
    EXPECT_EQ(U::mod_user_data(user), 0);
    EXPECT_EQ(line_of(user), getent("passwd", "alice"));
  }
  EXPECT_EQ(U::mod_user_data({"alice", 4242, 50, "", "/home/lost", "no/shell"}), 7);
  testing::internal::CaptureStdout();
  EXPECT_EQ(U::delete_group("alice"), 23);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "have same of username\n");
  EXPECT_EQ(U::delete_user("alice"), 0);
  EXPECT_EQ(U::delete_group("alice"), 0);
  EXPECT_EQ(getent("passwd", "alice") + getent("group", "alice"), "");
  EXPECT_EQ(sandbox::read_file("/home/moved/letter"), "kept");
}

TEST(CUnixUser, PasswordGoesThroughThePipeWhole) {
  const auto change_with = [](const std::string& script, const std::string& password) {
    sandbox::write_file(sandbox::scratch() + "/tool", "#!/bin/bash\n" + script, 0755);
    sandbox::bind_path(sandbox::scratch() + "/tool", "/usr/sbin/chpasswd");
    return U::mod_passwd("root", password);
  };
  // Longer than a pipe holds, under a rain of signals that cut writes and waits short.
  const std::string longer(300000, 'p');
  const std::string input = sandbox::scratch() + "/input";
  const struct sigaction wake {
    {[](int) {}}, {}, 0, nullptr
  };
  ::sigaction(SIGALRM, &wake, nullptr);
  ::ualarm(1000, 1000);
  EXPECT_EQ(change_with("sleep 0.05; cat > " + input + "; sleep 0.05", longer), 0);
  EXPECT_EQ(sandbox::read_file(input), "root:" + longer + "\n");

  static_cast<void>(::signal(SIGPIPE, SIG_DFL));
  EXPECT_EQ(change_with("exit 1", longer), 0) << "a tool that does not read";
  static_cast<void>(::signal(SIGCHLD, SIG_IGN));
  EXPECT_EQ(change_with("exit 0", "nothing to wait for"), 21);
}
