// Makes a directory with a file in it, lists it, and deletes it with its contents.

#include <utility/CUnixFile.h>

#include <cstdio>

namespace {

using utility::CUnixFile;

int print(const CUnixFile::UnixFileData& entry, void* /*context*/) {
  char mode[11];
  std::printf("%s %s\n", CUnixFile::mode_2_string(entry.mode, mode, sizeof mode),
              entry.name.c_str());
  return 0;
}

}  // namespace

int main() {
  if (CUnixFile::create_item("inbox", 'd', 0750) != 0) return 1;
  if (CUnixFile::create_item("inbox/old", 'd', 0700) != 0) return 1;
  if (CUnixFile::create_item("inbox/letter", '_', 0640) != 0) return 1;

  CUnixFile::get_sub_item("inbox", 'd', print, nullptr);
  CUnixFile::get_sub_item("inbox", '_', print, nullptr);

  std::printf("not empty: code %d\n", CUnixFile::delete_item("inbox", false));
  std::printf("with contents: code %d\n", CUnixFile::delete_item("inbox", true));
  return 0;
}
