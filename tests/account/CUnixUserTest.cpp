#include "utility/CUnixUser.h"

#include <crypt.h>
#include <gtest/gtest.h>
#include <shadow.h>
#include <signal.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <tuple>

#include "support/sandbox.h"

namespace {

using U = utility::CUnixUser;
using User = U::UnixUserData;
using Group = U::UnixGroupData;
using Texts = std::vector<std::string>;
namespace fs = std::filesystem;

const std::string kUsers =
    "root:x:0:0:root:/:/sh\nalice:x:1000:1000:Al:/al:/sh\n*:x:1001:77::/:/sh\nro:x:2:0::/:\nnobody";
const std::string kGroups = "root:x:0:\nstaff:x:50:root\nalice:x:1000:\n*:x:77:a,b\n";

std::string getent(const std::string& database, const std::string& name = "") {
  const std::string file = sandbox::scratch() + "/entries";
  EXPECT_NE(std::system(("getent " + database + " " + name + " > " + file).c_str()), -1);
  return sandbox::read_file(file);
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
  using std::bind;
  const std::string all = "usermod -u 4000000000 -g 50 -d /a -s /b -c \"A B\" alice";
  // The shell below runs nothing and reports success, so a created user is missing afterwards.
  const std::vector<std::tuple<const char*, std::function<int()>, int, std::string>> rows = {
      {"create again", bind(U::create_user, "alice"), 10, ""},
      {"create", bind(U::create_user, "carol"), 7, "useradd carol"},
      {"with a group", bind(U::create_user, "staff"), 7, "useradd staff -gstaff"},
      {"change no name", bind(U::mod_user_data, User{}), 4, ""},
      {"change nobody", bind(U::mod_user_data, User{"carol", 0, 0, "", "", ""}), 2, ""},
      {"nothing", bind(U::mod_user_data, User{"*", 1001, 77, "", "/", "/sh"}), 0, ""},
      {"uid taken", bind(U::mod_user_data, User{"alice", 0, 50, "x", "/x", "/x"}), 5, ""},
      {"all", bind(U::mod_user_data, User{"alice", 4000000000, 50, "A B", "/a", "/b"}), 0, all},
      {"to empty", bind(U::mod_user_data, User{"alice", 1000, 1000, "", "", ""}), 0,
       "usermod -d \"\" -s  -c \"\" alice"},
      {"password of no name", bind(U::mod_passwd, "", "x"), 4, ""},
      {"password of nobody", bind(U::mod_passwd, "carol", "x"), 11, ""},
      {"delete nobody", bind(U::delete_user, "carol"), 2, ""},
      {"delete", bind(U::delete_user, "alice"), 0, "userdel alice"},
      {"delete the star", bind(U::delete_user, "*"), 0, "userdel \\*"},
      {"add again", bind(U::create_group, "staff"), 9, ""},
      {"add", bind(U::create_group, "sta"), 0, "groupadd sta"},
      {"drop a missing one", bind(U::delete_group, "carol"), 3, ""},
      {"alter no name", bind(U::mod_grp_data, Group{}), 4, ""},
      {"alter a missing one", bind(U::mod_grp_data, Group{"carol", 50, {}}), 3, ""},
      {"gid taken", bind(U::mod_grp_data, Group{"staff", 1000, {}}), 8, ""},
      {"same gid", bind(U::mod_grp_data, Group{"staff", 50, {"root"}}), 0, "groupmod staff"},
      {"new gid", bind(U::mod_grp_data, Group{"alice", 51, {}}), 0, "groupmod -g 51 alice"},
  };
  sandbox::run([&] {
    sandbox::record_shell(false);
    sandbox::write_file("/etc/passwd", kUsers);
    sandbox::write_file("/etc/group", kGroups);
    Texts expected;
    for (const auto& [sentence, operation, result, command] : rows) {
      EXPECT_EQ(operation(), result) << sentence;
      if (!command.empty()) expected.push_back("/usr/sbin/" + command);
      EXPECT_EQ(sandbox::shell_commands(), expected) << sentence;
      EXPECT_EQ(sandbox::read_file("/etc/group"), kGroups) << sentence;
    }
    sandbox::write_file("/etc/passwd", "");
    EXPECT_EQ(U::delete_group("*"), 0);
    EXPECT_EQ(sandbox::shell_commands().back(), "/usr/sbin/groupdel \\*");
    const auto add_drop = {U::create_user, U::delete_user, U::create_group, U::delete_group};
    for (const auto operation : add_drop) EXPECT_EQ(operation(""), 4);
  });
}

TEST(CUnixUser, FindsWhatTheDatabasesHold) {
  sandbox::run([] {
    sandbox::write_file("/etc/passwd", kUsers);
    // More members than a first guess at the buffer holds.
    Group many{"many", 4301, Texts(200, "member")};
    sandbox::write_file("/etc/group", kGroups + line_of(many));
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
  });
}

TEST(CUnixUser, RewritesTheGroupFileByteForByte) {
  const std::string line = "wheel:x:10:root";
  const std::string new_line = "wheel:x:10:a\n";
  const std::string tail = "wheel2:x:11:\nno colon\n\nx:wheel:12:a";
  const std::string o(1023, 'o');
  const auto sized = [&](std::size_t size) { return line + std::string(size - line.size(), 'm'); };
  const std::vector<std::tuple<const char*, std::string, Texts, std::string>> rows = {
      {"others stay", line + "\n" + tail, {"a", "b"}, "wheel:x:10:a,b\n" + tail},
      {"no members", "a:x:1:\n" + line, {}, "a:x:1:\nwheel:x:10:\n"},
      {"fields missing", "wheel:root\nwheel\n", {"", "a"}, "wheel:,a\nwheel\n"},
      {"1,023 bytes in all", sized(1022) + "\nz:x:1:\n", {"a"}, new_line + "z:x:1:\n"},
      {"1,023 and the end", sized(1023) + "\nz:x:1:\n", {"a"}, new_line + "\nz:x:1:\n"},
      {"3,000 and the end", sized(3000) + "\n", {"a"}, new_line + std::string(1977, 'm') + "\n"},
      {"a piece as a line", line + "\n" + o + "wheel:y", {"a"}, new_line + o + "wheel:a\n"},
  };
  sandbox::run([&] {
    for (const auto& [sentence, before, members, after] : rows) {
      sandbox::write_file("/etc/group", before, 0660);
      EXPECT_EQ(U::mod_group_member("wheel", members), 0);
      EXPECT_EQ(sandbox::read_file("/etc/group"), after) << sentence;
      EXPECT_EQ(fs::status("/etc/group").permissions(), fs::perms{0660});
      EXPECT_FALSE(fs::exists("/etc/group.temp") || fs::exists("/etc/group.bak"));
    }
    sandbox::write_file("/etc/group.temp", "stale:x:1:\n");
    EXPECT_EQ(U::mod_group_member("wheel", {"a"}), 0);
    EXPECT_EQ(sandbox::read_file("/etc/group"), "stale:x:1:\n" + new_line + o + "wheel:a\n");
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
  });
}

TEST(CUnixUser, MembersAreAppendedToATextAndNoneEmptyIt) {
  std::string text = "pre:";
  U::get_new_grp_mem_list({"x", "", "y"}, text);
  EXPECT_EQ(text, "pre:x,,y");
  U::get_new_grp_mem_list({}, text);
  EXPECT_EQ(text, "");
}

TEST(CUnixUser, AccountsFromBirthToEnd) {
  sandbox::run([] {
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
  });
}

TEST(CUnixUser, PasswordGoesThroughThePipeWhole) {
  sandbox::run([] {
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
  });
}
