#include "utility/CUnixUser.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "support/cases.h"
#include "support/sandbox.h"

namespace {

using U = utility::CUnixUser;
using User = U::UnixUserData;
using Group = U::UnixGroupData;
using S = std::string;

S line_of(const User& user) {
  return user.name + ":x:" + std::to_string(user.uid) + ":" + std::to_string(user.gid) + ":" +
         user.gecos + ":" + user.home + ":" + user.shell;
}
S line_of(const Group& group) {
  S members;
  U::get_new_grp_mem_list(group.members, members);
  return group.name + ":x:" + std::to_string(group.gid) + ":" + members;
}

template <class Record>
int collect(const Record& record, void* text) {
  *static_cast<S*>(text) += line_of(record) + "\n";
  errno = EIO;
  return 0;
}

Words write_all(const S& users_file, const S& groups_file) {
  S users, groups;
  const int result = U::get_all_user_data(collect, &users);
  sandbox::write_file(users_file, users);
  const int second = U::get_all_group_data(collect, &groups);
  sandbox::write_file(groups_file, groups);
  return texts(result, second);
}

Words stop() {
  const auto stop = [](const auto& /*record*/, void* /*context*/) { return -1; };
  return texts(U::get_all_user_data(stop, nullptr), U::get_all_group_data(stop, nullptr));
}

Words find_user(const S& name) {
  User user{"kept", 7, 8, "c", "h", "s"};
  const int result = U::get_user_data(name, user);
  return texts(result, line_of(user));
}

Words find_group(const S& name) {
  Group group{"kept", 7, {"m"}};
  const int result = U::get_group_data(name, group);
  return texts(result, line_of(group));
}

int change_user(const S& name, unsigned uid, unsigned gid, const S& gecos, const S& home,
                const S& shell) {
  return U::mod_user_data({name, uid, gid, gecos, home, shell});
}

int change_group(const S& name, unsigned gid, const Words& members) {
  return U::mod_grp_data({name, gid, members});
}

Words delete_group(const S& name) {
  testing::internal::CaptureStdout();
  const int result = U::delete_group(name);
  return texts(result, testing::internal::GetCapturedStdout());
}

Calls account_calls() {
  return {{"write_all", call(write_all)},
          {"stop", call(stop)},
          {"get_user_data", call(find_user)},
          {"get_group_data", call(find_group)},
          {"getusernamebyid", call(U::getusernamebyid)},
          {"getgrpnamebyid", call(U::getgrpnamebyid)},
          {"is_user_exist", call(U::is_user_exist)},
          {"is_group_exist", call(U::is_group_exist)},
          {"create_user", call(U::create_user)},
          {"create_group", call(U::create_group)},
          {"mod_user_data", call(change_user)},
          {"mod_grp_data", call(change_group)},
          {"mod_passwd", call(U::mod_passwd)},
          {"mod_group_member", call(U::mod_group_member)},
          {"get_new_grp_mem_list", call(U::get_new_grp_mem_list)},
          {"delete_user", call(U::delete_user)},
          {"delete_group", call(delete_group)},
          {"close", call(::close)},
          {"dup", call(::dup)}};
}

}  // namespace

TEST(CUnixUser, RunsExactlyTheseCommands) { run_cases(FIXTURES "/commands.txt", account_calls()); }

TEST(CUnixUser, ChangesWhatTheDatabasesHold) {
  run_cases(FIXTURES "/accounts.txt", account_calls());
  EXPECT_EQ(U::get_all_user_data(nullptr, nullptr), 0);
  EXPECT_EQ(U::get_all_group_data(nullptr, nullptr), 0);
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
