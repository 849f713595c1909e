#include "platform/Uuid.h"

#include <cstdint>

#include "platform/SecureRandom.h"

namespace velmor {

std::string Uuid::randomLowercaseString() {
  Data bytes = SecureRandom::bytes(16);
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
  static constexpr char kHex[] = "0123456789abcdef";
  std::string text;
  text.reserve(36);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += kHex[bytes[i] >> 4];
    text += kHex[bytes[i] & 0x0F];
  }
  return text;
}

}  // namespace velmor
