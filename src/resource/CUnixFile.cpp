#include "utility/CUnixFile.h"

#include <mntent.h>

#include "base/callback.h"
#include "base/dir_walk.h"
#include "base/io.h"
#include "base/paths.h"
#include "base/text.h"
#include "utility/CConv.h"

namespace utility {

using namespace detail;

namespace {

enum Code : int {
  kDone = 0,
  kEmptyPath = 1,
  kNotExamined = 2,
  kNotDirectory = 3,
  kNotOpened = 4,
  kStopped = 5,
  kExists = 6,
  kFileNotCreated = 7,
  kDirectoryNotCreated = 8,
  kBadType = 9,
  kMissing = 10,
  kNotRemoved = 11,
  kNotRenamed = 12,
  kModeNotSet = 13,
  kUnknownType = 14,
  kNoMountTable = 17,
};

constexpr unsigned char kFile = '_';
constexpr unsigned char kDirectory = 'd';
constexpr unsigned char kAnyType = 'a';
constexpr int kHasDirectory = 1;
constexpr int kHasFile = 2;

struct FileType {
  unsigned int bits;     // of the mode word
  unsigned char letter;  // of the records
  char shown;            // in a permission string
};
constexpr FileType kFileTypes[] = {
    {S_IFREG, kFile, '-'}, {S_IFDIR, kDirectory, 'd'}, {S_IFCHR, 'c', 'c'}, {S_IFBLK, 'b', 'b'},
    {S_IFIFO, 'f', 'f'},   {S_IFLNK, 'l', 'l'},        {S_IFSOCK, 's', 's'}};

// Null for a type that has no letter.
const FileType* type_of(unsigned int mode) {
  for (const FileType& type : kFileTypes) {
    if ((mode & S_IFMT) == type.bits) return &type;
  }
  return nullptr;
}

constexpr const char* kWithQuota[] = {"ext4", "ext3", "ext2"};

// The permissions of one class: where its bits stand and how its special bit shows.
struct ModeClass {
  unsigned int shift;
  unsigned int special;
  char with_execute;
  char without_execute;
};
constexpr ModeClass kModeClasses[] = {
    {6, S_ISUID, 's', 'S'}, {3, S_ISGID, 's', 'S'}, {0, S_ISVTX, 't', 'T'}};

char* put_permissions(unsigned int mode, const ModeClass& who, char* out) {
  const unsigned int bits = mode >> who.shift;
  *out++ = (bits & S_IROTH) != 0 ? 'r' : '-';
  *out++ = (bits & S_IWOTH) != 0 ? 'w' : '-';
  const bool execute = (bits & S_IXOTH) != 0;
  const char plain = execute ? 'x' : '-';
  const char special = execute ? who.with_execute : who.without_execute;
  *out++ = (mode & who.special) != 0 ? special : plain;
  return out;
}

// The paths of a directory's entries, formed in one string.
class EntryPath {
 public:
  explicit EntryPath(const std::string& dir) : path_(dir + "/"), prefix_(path_.size()) {}

  const char* of(const char* name) {
    path_.resize(prefix_);
    path_ += name;
    return path_.c_str();
  }
  const std::string& text() const { return path_; }

 private:
  std::string path_;
  std::size_t prefix_;
};

// A target that appeared meanwhile stays; where the file system cannot promise that, rename() does.
int rename_without_replacing(const char* from, const char* to) {
  if (::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return 0;
  if (errno == EEXIST) return kExists;
  const bool unsupported = errno == EINVAL || errno == ENOSYS;
  return unsupported && std::rename(from, to) == 0 ? 0 : kNotRenamed;
}

struct MountTableCloser {
  void operator()(FILE* table) const noexcept { ::endmntent(table); }
};
using MountTable = std::unique_ptr<FILE, MountTableCloser>;

// remove(3) below the open directory `dir`.
bool remove_at(int dir, const char* name) {
  return ::unlinkat(dir, name, 0) == 0 ||
         (errno == EISDIR && ::unlinkat(dir, name, AT_REMOVEDIR) == 0);
}

// What is left of a name that cannot be converted may be these; they lead back or out.
bool is_entry_name(const std::string& name) { return !name.empty() && name != "." && name != ".."; }

// Deletes what is below a directory, of any depth: whoever owns a tree chooses how deep it is. So
// there is no recursion, and of the directories on the way only the deepest few stay open; the
// others are found again through "..". Everything is reached by its name within an open directory,
// so that nothing outside the tree is, whatever is put in an entry's place meanwhile.
class TreeDelete {
 public:
  int run(const std::string& path) {
    if (!descend(AT_FDCWD, without_end_slashes(path))) return kNotOpened;
    for (;;) {
      DirWalk& walk = *levels_.back().walk;
      const char* entry = walk.next();
      if (entry == nullptr) {
        if (levels_.size() == 1) return kDone;
        if (!ascend()) return kStopped;
        continue;
      }
      const FileStatus status(walk.fd(), entry, AT_SYMLINK_NOFOLLOW);
      if (!status) return levels_.size() == 1 ? kNotExamined : kStopped;
      if (!remove(walk.fd(), entry, status.is(S_IFDIR))) return kStopped;
    }
  }

 private:
  struct Level {
    std::string name;
    FileStatus status;
    std::unique_ptr<DirWalk> walk;  // null where it is not among the deepest few
  };
  static constexpr std::size_t kOpenLevels = 16;

  // By the converted name, as the records have it. A directory is entered, and goes when it is
  // empty.
  bool remove(int dir, const char* entry, bool is_directory) {
    const std::string name = CConv::utf8_to_gbk_string(entry);
    if (!is_entry_name(name)) return false;
    const bool enters =
        is_directory && FileStatus(dir, name.c_str(), AT_SYMLINK_NOFOLLOW).is(S_IFDIR);
    return enters ? descend(dir, name) : remove_at(dir, name.c_str());
  }

  bool descend(int parent, const std::string& name) {
    auto walk = std::make_unique<DirWalk>(parent, name.c_str(), O_NOFOLLOW);
    const FileStatus status(walk->fd());
    if (!status) return false;
    if (levels_.size() >= kOpenLevels) levels_[levels_.size() - kOpenLevels].walk.reset();
    levels_.push_back({name, status, std::move(walk)});
    return true;
  }

  // Goes back to the directory above and removes the one that is empty now.
  bool ascend() {
    const Level child = std::move(levels_.back());
    levels_.pop_back();
    Level& level = levels_.back();
    if (!level.walk) {
      level.walk = std::make_unique<DirWalk>(child.walk->fd(), "..");
      // Not the same: the tree was moved to another place meanwhile.
      if (!FileStatus(level.walk->fd()).is_same(level.status)) return false;
    }
    return ::unlinkat(level.walk->fd(), child.name.c_str(), AT_REMOVEDIR) == 0;
  }

  std::vector<Level> levels_;
};

}  // namespace

bool CUnixFile::is_one_type(unsigned int mode, unsigned char type) {
  const FileType* found = type_of(mode);
  return found != nullptr && found->letter == type;
}

char* CUnixFile::mode_2_string(unsigned int mode, char* buffer, int size) {
  if (buffer == nullptr || size < 1) return nullptr;
  std::array<char, 10> text;
  const FileType* type = type_of(mode);
  text[0] = type != nullptr ? type->shown : buffer[0];
  char* end = text.data() + 1;
  for (const ModeClass& who : kModeClasses) end = put_permissions(mode, who, end);

  const std::size_t length = std::min(text.size(), static_cast<std::size_t>(size) - 1);
  *std::copy_n(text.data(), length, buffer) = '\0';
  return buffer;
}

int CUnixFile::mod_mode(const std::string& path, const unsigned int& mode) {
  if (path.empty()) return kEmptyPath;
  if (!exists(path.c_str())) return kMissing;
  return ::chmod(path.c_str(), mode) == 0 ? kDone : kModeNotSet;
}

int CUnixFile::rename_item(const std::string& old_path, const std::string& new_path) {
  if (old_path.empty() || new_path.empty()) return kEmptyPath;
  if (!exists(old_path.c_str())) return kMissing;
  if (exists_itself(new_path.c_str())) return kExists;
  return rename_without_replacing(old_path.c_str(), new_path.c_str());
}

int CUnixFile::create_item(const std::string& path, unsigned char type, unsigned int mode) {
  if (path.empty()) return kEmptyPath;
  if (exists(path.c_str())) return kExists;
  if (type == kDirectory) {
    if (::mkdir(path.c_str(), 0) != 0) return kDirectoryNotCreated;
  } else if (type == kFile) {
    // Not truncating: a file that somebody else makes in between keeps its contents.
    if (!Fd(::open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0))) return kFileNotCreated;
  } else {
    return kBadType;
  }
  return ::chmod(path.c_str(), mode) == 0 ? kDone : kModeNotSet;
}

int CUnixFile::stat_2_fd(const std::string& name, struct stat64& st, UnixFileData& record) {
  record.name = CConv::utf8_to_gbk_string(name.c_str());
  record.size = st.st_size / 1024;
  record.mode = st.st_mode;
  const FileType* type = type_of(st.st_mode);
  if (type == nullptr) return kUnknownType;
  record.type = type->letter;
  record.uid = st.st_uid;
  record.gid = st.st_gid;
  record.mtime = st.st_mtim.tv_sec;
  record.atime = st.st_atim.tv_sec;
  record.ctime = st.st_ctim.tv_sec;
  return 0;
}

int CUnixFile::has_subitem(const std::string& path) {
  int flags = 0;
  DirWalk dir(path.c_str());
  EntryPath entry(path);
  while (const char* name = dir.next()) {
    struct stat64 st {};
    if (::stat64(entry.of(name), &st) != 0) continue;
    if (S_ISDIR(st.st_mode)) flags |= kHasDirectory;
    if (S_ISREG(st.st_mode)) flags |= kHasFile;
  }
  return flags;
}

int CUnixFile::get_sub_item(const std::string& path, unsigned char filter,
                            int (*callback)(const UnixFileData&, void*), void* context) {
  if (path.empty()) return kEmptyPath;
  struct stat64 st {};
  if (::lstat64(path.c_str(), &st) != 0) return kNotExamined;
  if (!S_ISDIR(st.st_mode)) return kNotDirectory;
  DirWalk dir(path.c_str());
  if (!dir) return kNotOpened;

  EntryPath entry(path);
  while (const char* name = dir.next()) {
    if (::lstat64(entry.of(name), &st) != 0) return kNotExamined;
    if (filter != kAnyType && !is_one_type(st.st_mode, filter)) continue;
    UnixFileData record;
    if (S_ISDIR(st.st_mode)) record.sub = has_subitem(entry.text());
    if (const int result = stat_2_fd(name, st, record)) return result;
    if (stops(callback, record, context)) return kStopped;
  }
  return 0;
}

int CUnixFile::get_quota_disk(int (*callback)(const std::string&, void*), void* context) {
  const MountTable table(::setmntent("/etc/mtab", "r"));
  if (!table) return kNoMountTable;
  mntent entry{};
  std::array<char, 4096> line;  // what getmntent() has, which is not re-entrant
  while (::getmntent_r(table.get(), &entry, line.data(), line.size()) != nullptr) {
    if (!is_one_of(kWithQuota, entry.mnt_type)) continue;
    if (stops<std::string>(callback, entry.mnt_dir, context)) return kStopped;
  }
  return 0;
}

int CUnixFile::delete_item(const std::string& path, bool recursive) {
  if (path.empty()) return kEmptyPath;
  if (!exists_itself(path.c_str())) return kMissing;
  if (recursive) {
    // With a slash at its end, a link would show the directory that it leads to.
    const std::string item = without_end_slashes(path.substr(0, path.find('\0')));
    const FileStatus status(item.c_str(), AT_SYMLINK_NOFOLLOW);
    if (!status) return kNotExamined;
    if (const int result = status.is(S_IFDIR) ? TreeDelete().run(item) : kDone) return result;
  }
  return std::remove(path.c_str()) == 0 ? kDone : kNotRemoved;
}

int CUnixFile::call_back_del(const UnixFileData& record, void* context) {
  const auto* parent = static_cast<const std::string*>(context);
  if (parent == nullptr || !is_entry_name(record.name)) return -1;
  return delete_item(*parent + "/" + record.name, record.type == 'd') == 0 ? 0 : -1;
}

}  // namespace utility
