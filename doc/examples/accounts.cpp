// Creates an account, changes its shell, and deletes it again. Needs root.

#include <utility/CUnixUser.h>

#include <cstdio>

int main() {
  using utility::CUnixUser;

  // Names go to a shell as they stand: check those that come from somewhere else.
  if (const int code = CUnixUser::create_user("watcher"); code != 0) {
    std::printf("not created: code %d\n", code);
    return 1;
  }

  CUnixUser::UnixUserData user;
  if (CUnixUser::get_user_data("watcher", user) != 0) return 1;
  user.shell = "/usr/sbin/nologin";
  user.gecos = "looks on";
  if (CUnixUser::mod_user_data(user) != 0) return 1;

  CUnixUser::UnixUserData changed;
  if (CUnixUser::get_user_data("watcher", changed) != 0) return 1;
  std::printf("%s: %s, %s\n", changed.name.c_str(), changed.gecos.c_str(), changed.shell.c_str());

  std::printf("deleted: code %d\n", CUnixUser::delete_user("watcher"));
  std::printf("deleted again: code %d\n", CUnixUser::delete_user("watcher"));
  return 0;
}
