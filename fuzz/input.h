#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// The bytes of an input, taken from the front; zeros and empty texts once they are used up.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size)
      : bytes_(reinterpret_cast<const char*>(data), size) {}

  bool empty() const { return bytes_.empty(); }

  unsigned char byte() {
    if (bytes_.empty()) return 0;
    const auto value = static_cast<unsigned char>(bytes_.front());
    bytes_.remove_prefix(1);
    return value;
  }

  /// What stands before the next `end`, which is dropped.
  std::string text(char end) {
    const std::string_view taken = bytes_.substr(0, bytes_.find(end));
    bytes_.remove_prefix(taken.size() < bytes_.size() ? taken.size() + 1 : taken.size());
    return std::string(taken);
  }

  std::string rest() {
    std::string taken(bytes_);
    bytes_ = {};
    return taken;
  }

 private:
  std::string_view bytes_;
};
