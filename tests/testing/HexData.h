// Test vectors are written in hexadecimal, as the standards print them.
#ifndef VELMOR_TESTS_TESTING_HEX_DATA_H_
#define VELMOR_TESTS_TESTING_HEX_DATA_H_

#include <string>
#include <string_view>

#include "velmor/Data.h"

namespace velmor {

// "0b0b" -> {0x0b, 0x0b}.
inline Data hexData(std::string_view hex) {
  Data bytes;
  for (std::size_t at = 0; at + 1 < hex.size(); at += 2) {
    bytes.push_back(
        static_cast<std::uint8_t>(std::stoul(std::string(hex.substr(at, 2)), nullptr, 16)));
  }
  return bytes;
}

inline Data bytesOf(std::string_view text) { return Data(text.begin(), text.end()); }

}  // namespace velmor

#endif  // VELMOR_TESTS_TESTING_HEX_DATA_H_
