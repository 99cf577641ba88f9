#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

#include "support/temp_dir.h"

/// What `command` prints to its standard output.
inline std::string output_of(const std::string& command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
  std::string output;
  for (int c = 0; (c = std::fgetc(pipe.get())) != EOF;) output += static_cast<char>(c);
  return output;
}

/// `size` bytes in which every value turns up, no two lengths alike.
inline std::string sample(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>(i * 7 + size);
  return text;
}

/// `text` in hex as printf writes it.
inline std::string hex_of(const std::string& text, const char* format = "%02x") {
  std::string hex;
  for (const char c : text) {
    char digits[4];
    hex.append(digits, std::size_t(std::snprintf(digits, 4, format, c & 0xFF)));
  }
  return hex;
}

inline unsigned char* bytes(const std::string& text) {
  return reinterpret_cast<unsigned char*>(const_cast<char*>(text.data()));
}
