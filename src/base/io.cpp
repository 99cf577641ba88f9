#include "base/io.h"

#include <poll.h>

#include <chrono>

#include "base/text.h"

namespace utility::detail {
namespace {

struct CommandEnd {
  void operator()(FILE* command) const noexcept { ::pclose(command); }
};

}  // namespace

bool read_all(int fd, std::string& text) {
  std::array<char, 4096> block;
  for (;;) {
    const ssize_t count = read_some(fd, block.data(), block.size());
    if (count <= 0) return count == 0;
    text.append(block.data(), static_cast<std::size_t>(count));
  }
}

int wait_for_events(int fd, short events, int milliseconds) noexcept {
  using std::chrono::steady_clock;
  if (fd < 0) return -1;
  using Milliseconds = std::chrono::duration<int, std::milli>;
  const auto end = steady_clock::now() + Milliseconds(milliseconds);
  pollfd entry{fd, events, 0};
  const int ready = retry([&] {
    const int rest = std::chrono::ceil<Milliseconds>(end - steady_clock::now()).count();
    return ::poll(&entry, 1, milliseconds < 0 ? -1 : std::max(rest, 0));
  });
  return (entry.revents & POLLNVAL) != 0 ? -1 : ready;
}

bool read_command(const char* command, std::string& output) {
  const std::unique_ptr<FILE, CommandEnd> pipe(::popen(command, "re"));
  if (!pipe) return false;
  // Not through the stream: where a signal interrupts that, what it has of a line is lost.
  read_all(::fileno(pipe.get()), output);
  return true;
}

std::string_view take_line(std::string_view& rest, std::size_t most) noexcept {
  const std::string_view reach = rest.substr(0, most);
  const std::string_view line = reach.substr(0, reach.find('\n') + 1);
  const std::string_view taken = line.empty() ? reach : line;
  rest.remove_prefix(taken.size());
  return taken;
}

bool LineSource::next() noexcept {
  std::size_t size = 0;
  while (size + 1 < room_ && (!rest_.empty() || fill())) {
    const std::string_view part = take_line(rest_, room_ - 1 - size);
    std::memcpy(piece_ + size, part.data(), part.size());
    size += part.size();
    if (part.back() == '\n') break;
  }
  piece_[size] = '\0';
  consumed_ += size;
  return size > 0 && !failed_;
}

// Reads the next block; false at the end.
bool LineSource::fill() noexcept {
  if (!file_ || failed_) return false;
  const ssize_t count = read_some(file_.get(), block_, kBlock);
  failed_ = count < 0;
  if (count > 0) rest_ = {block_, static_cast<std::size_t>(count)};
  return count > 0;
}

const char* find_field(LineSource& lines, std::string_view key) noexcept {
  while (lines.next()) {
    const std::string_view word = first_word(lines.text());
    if (word == key) return word.data() + word.size();
  }
  return nullptr;
}

}  // namespace utility::detail
