#include "net/socket_table.h"

#include <arpa/inet.h>
#include <linux/magic.h>
#include <sys/vfs.h>

#include <charconv>

#include "base/paths.h"

namespace utility::detail {
namespace {

// Walks a line that must look as expected, up to the first mismatch. The NUL matches nothing.
class StrictScanner {
 public:
  explicit StrictScanner(const char* text) noexcept : at_(text) {}

  bool fits() const noexcept { return fits_; }

  void expect(char byte) noexcept {
    fits_ = fits_ && *at_ == byte;
    if (fits_) ++at_;
  }

  void blanks() noexcept {
    while (*at_ == ' ') ++at_;
  }

  // Exactly `digits` upper-case hexadecimal digits.
  std::uint32_t hex(int digits) noexcept {
    std::uint32_t value = 0;
    for (; fits_ && digits > 0; --digits) {
      const bool decimal = *at_ >= '0' && *at_ <= '9';
      fits_ = decimal || (*at_ >= 'A' && *at_ <= 'F');
      if (fits_)
        value = value << 4 | static_cast<std::uint32_t>(*at_++ - (decimal ? '0' : 'A' - 10));
    }
    return value;
  }
  // The same after the byte `before`.
  std::uint32_t hex(char before, int digits) noexcept {
    expect(before);
    return hex(digits);
  }

  // One to ten decimal digits. What is beyond 32 bits is lost, as the C library loses it.
  std::uint32_t decimal() noexcept {
    std::uint64_t value = 0;
    int digits = 0;
    for (; *at_ >= '0' && *at_ <= '9' && digits <= 10; ++digits) {
      value = value * 10 + static_cast<std::uint64_t>(*at_++ - '0');
    }
    fits_ = fits_ && digits >= 1 && digits <= 10;
    return static_cast<std::uint32_t>(value);
  }
  // The same after one blank or more.
  std::uint32_t column() noexcept {
    expect(' ');
    blanks();
    return decimal();
  }

 private:
  const char* at_;
  bool fits_ = true;
};

// As inet_ntop has it, which formats through printf: a third of the time that a table takes.
std::string ipv4_text(const unsigned char* bytes) {
  std::array<char, 4 * sizeof "255."> text;
  char* end = text.data();
  for (int i = 0; i < 4; ++i) {
    end = std::to_chars(end, end + 3, bytes[i]).ptr;
    *end++ = '.';
  }
  return {text.data(), end - 1};
}

}  // namespace

Fd open_table(const char* path) noexcept {
  Fd table(retry([path] { return ::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC); }));
  if (!FileStatus(table.get()).is(S_IFREG)) table.reset();
  return table;
}

// Which file of the kernel it is matters too: reading its log or its memory is another matter.
bool is_kernel_table(const Fd& table, const char* path) {
  struct statfs system {};
  if (::fstatfs(table.get(), &system) != 0 || system.f_type != PROC_SUPER_MAGIC) return false;
  const std::string link = "/proc/self/fd/" + std::to_string(table.get());
  const std::string name = std::string("/net").append(std::strrchr(path, '/'));
  std::string target;
  return read_link_at(AT_FDCWD, link.c_str(), 4096, target) && ends_with(target, name);
}

bool scan_by_format(int family, const char* line, SocketLine& socket) noexcept {
  auto& [local, remote, local_port, remote_port, state, kept_inode] = socket;
  int inode = 0;
  // The columns that nobody keeps still have to convert.
  int number = 0;
  unsigned hex = 0;
  bool complete = false;
  // NOLINTBEGIN(cert-err34-c): how the C library takes numbers that do not fit is what is wanted.
  if (family == AF_INET) {
    complete = std::sscanf(line, " %d: %x:%x %x:%x %x %x:%x %d:%x %x %d %d %d", &number, &local[0],
                           &local_port, &remote[0], &remote_port, &state, &hex, &hex, &number, &hex,
                           &hex, &number, &number, &inode) == 14;
  } else {
    complete = std::sscanf(line, " %d: %8x%8x%8x%8x:%x %8x%8x%8x%8x:%x %x %x:%x %d:%x %x %d %d %d",
                           &number, &local[0], &local[1], &local[2], &local[3], &local_port,
                           &remote[0], &remote[1], &remote[2], &remote[3], &remote_port, &state,
                           &hex, &hex, &number, &hex, &hex, &number, &number, &inode) == 20;
  }
  // NOLINTEND(cert-err34-c)
  kept_inode = static_cast<std::uint32_t>(inode);
  return complete;
}

bool scan_kernel_layout(int family, const char* line, SocketLine& socket) noexcept {
  const std::size_t words = family == AF_INET ? 1 : 4;
  StrictScanner scan(line);
  scan.blanks();
  scan.decimal();  // slot
  scan.expect(':');
  const auto address = [&](std::array<std::uint32_t, 4>& addr, std::uint32_t& port) {
    addr[0] = scan.hex(' ', 8);
    for (std::size_t i = 1; i < words; ++i) addr[i] = scan.hex(8);
    port = scan.hex(':', 4);
  };
  address(socket.local_addr, socket.local_port);
  address(socket.remote_addr, socket.remote_port);
  socket.state = scan.hex(' ', 2);
  scan.hex(' ', 8);  // transmit queue
  scan.hex(':', 8);  // receive queue
  scan.column();     // timer
  scan.hex(':', 8);  // expiry
  scan.hex(' ', 8);  // retransmits
  scan.column();     // uid
  scan.column();     // timeout
  socket.inode = scan.column();
  return scan.fits();
}

bool scan_socket_line(int family, const char* line, SocketLine& socket) noexcept {
  if (line == nullptr) return false;
  return scan_kernel_layout(family, line, socket) || scan_by_format(family, line, socket);
}

std::string address_text(int family, const void* address) {
  if (address == nullptr) return {};
  if (family == AF_INET) return ipv4_text(static_cast<const unsigned char*>(address));
  std::array<char, 54> text{};
  return ::inet_ntop(family, address, text.data(), text.size() - 1) == nullptr ? "" : text.data();
}

const char* state_text(std::uint32_t state, const char* listening) noexcept {
  static constexpr std::array kNames{"UNKNOWN",    "ESTABLISHED", "SYN_SENT",  "SYN_RECV",
                                     "FIN_WAIT1",  "FIN_WAIT2",   "TIME_WAIT", "CLOSE",
                                     "CLOSE_WAIT", "LAST_ACK",    "LISTEN",    "CLOSING"};
  if (state == 10) return listening;
  return state < kNames.size() ? kNames[state] : "UNKNOWN";
}

std::string port_text(std::uint32_t port) { return port == 0 ? "*" : std::to_string(port); }

}  // namespace utility::detail
