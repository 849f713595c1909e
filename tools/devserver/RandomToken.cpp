#include "devserver/RandomToken.h"

#include <openssl/rand.h>

#include <stdexcept>
#include <vector>

namespace velmor::devserver {

std::string RandomToken::make(std::size_t bytes) {
  std::vector<unsigned char> random(bytes);
  if (RAND_bytes(random.data(), static_cast<int>(random.size())) != 1) {
    throw std::runtime_error("the random generator failed");
  }
  return encode(random);
}

std::string RandomToken::encode(std::span<const unsigned char> bytes) {
  static constexpr char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  std::string text;
  unsigned int buffer = 0;
  int bits = 0;
  for (unsigned char byte : bytes) {
    buffer = (buffer << 8) | byte;
    bits += 8;
    while (bits >= 6) {
      bits -= 6;
      text += kAlphabet[(buffer >> bits) & 0x3F];
    }
  }
  if (bits > 0) text += kAlphabet[(buffer << (6 - bits)) & 0x3F];
  return text;
}

}  // namespace velmor::devserver
