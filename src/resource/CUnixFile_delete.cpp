// The deleting part of CUnixFile.

#include <memory>
#include <vector>

#include "base/dir_walk.h"
#include "base/io.h"
#include "base/paths.h"
#include "resource/CUnixFile_code.h"
#include "utility/CConv.h"
#include "utility/CUnixFile.h"

namespace utility {

using namespace detail;

namespace {

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
        if (levels_.size() == 1) return kItemDone;
        if (!ascend()) return kStopped;
        continue;
      }
      struct stat status {};
      if (::fstatat(walk.fd(), entry, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return levels_.size() == 1 ? kNotExamined : kStopped;
      }
      if (!remove(walk.fd(), entry, S_ISDIR(status.st_mode))) return kStopped;
    }
  }

 private:
  struct Level {
    std::string name;
    dev_t device;
    ino_t inode;
    std::unique_ptr<DirWalk> walk;  // null where it is not among the deepest few
  };
  static constexpr std::size_t kOpenLevels = 16;

  // Goes by the converted name, as the records have it. A directory is entered, and removed when it
  // is empty.
  bool remove(int dir, const char* entry, bool is_directory) {
    const std::string name = CConv::utf8_to_gbk_string(entry);
    if (!is_entry_name(name)) return false;
    struct stat status {};
    const bool enters = is_directory &&
                        ::fstatat(dir, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                        S_ISDIR(status.st_mode);
    return enters ? descend(dir, name) : remove_at(dir, name.c_str());
  }

  bool descend(int parent, const std::string& name) {
    auto walk = std::make_unique<DirWalk>(parent, name.c_str(), O_NOFOLLOW);
    struct stat status {};
    if (!*walk || ::fstat(walk->fd(), &status) != 0) return false;
    if (levels_.size() >= kOpenLevels) levels_[levels_.size() - kOpenLevels].walk.reset();
    levels_.push_back({name, status.st_dev, status.st_ino, std::move(walk)});
    return true;
  }

  // Goes back to the directory above and removes the one that is empty now.
  bool ascend() {
    const Level child = std::move(levels_.back());
    levels_.pop_back();
    Level& level = levels_.back();
    if (!level.walk) {
      level.walk = std::make_unique<DirWalk>(child.walk->fd(), "..");
      struct stat status {};
      // Not the same: the tree was moved to another place meanwhile.
      if (!*level.walk || ::fstat(level.walk->fd(), &status) != 0 ||
          status.st_dev != level.device || status.st_ino != level.inode) {
        return false;
      }
    }
    return ::unlinkat(level.walk->fd(), child.name.c_str(), AT_REMOVEDIR) == 0;
  }

  std::vector<Level> levels_;
};

}  // namespace

int CUnixFile::delete_item(const std::string& path, bool recursive) {
  if (path.empty()) return kEmptyPath;
  if (!exists_itself(path.c_str())) return kMissing;
  if (recursive) {
    struct stat status {};
    // With a slash at its end, a link would show the directory that it leads to.
    const std::string item = without_end_slashes(path.substr(0, path.find('\0')));
    if (::lstat(item.c_str(), &status) != 0) return kNotExamined;
    const int result = S_ISDIR(status.st_mode) ? TreeDelete().run(item) : kItemDone;
    if (result != kItemDone) return result;
  }
  return std::remove(path.c_str()) == 0 ? kItemDone : kNotRemoved;
}

int CUnixFile::call_back_del(const UnixFileData& record, void* context) {
  const auto* parent = static_cast<const std::string*>(context);
  if (parent == nullptr || !is_entry_name(record.name)) return -1;
  return delete_item(*parent + "/" + record.name, record.type == 'd') == 0 ? 0 : -1;
}

}  // namespace utility
