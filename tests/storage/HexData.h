// Test vectors are written in hexadecimal, as the standards print them.
#ifndef VELMOR_TESTS_STORAGE_HEX_DATA_H_
#define VELMOR_TESTS_STORAGE_HEX_DATA_H_

#include <string>
#include <string_view>

#include "velmor/Data.h"

namespace velmor {

// "0b0b" -> {0x0b, 0x0b}; spaces are ignored.
inline Data hexData(std::string_view hex) {
  Data bytes;
  std::string digits;
  for (const char c : hex) {
    if (c == ' ') continue;
    digits += c;
    if (digits.size() == 2) {
      bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits, nullptr, 16)));
      digits.clear();
    }
  }
  return bytes;
}

inline Data bytesOf(std::string_view text) { return Data(text.begin(), text.end()); }

}  // namespace velmor

#endif  // VELMOR_TESTS_STORAGE_HEX_DATA_H_
