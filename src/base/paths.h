#pragma once

#include <string>

// Small questions about paths that several families ask.
namespace utility::detail {

/// Lets a null path be examined as the empty one, which never exists.
inline const char* or_empty(const char* path) noexcept { return path != nullptr ? path : ""; }

/// True when `path` exists (links followed, so a dangling link does not).
bool exists(const char* path) noexcept;

/// The same, but a dangling link exists too.
bool exists_itself(const char* path) noexcept;

/// True when `path` is a regular file, links followed.
bool is_regular_file(const char* path) noexcept;

/// Reads the link `path`, relative to the open directory `dir` (AT_FDCWD for the caller's).
///
/// At most `limit` bytes of the target are kept; `limit` is at most 4096. False, with errno set and
/// `target` untouched, when it is no readable link.
bool read_link_at(int dir, const char* path, std::size_t limit, std::string& target);

/// `path` without the slashes at its end: with them, a link would be followed whatever the call.
std::string without_end_slashes(std::string path);

/// `dir` + "/" + `name`, cut to at most `limit` bytes.
std::string join_path(const char* dir, const char* name, std::size_t limit);

}  // namespace utility::detail
