#include "utility/CUnixUser.h"

#include <signal.h>
#include <string.h>

#include "base/callback.h"
#include "base/database_entry.h"
#include "base/edited_copy.h"
#include "base/paths.h"
#include "base/text.h"
#include "utility/CUnixTools.h"

namespace utility {

using namespace detail;

namespace {

enum Code : int {
  kDone = 0,
  kNoNameToLookUp = 1,
  kNoSuchUser = 2,
  kNoSuchGroup = 3,
  kNoNameToChange = 4,
  kUidTaken = 5,
  kToolFailed = 7,
  kGidTaken = 8,
  kGroupExists = 9,
  kUserExists = 10,
  kNoUserForPassword = 11,
  kWalkStopped = 20,
  kChildFailed = 21,
  kFileNotRead = 22,
  kUserOfSameName = 23,
};

// Keeps a database of the C library open for a walk over it.
class DatabaseWalk {
 public:
  DatabaseWalk(void (*rewind)(), void (*close)()) noexcept : close_(close) { rewind(); }
  DatabaseWalk(const DatabaseWalk&) = delete;
  DatabaseWalk& operator=(const DatabaseWalk&) = delete;
  ~DatabaseWalk() { close_(); }

 private:
  void (*close_)();
};

// Sets `found` to 1 when a line of the database file `path` begins with `name` and ":", else to 0.
// Returns kFileNotRead, with `found` untouched, when the file cannot be read.
Code find_account_line(const char* path, const std::string& name, int& found) {
  std::string text;
  if (const Fd file = open_to_read(path); !file || !read_all(file.get(), text)) return kFileNotRead;
  const std::string start = name + ":";
  found = 0;
  for (std::string_view rest = text; found == 0 && !rest.empty();) {
    found = begins_with(take_line(rest, rest.size()), start) ? 1 : 0;
  }
  return kDone;
}

// kToolFailed when the exit code of the command is not 0.
Code run_tool(const std::string& command) {
  return CUnixTools::exec_cmd(command.c_str()) == 0 ? kDone : kToolFailed;
}

// Runs a removing tool on `name`, keeping a name of "*" from the shell.
Code run_removal(const char* tool, const std::string& name) {
  return run_tool(std::string(tool) + " " + (name == "*" ? "\\*" : name));
}

// The options that turn `current` into `wanted`. Only the comment is quoted; an empty home is an
// argument all the same.
std::string usermod_options(const CUnixUser::UnixUserData& wanted,
                            const CUnixUser::UnixUserData& current) {
  std::string options;
  if (wanted.uid != current.uid) options += " -u " + std::to_string(wanted.uid);
  if (wanted.gid != current.gid) options += " -g " + std::to_string(wanted.gid);
  if (wanted.home != current.home) options += " -d " + (wanted.home.empty() ? "\"\"" : wanted.home);
  if (wanted.shell != current.shell) options += " -s " + wanted.shell;
  if (wanted.gecos != current.gecos) options += " -c \"" + wanted.gecos + "\"";
  return options;
}

constexpr char kGroupFile[] = "/etc/group";
constexpr char kWorkingCopy[] = "/etc/group.temp";
constexpr char kBackup[] = "/etc/group.bak";

// Writes the group file with the new members of the group `name` to the working copy.
int write_working_copy(const std::string& name, const std::vector<std::string>& members) {
  int found = 0;
  if (const int status = CUnixUser::is_group_exist(name, found)) return status;
  if (found == 0) return kNoSuchGroup;
  std::string member_text;
  CUnixUser::get_new_grp_mem_list(members, member_text);
  const auto edit = [&](std::string_view line, std::string& text) {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos || line.substr(0, colon) != name) {
      text.append(line);
    } else {
      text.append(line.substr(0, line.rfind(':'))).append(":").append(member_text).append("\n");
    }
  };
  const Copied copied = append_edited_copy(kGroupFile, kWorkingCopy, edit);
  return copied < Copied::kNotWritten ? kFileNotRead : kDone;
}

struct Wiper {
  void operator()(std::string* text) const noexcept {
    ::explicit_bzero(text->data(), text->size());
    delete text;
  }
};
using Secret = std::unique_ptr<std::string, Wiper>;

// What chpasswd reads; wiped before its memory goes back.
Secret password_line(const std::string& name, const std::string& password) {
  Secret line(new std::string);
  // Room for all at once: growing would leave copies behind.
  line->reserve(name.size() + password.size() + 2);
  line->append(name).append(":").append(password).append("\n");
  return line;
}

// The child's part, between fork and exec: async-signal-safe calls only.
[[noreturn]] void become_chpasswd(int input) noexcept {
  // Where the caller has no standard input, the pipe has taken its place and must outlive the exec.
  const bool is_placed = input == STDIN_FILENO ? ::fcntl(input, F_SETFD, 0) == 0
                                               : ::dup2(input, STDIN_FILENO) == STDIN_FILENO;
  char name[] = "chpasswd";
  char* const arguments[] = {name, nullptr};
  if (is_placed) ::execv("/usr/sbin/chpasswd", arguments);
  ::_exit(127);
}

// Keeps SIGPIPE from this thread while it lives. Other threads rely on the process's action for it.
class SigpipeGuard {
 public:
  SigpipeGuard() noexcept {
    sigset_t pending;
    ::sigpending(&pending);
    was_pending_ = ::sigismember(&pending, SIGPIPE) == 1;
    ::sigemptyset(&sigpipe_);
    ::sigaddset(&sigpipe_, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &sigpipe_, &previous_);
  }
  SigpipeGuard(const SigpipeGuard&) = delete;
  SigpipeGuard& operator=(const SigpipeGuard&) = delete;
  ~SigpipeGuard() {
    // Takes back what the write raised; a signal that waited before is the caller's.
    const timespec now{};
    if (!was_pending_) retry([&] { return ::sigtimedwait(&sigpipe_, nullptr, &now); });
    ::pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
  }

 private:
  sigset_t sigpipe_;
  sigset_t previous_;
  bool was_pending_ = false;
};

}  // namespace

void CUnixUser::pw_2_ud(const passwd& entry, UnixUserData& record) {
  record.name = or_empty(entry.pw_name);
  record.uid = entry.pw_uid;
  record.gid = entry.pw_gid;
  record.gecos = or_empty(entry.pw_gecos);
  record.home = or_empty(entry.pw_dir);
  record.shell = or_empty(entry.pw_shell);
}

int CUnixUser::get_user_data(const std::string& name, UnixUserData& record) {
  if (name.empty()) return kNoNameToLookUp;
  const UserEntry user = find_user(name.c_str());
  if (!user) return kNoSuchUser;
  pw_2_ud(*user, record);
  return kDone;
}

int CUnixUser::get_all_user_data(int (*callback)(const UnixUserData&, void*), void* context) {
  const DatabaseWalk walk(::setpwent, ::endpwent);
  UnixUserData record;
  while (const passwd* entry = ::getpwent()) {
    pw_2_ud(*entry, record);
    if (stops(callback, record, context)) return kWalkStopped;
  }
  return kDone;
}

std::string CUnixUser::getusernamebyid(unsigned int uid) {
  const UserEntry user = find_user_by_id(uid);
  return user ? user->pw_name : std::to_string(uid);
}

int CUnixUser::is_user_exist(const std::string& name, int& found) {
  return find_account_line("/etc/passwd", name, found);
}

int CUnixUser::create_user(const std::string& name) {
  if (name.empty()) return kNoNameToChange;
  if (find_user(name.c_str())) return kUserExists;
  int has_group = 0;
  if (const int status = is_group_exist(name, has_group)) return status;
  std::string command = "/usr/sbin/useradd " + name;
  if (has_group != 0) command += " -g" + name;
  // The tool's exit code tells less than the account: useradd also fails over side work, such as a
  // mail spool. A shell that could not be started leaves no account either.
  CUnixTools::exec_cmd(command.c_str());
  return find_user(name.c_str()) ? kDone : kToolFailed;
}

int CUnixUser::mod_user_data(const UnixUserData& record) {
  if (record.name.empty()) return kNoNameToChange;
  UnixUserData current;
  if (get_user_data(record.name, current) != kDone) return kNoSuchUser;
  if (record.uid != current.uid && find_user_by_id(record.uid)) return kUidTaken;
  const std::string options = usermod_options(record, current);
  if (options.empty()) return kDone;

  if (const int status = run_tool("/usr/sbin/usermod" + options + " " + record.name)) return status;
  if (record.home != current.home)
    static_cast<void>(std::rename(current.home.c_str(), record.home.c_str()));
  return kDone;
}

int CUnixUser::delete_user(const std::string& name) {
  if (name.empty()) return kNoNameToChange;
  if (!find_user(name.c_str())) return kNoSuchUser;
  return run_removal("/usr/sbin/userdel", name);
}

void CUnixUser::gr_2_gd(const group& entry, UnixGroupData& record) {
  record.name = or_empty(entry.gr_name);
  record.gid = entry.gr_gid;
  record.members.clear();
  for (char** member = entry.gr_mem; member != nullptr && *member != nullptr; ++member) {
    record.members.emplace_back(*member);
  }
}

int CUnixUser::get_group_data(const std::string& name, UnixGroupData& record) {
  if (name.empty()) return kNoNameToLookUp;
  const GroupEntry entry = find_group(name.c_str());
  if (!entry) return kNoSuchGroup;
  gr_2_gd(*entry, record);
  return kDone;
}

int CUnixUser::get_all_group_data(int (*callback)(const UnixGroupData&, void*), void* context) {
  const DatabaseWalk walk(::setgrent, ::endgrent);
  UnixGroupData record;
  // The end of the database leaves errno alone, an error sets it.
  for (errno = 0; const group* entry = ::getgrent(); errno = 0) {
    gr_2_gd(*entry, record);
    if (stops(callback, record, context)) return kWalkStopped;
  }
  return errno != 0 ? kNoSuchGroup : kDone;
}

std::string CUnixUser::getgrpnamebyid(unsigned int gid) {
  const GroupEntry entry = find_group_by_id(gid);
  return entry ? entry->gr_name : std::to_string(gid);
}

int CUnixUser::is_group_exist(const std::string& name, int& found) {
  return find_account_line(kGroupFile, name, found);
}

int CUnixUser::create_group(const std::string& name) {
  if (name.empty()) return kNoNameToChange;
  int found = 0;
  if (const int status = is_group_exist(name, found)) return status;
  if (found != 0) return kGroupExists;
  return run_tool("/usr/sbin/groupadd " + name);
}

int CUnixUser::delete_group(const std::string& name) {
  if (name.empty()) return kNoNameToChange;
  if (find_user(name.c_str())) {
    std::puts("have same of username");
    return kUserOfSameName;
  }
  if (!find_group(name.c_str())) return kNoSuchGroup;
  return run_removal("/usr/sbin/groupdel", name);
}

int CUnixUser::mod_grp_data(const UnixGroupData& record) {
  if (record.name.empty()) return kNoNameToChange;
  const GroupEntry current = find_group(record.name.c_str());
  if (!current) return kNoSuchGroup;
  std::string command = "/usr/sbin/groupmod";
  if (record.gid != current->gr_gid) {
    if (find_group_by_id(record.gid)) return kGidTaken;
    command += " -g " + std::to_string(record.gid);
  }
  if (const int status = run_tool(command + " " + record.name)) return status;
  return mod_group_member(record.name, record.members);
}

int CUnixUser::mod_group_member(const std::string& name, const std::vector<std::string>& members) {
  const int status = write_working_copy(name, members);
  // Taken whatever the status: callers know this ending, and the header warns of it.
  static_cast<void>(std::rename(kGroupFile, kBackup));
  static_cast<void>(std::rename(kWorkingCopy, kGroupFile));
  static_cast<void>(std::remove(kBackup));
  return status;
}

void CUnixUser::get_new_grp_mem_list(const std::vector<std::string>& members, std::string& text) {
  if (members.empty()) text.clear();
  text += joined(members, ",");
}

int CUnixUser::mod_passwd(const std::string& name, const std::string& password) {
  if (name.empty()) return kNoNameToChange;
  if (!find_user(name.c_str())) return kNoUserForPassword;
  const Secret line = password_line(name, password);

  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return kChildFailed;
  Fd read_end(ends[0]);
  Fd write_end(ends[1]);
  const pid_t child = ::fork();
  if (child < 0) return kChildFailed;
  if (child == 0) become_chpasswd(read_end.get());

  read_end.reset();
  {
    const SigpipeGuard guard;
    // To the end, since half a password must not be set; a reader that goes away is no failure.
    write_all(write_end.get(), *line);
  }
  write_end.reset();
  return wait_for(child) ? kDone : kChildFailed;
}

}  // namespace utility
