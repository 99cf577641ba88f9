#include <crypt.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <shadow.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "support/sandbox.h"
#include "utility/CUnixUser.h"

// The system's own account tools on a private copy of the host's databases.

namespace {

using utility::CUnixUser;
using User = CUnixUser::UnixUserData;
using Group = CUnixUser::UnixGroupData;

void on_private_host(const std::function<void()>& body) {
  sandbox::run([&] {
    for (const char* dir : {"/home", "/var/mail", "/var/log"}) sandbox::make_private(dir);
    body();
  });
}

std::string output_of(const std::string& command) {
  const std::string file = sandbox::scratch() + "/output";
  EXPECT_NE(std::system((command + " > " + file).c_str()), -1);
  return sandbox::read_file(file);
}

std::string line_of(const User& user) {
  return user.name + ":x:" + std::to_string(user.uid) + ":" + std::to_string(user.gid) + ":" +
         user.gecos + ":" + user.home + ":" + user.shell + "\n";
}
std::string line_of(const Group& group) {
  std::string members;
  CUnixUser::get_new_grp_mem_list(group.members, members);
  return group.name + ":x:" + std::to_string(group.gid) + ":" + members + "\n";
}

bool password_is(const char* name, const std::string& password) {
  const spwd* entry = ::getspnam(name);
  const char* hash = entry != nullptr ? ::crypt(password.c_str(), entry->sp_pwdp) : nullptr;
  return hash != nullptr && std::string(hash) == entry->sp_pwdp;
}

void put_chpasswd(const std::string& script) {
  sandbox::write_file(sandbox::scratch() + "/chpasswd", "#!/bin/bash\n" + script, 0755);
  sandbox::bind_path(sandbox::scratch() + "/chpasswd", "/usr/sbin/chpasswd");
}

}  // namespace

TEST(AccountTools, UserFromBirthToEnd) {
  on_private_host([] {
    EXPECT_EQ(CUnixUser::create_group("bob"), 0);
    EXPECT_EQ(CUnixUser::create_user("bob"), 0);
    EXPECT_EQ(output_of("id -gn bob"), "bob\n") << "the group that was there";
    testing::internal::CaptureStdout();
    EXPECT_EQ(CUnixUser::delete_group("bob"), 23);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "have same of username\n");

    User user;
    EXPECT_EQ(CUnixUser::create_user("alice"), 0);
    EXPECT_EQ(CUnixUser::get_user_data("alice", user), 0);
    EXPECT_EQ(line_of(user), output_of("getent passwd alice"));
    sandbox::write_file(user.home + "/letter", "kept");
    user = {"alice", 4242, 50, "Alice L., Room 5", "/home/moved", "/bin/bash"};
    EXPECT_EQ(CUnixUser::mod_user_data(user), 0);
    EXPECT_EQ(line_of(user), output_of("getent passwd alice"));
    EXPECT_EQ(sandbox::read_file("/home/moved/letter"), "kept");
    user.gecos.clear();
    EXPECT_EQ(CUnixUser::mod_user_data(user), 0);
    EXPECT_EQ(line_of(user), output_of("getent passwd alice"));
    user.home = "/home/refused";
    user.shell = "no/shell";
    EXPECT_EQ(CUnixUser::mod_user_data(user), 7);
    EXPECT_TRUE(std::filesystem::exists("/home/moved/letter"));

    EXPECT_EQ(CUnixUser::delete_user("alice"), 0);
    EXPECT_EQ(CUnixUser::get_user_data("alice", user), 2);
    EXPECT_TRUE(std::filesystem::exists("/home/moved/letter"));
  });
}

TEST(AccountTools, GroupFromBirthToEnd) {
  on_private_host([] {
    EXPECT_EQ(CUnixUser::create_group("tribe"), 0);
    EXPECT_EQ(CUnixUser::mod_grp_data({"tribe", 4300, {"root", "daemon"}}), 0);
    EXPECT_EQ(output_of("getent group tribe"), "tribe:x:4300:root,daemon\n");
    EXPECT_EQ(CUnixUser::delete_group("tribe"), 0);
    EXPECT_EQ(output_of("getent group tribe"), "");
    sandbox::stand_in("/usr/sbin/groupadd", 3);
    EXPECT_EQ(CUnixUser::create_group("tribe"), 7);
  });
}

TEST(AccountTools, WalksYieldWhatTheDatabasesHold) {
  on_private_host([] {
    const auto collect = [](const auto& record, void* text) {
      *static_cast<std::string*>(text) += line_of(record);
      errno = EIO;
      return 0;
    };
    // Longer than any first guess at a buffer, so that look-ups have to ask again.
    std::string members;
    for (int i = 10000; i < 12000; ++i) members += ",m" + std::to_string(i);
    sandbox::write_file("/etc/group", "root:x:0:\nmany:x:4301:" + members.substr(1) + "\n");
    std::string users;
    std::string groups;
    EXPECT_EQ(CUnixUser::get_all_user_data(collect, &users), 0);
    EXPECT_EQ(users, output_of("getent passwd"));
    EXPECT_EQ(CUnixUser::get_all_group_data(collect, &groups), 0);
    EXPECT_EQ(groups, output_of("getent group"));
    Group many;
    EXPECT_EQ(CUnixUser::get_group_data("many", many), 0);
    EXPECT_EQ(many.members.size(), 2000U);
  });
}

TEST(AccountTools, PasswordGoesThroughThePipe) {
  on_private_host([] {
    EXPECT_EQ(CUnixUser::create_user("alice"), 0);
    EXPECT_EQ(CUnixUser::mod_passwd("alice", "p:a s$w\"ord"), 0);
    EXPECT_TRUE(password_is("alice", "p:a s$w\"ord"));
    const int input = ::dup(0);
    ::close(0);
    EXPECT_EQ(CUnixUser::mod_passwd("alice", "without input"), 0);
    ::dup2(input, 0);
    EXPECT_TRUE(password_is("alice", "without input"));

    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    const int next = ::dup(input);
    ::close(next);
    const rlimit one_left{static_cast<rlim_t>(next) + 1, limit.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &one_left), 0);
    EXPECT_EQ(CUnixUser::mod_passwd("alice", "no pipe"), 21);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(::dup(input), next) << "a descriptor was left open";
    ::signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(CUnixUser::mod_passwd("alice", "no child to wait for"), 21);
    ::signal(SIGCHLD, SIG_DFL);

    // Longer than a pipe holds, under a rain of signals that cut writes and waits short.
    const std::string longer(300000, 'p');
    put_chpasswd("sleep 0.05; cat > " + sandbox::scratch() + "/input; sleep 0.05");
    struct sigaction wake {};
    wake.sa_handler = [](int) {};
    ::sigaction(SIGALRM, &wake, nullptr);
    const itimerval rain{{0, 1000}, {0, 1000}};
    ::setitimer(ITIMER_REAL, &rain, nullptr);
    EXPECT_EQ(CUnixUser::mod_passwd("alice", longer), 0);
    const itimerval dry{};
    ::setitimer(ITIMER_REAL, &dry, nullptr);
    EXPECT_EQ(sandbox::read_file(sandbox::scratch() + "/input"), "alice:" + longer + "\n");

    put_chpasswd("exit 1");
    EXPECT_EQ(CUnixUser::mod_passwd("alice", longer), 0) << "a tool that does not read";
    sigset_t pending;
    ::sigpending(&pending);
    EXPECT_EQ(::sigismember(&pending, SIGPIPE), 0);
    sigset_t mask;
    ::pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    EXPECT_EQ(::sigismember(&mask, SIGPIPE), 0);
  });
}
