#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

/// A directory of the test's own, removed with everything in it.
class TempDir {
 public:
  TempDir()
      : path_((std::filesystem::temp_directory_path() / "utility-test-").string() +
              std::string(6, 'X')) {
    if (::mkdtemp(path_.data()) == nullptr) std::abort();
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  /// The path of `name` inside.
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

  /// Writes a file inside and returns its path.
  std::string write(const std::string& name, const std::string& content) const {
    std::ofstream(*this / name, std::ios::binary) << content;
    return *this / name;
  }
  std::string read(const std::string& name) const {
    std::ifstream stream(*this / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

 private:
  std::string path_;
};
