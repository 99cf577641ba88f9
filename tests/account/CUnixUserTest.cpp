#include "utility/CUnixUser.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "support/sandbox.h"

// What the class makes of database files and which commands it runs, on files of the test's own.

namespace {

using utility::CUnixUser;
using User = CUnixUser::UnixUserData;
using Group = CUnixUser::UnixGroupData;
using Texts = std::vector<std::string>;

const std::string kUsers =
    "root:x:0:0:root:/root:/bin/sh\nalice:x:1000:1000:Al:/home/al:/bin/sh\n*:x:1001:77::/:/bin/sh\n"
    "ro:x:1002:0::/:\nnobody";
const std::string kGroups = "root:x:0:\nstaff:x:50:root,alice\nalice:x:1000:\n*:x:77:\n+:x:78:\n";

void reset_files() {
  sandbox::write_file("/etc/passwd", kUsers);
  sandbox::write_file("/etc/group", kGroups);
}

}  // namespace

TEST(CUnixUser, RunsExactlyTheseCommands) {
  struct Row {
    const char* sentence;
    std::function<int()> call;
    int result;
    Texts commands;
    std::string groups = kGroups;
  };
  const auto create = [](const char* name) { return [=] { return CUnixUser::create_user(name); }; };
  const auto remove = [](const char* name) { return [=] { return CUnixUser::delete_user(name); }; };
  const auto add = [](const char* name) { return [=] { return CUnixUser::create_group(name); }; };
  const auto drop = [](const char* name) { return [=] { return CUnixUser::delete_group(name); }; };
  const auto change = [](const User& user) {
    return [=] { return CUnixUser::mod_user_data(user); };
  };
  const auto alter = [](const Group& group) {
    return [=] { return CUnixUser::mod_grp_data(group); };
  };
  const auto pass = [](const char* name) {
    return [=] { return CUnixUser::mod_passwd(name, "x"); };
  };
  // The shell below runs nothing and reports success, so a created user is missing afterwards.
  const Row rows[] = {
      {"create without a name", create(""), 4, {}},
      {"create an existing user", create("alice"), 10, {}},
      {"create", create("carol"), 7, {"/usr/sbin/useradd carol"}},
      {"create with a group", create("staff"), 7, {"/usr/sbin/useradd staff -gstaff"}},
      {"change without a name", change({}), 4, {}},
      {"change nobody", change({"carol", 0, 0, "", "", ""}), 2, {}},
      {"nothing to change", change({"alice", 1000, 1000, "Al", "/home/al", "/bin/sh"}), 0, {}},
      {"uid taken", change({"alice", 0, 50, "x", "/x", "/x"}), 5, {}},
      {"change all",
       change({"alice", 4000000000, 50, "A B", "/srv/a", "/bin/bash"}),
       0,
       {"/usr/sbin/usermod -u 4000000000 -g 50 -d /srv/a -s /bin/bash -c \"A B\" alice"}},
      {"change all to empty",
       change({"alice", 1000, 1000, "", "", ""}),
       0,
       {"/usr/sbin/usermod -d \"\" -s  -c \"\" alice"}},
      {"password without a name", pass(""), 4, {}},
      {"password of nobody", pass("carol"), 11, {}},
      {"delete without a name", remove(""), 4, {}},
      {"delete nobody", remove("carol"), 2, {}},
      {"delete", remove("alice"), 0, {"/usr/sbin/userdel alice"}},
      {"delete the star", remove("*"), 0, {"/usr/sbin/userdel \\*"}},
      {"add without a name", add(""), 4, {}},
      {"add an existing group", add("staff"), 9, {}},
      {"add", add("sta"), 0, {"/usr/sbin/groupadd sta"}},
      {"drop without a name", drop(""), 4, {}},
      {"drop a missing group", drop("carol"), 3, {}},
      {"drop", drop("staff"), 0, {"/usr/sbin/groupdel staff"}},
      {"alter without a name", alter({}), 4, {}},
      {"alter a missing group", alter({"carol", 50, {}}), 3, {}},
      {"gid taken", alter({"staff", 1000, {}}), 8, {}},
      {"same gid, the file ends as it must",
       alter({"staff", 50, {"alice", "bob"}}),
       0,
       {"/usr/sbin/groupmod staff"},
       "root:x:0:\nstaff:x:50:alice,bob\nalice:x:1000:\n*:x:77:\n+:x:78:\n"},
      {"new gid", alter({"alice", 51, {""}}), 0, {"/usr/sbin/groupmod -g 51 alice"}, kGroups},
  };
  sandbox::run([&] {
    sandbox::record_shell(false);
    Texts expected;
    for (const Row& row : rows) {
      SCOPED_TRACE(row.sentence);
      reset_files();
      EXPECT_EQ(row.call(), row.result);
      expected.insert(expected.end(), row.commands.begin(), row.commands.end());
      EXPECT_EQ(sandbox::shell_commands(), expected);
      EXPECT_EQ(sandbox::read_file("/etc/group"), row.groups);
    }
    sandbox::write_file("/etc/passwd", "root:x:0:0:root:/root:/bin/sh\n");
    EXPECT_EQ(CUnixUser::delete_group("*"), 0) << "a star that is no user";
    EXPECT_EQ(sandbox::shell_commands().back(), "/usr/sbin/groupdel \\*");
  });
}

TEST(CUnixUser, LooksUpAndScansWithoutTouchingAnythingOnRefusal) {
  sandbox::run([] {
    reset_files();
    User user{"kept", 7, 8, "c", "h", "s"};
    Group group{"kept", 7, {"m"}};
    EXPECT_EQ(CUnixUser::get_user_data("", user), 1);
    EXPECT_EQ(CUnixUser::get_user_data("carol", user), 2);
    EXPECT_EQ(user.name + user.gecos + user.home + user.shell, "keptchs");
    EXPECT_EQ(CUnixUser::get_group_data("", group), 1);
    EXPECT_EQ(CUnixUser::get_group_data("carol", group), 3);
    EXPECT_EQ(group.name + group.members.at(0), "keptm");
    EXPECT_EQ(CUnixUser::get_group_data("staff", group), 0);
    EXPECT_EQ(group.members, (Texts{"root", "alice"}));
    EXPECT_EQ(CUnixUser::getusernamebyid(1000) + CUnixUser::getusernamebyid(4294967290),
              "alice4294967290");
    EXPECT_EQ(CUnixUser::getgrpnamebyid(50) + CUnixUser::getgrpnamebyid(4294967290),
              "staff4294967290");
    passwd bare{};
    CUnixUser::pw_2_ud(bare, user);
    EXPECT_EQ(user.name + user.gecos + user.home + user.shell, "");

    for (const auto& [name, present] :
         {std::pair{"ro", 1}, {"roo", 0}, {"root", 1}, {"nobody", 0}, {"root:x", 1}, {"", 0}}) {
      int found = 7;
      EXPECT_EQ(CUnixUser::is_user_exist(name, found), 0);
      EXPECT_EQ(found, present) << name;
    }
    int calls = 0;
    const auto stop = [](const auto&, void* count) { return ++*static_cast<int*>(count); };
    EXPECT_EQ(CUnixUser::get_all_user_data(stop, &calls), 20);
    EXPECT_EQ(CUnixUser::get_all_group_data(stop, &calls), 20);
    EXPECT_EQ(calls, 2);

    std::filesystem::remove("/etc/passwd");
    std::filesystem::remove("/etc/group");
    sandbox::record_shell(false);
    int found = 7;
    EXPECT_EQ(CUnixUser::is_user_exist("root", found), 22);
    EXPECT_EQ(CUnixUser::is_group_exist("root", found), 22);
    EXPECT_EQ(CUnixUser::create_user("carol"), 22);
    EXPECT_EQ(CUnixUser::create_group("carol"), 22);
    EXPECT_EQ(CUnixUser::mod_group_member("root", {}), 22);
    EXPECT_EQ(found, 7);
    EXPECT_EQ(sandbox::shell_commands(), Texts{});
  });
}

TEST(CUnixUser, RewritesTheGroupFileByteForByte) {
  const std::string other(1023, 'o');
  std::string line = "wheel:x:10:root";
  const auto sized = [&](std::size_t size) { return line + std::string(size - line.size(), 'm'); };
  const std::string tail = "wheel2:x:11:\nno colon\n\nx:wheel:12:a";
  struct Row {
    const char* sentence;
    std::string before;
    std::string stale;
    Texts members;
    int result;
    std::string after;
  };
  const Row rows[] = {
      {"others stay", line + "\n" + tail, "", {"alice", "bob"}, 0, "wheel:x:10:alice,bob\n" + tail},
      {"no members", "a:x:1:\n" + line, "", {}, 0, "a:x:1:\nwheel:x:10:\n"},
      {"empty member kept", line, "", {"", "a"}, 0, "wheel:x:10:,a\n"},
      {"fields missing", "wheel:root\nwheel\n", "", {"a"}, 0, "wheel:a\nwheel\n"},
      {"every line of the name", line + "\n" + line, "", {"a"}, 0, "wheel:x:10:a\nwheel:x:10:a\n"},
      {"1,023 bytes with the end",
       sized(1022) + "\nz:x:1:\n",
       "",
       {"a"},
       0,
       "wheel:x:10:a\nz:x:1:\n"},
      {"1,023 bytes and the end",
       sized(1023) + "\nz:x:1:\n",
       "",
       {"a"},
       0,
       "wheel:x:10:a\n\nz:x:1:\n"},
      {"3,000 bytes",
       sized(3000) + "\n",
       "",
       {"a"},
       0,
       "wheel:x:10:a\n" + std::string(1977, 'm') + "\n"},
      {"a piece judged as a line",
       line + "\n" + other + "wheel:y\n",
       "",
       {"a"},
       0,
       "wheel:x:10:a\n" + other + "wheel:a\n"},
      {"the last colon of the piece",
       "wheel:" + sized(1023),
       "",
       {"a"},
       0,
       "wheel:wheel:x:10:a\n" + std::string(6, 'm')},
      {"a stale copy", line, "old:x:1:\n", {"a"}, 0, "old:x:1:\nwheel:x:10:a\n"},
      {"a missing group, a stale copy", tail, "old:x:1:\n", {"a"}, 3, "old:x:1:\n"},
      {"a missing group", tail, "", {"a"}, 3, "(gone)"},
  };
  sandbox::run([&] {
    for (const Row& row : rows) {
      SCOPED_TRACE(row.sentence);
      sandbox::write_file("/etc/group", row.before, 0640);
      ASSERT_EQ(::chown("/etc/group", 0, 42), 0);
      if (!row.stale.empty()) sandbox::write_file("/etc/group.temp", row.stale);
      EXPECT_EQ(CUnixUser::mod_group_member("wheel", row.members), row.result);
      const bool gone = !std::filesystem::exists("/etc/group");
      EXPECT_EQ(gone ? "(gone)" : sandbox::read_file("/etc/group"), row.after);
      EXPECT_FALSE(std::filesystem::exists("/etc/group.temp"));
      EXPECT_FALSE(std::filesystem::exists("/etc/group.bak"));
      struct stat rights {};
      if (row.result != 0) continue;
      ASSERT_EQ(::stat("/etc/group", &rights), 0);
      EXPECT_EQ(rights.st_mode & 07777, 0640U);
      EXPECT_EQ(rights.st_gid, 42U);
    }
    sandbox::write_file("/etc/group", line);
    ASSERT_EQ(::mount(nullptr, "/etc", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
    EXPECT_EQ(CUnixUser::mod_group_member("wheel", {"a"}), 22);
    EXPECT_EQ(sandbox::read_file("/etc/group"), line);
  });
}
