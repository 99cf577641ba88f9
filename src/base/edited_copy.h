#pragma once

#include "base/io.h"

namespace utility::detail {

/// How far it came; the order counts.
enum class Copied { kNotOpened, kNotRead, kNotWritten, kWhole };

/// Appends the lines of the file `path`, in pieces of 1,023 bytes, to the file `copy`, which is
/// made when it is missing and takes over owner and mode. `edit(line, text)` appends to `text` what
/// is to stand there for `line`. What could be read before an error is written.
template <class Edit>
Copied append_edited_copy(const char* path, const char* copy, Edit edit) {
  Fd source = open_to_read(path);
  if (!source) return Copied::kNotOpened;
  const Fd target(::open(copy, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600));
  if (!target) return Copied::kNotOpened;
  take_over_rights(source.get(), target.get());

  std::string text;
  Lines<1024> lines(std::move(source));
  while (lines.next()) edit(lines.line(), text);
  // In one write: what a crash leaves of a copy stays in front of the next run's lines, and half a
  // line would spoil the first of them. And on the disk before it takes the place of `path`.
  const bool is_written = write_all(target.get(), text) && ::fsync(target.get()) == 0;
  if (lines.failed()) return Copied::kNotRead;
  return is_written ? Copied::kWhole : Copied::kNotWritten;
}

}  // namespace utility::detail
