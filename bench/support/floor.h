#pragma once

#include <cstddef>

// What reading /proc costs by itself: the system calls that nobody can leave out and one look at
// every byte, without understanding any.
namespace bench::floor {

/// Opens, reads up to `limit` bytes with one call, and closes; false when it cannot be opened.
bool touch_file(int dir, const char* path, std::size_t limit);

/// Reads a whole file in pages.
void touch_table(const char* path);

/// Examines every entry of a directory; returns how many are sockets.
int touch_descriptors(int dir, const char* path);

/// Calls `visit(proc, name)` for every process, `proc` being the open /proc.
void each_process(void (*visit)(int proc, const char* name));

}  // namespace bench::floor
