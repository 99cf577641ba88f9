#include "utility/CDiyLog.h"

#include <fcntl.h>
#include <ext/stdio_filebuf.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>

#include "base/handles.h"
#include "base/local_time.h"

namespace utility {

using namespace detail;

namespace {

// Messages are formatted into buffers of a multiple of this, with room for one byte less.
constexpr std::size_t kBlock = 512;
constexpr std::size_t kMaxBlocks = 1999;

// The room that a line keeps free in front of its message.
constexpr std::size_t kPrefixRoom = 112;

constexpr std::streamoff kSizeLimit = std::streamoff{10} * 1024 * 1024;

constexpr std::time_t kNever = -1;

}  // namespace

CDiyLog::CDiyLog()
    : m_inited(false), m_pid(0), m_flags(0), m_prefix_time(kNever), m_prefix_size(0), m_prefix{} {}

CDiyLog::~CDiyLog() = default;

bool CDiyLog::init(std::string path, unsigned long flags) {
  const std::lock_guard<std::mutex> hold(m_lock);
  m_flags = flags;
  if (m_inited) return false;

  if ((flags & kProcessId) != 0) {
    m_pid = ::getpid();
    m_prefix_time = kNever;
  }
  m_path = std::move(path);
  open_file((flags & kTruncate) != 0 ? O_TRUNC : O_APPEND);
  m_inited = true;
  return m_stream.is_open();
}

// Opens the file as the stream itself would, but closed in programs that the agent starts: a daemon
// restarted from here would hold a deleted log's disk space for as long as it runs.
void CDiyLog::open_file(int mode) {
  Fd file(::open(m_path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | mode, 0666));
  if (file) {
    const int fd = file.release();  // the buffer's now, if it can use it
    try {
      __gnu_cxx::stdio_filebuf<char> buffer(fd, std::ios::out);
      if (buffer.is_open()) {
        *m_stream.rdbuf() = std::move(buffer);
      } else {
        file.reset(fd);
      }
    } catch (const std::bad_alloc&) {
      // The buffer has closed the file. That counts as not opened: logging must not throw.
    }
  }
  m_stream.clear(m_stream.is_open() ? std::ios::goodbit : std::ios::failbit);
}

// NOLINTNEXTLINE(cert-dcl50-cpp): a printf-style operation is what callers use
void CDiyLog::write_log(const char* format, ...) {
  if (format == nullptr) return;
  const std::time_t now = std::time(nullptr);

  char small[kPrefixRoom + kBlock];
  char* message = small + kPrefixRoom;
  std::memset(message, 0, kBlock);  // a failing conversion promises no closing NUL
  Buffer large;

  std::va_list arguments;
  std::va_list again;
  va_start(arguments, format);
  va_copy(again, arguments);
  const int call_errno = errno;  // "%m" means the caller's
  const int length = std::vsnprintf(message, kBlock - 1, format, arguments);
  va_end(arguments);

  // A length of one block less one has lost its last character already, and stays so.
  const std::size_t blocks = static_cast<std::size_t>(std::max(length, 0)) / kBlock + 1;
  if (blocks > 1 && blocks <= kMaxBlocks) large = make_buffer(kPrefixRoom + blocks * kBlock);
  if (large != nullptr) {
    message = large.get() + kPrefixRoom;
    errno = call_errno;
    std::vsnprintf(message, blocks * kBlock - 1, format, again);
  }
  va_end(again);

  put_line(now, message, std::strlen(message));
}

// Writes the message, which has `kPrefixRoom` bytes before it and one after it for the line end.
void CDiyLog::put_line(std::time_t now, char* message, std::size_t length) {
  message[length] = '\n';
  const std::lock_guard<std::mutex> hold(m_lock);
  if (now != m_prefix_time) refresh_prefix(now);
  char* line = message - m_prefix_size;
  std::memcpy(line, m_prefix, m_prefix_size);
  m_stream.write(line, static_cast<std::streamsize>(m_prefix_size + length + 1));
  m_stream.flush();

  // Asked, not counted: what others append to the file makes it grow too.
  if (m_stream.tellp() < kSizeLimit) return;
  m_stream.close();
  ::unlink(m_path.c_str());
  open_file(O_APPEND);
}

void CDiyLog::refresh_prefix(std::time_t now) {
  static_assert(sizeof m_prefix <= kPrefixRoom);
  std::tm at{};
  local_time(now, at);

  int size = 0;
  if (m_pid != 0) size = std::snprintf(m_prefix, sizeof m_prefix, "[%d,%d] ", m_pid, 0);
  size += std::snprintf(m_prefix + size, sizeof m_prefix - static_cast<std::size_t>(size),
                        "%4d/%02d/%02d %02d:%02d:%02d    ", at.tm_year + 1900, at.tm_mon + 1,
                        at.tm_mday, at.tm_hour, at.tm_min, at.tm_sec);
  m_prefix_size = static_cast<std::size_t>(size);
  m_prefix_time = now;
}

}  // namespace utility
