// Unguessable texts for client ids, secrets, tokens and codes.
#ifndef VELMOR_TOOLS_DEVSERVER_RANDOM_TOKEN_H_
#define VELMOR_TOOLS_DEVSERVER_RANDOM_TOKEN_H_

#include <cstddef>
#include <span>
#include <string>

namespace velmor::devserver {

class RandomToken final {
 public:
  RandomToken() = delete;

  // `bytes` bytes from OpenSSL's generator as unpadded Base64url: safe in a
  // URL query, a form body and a Basic header without escaping (the client
  // library sends authorization codes unescaped). Throws std::runtime_error
  // when the generator fails, which only a broken installation causes.
  static std::string make(std::size_t bytes);
  // Unpadded Base64url of `bytes`, as make() writes its tokens.
  static std::string encode(std::span<const unsigned char> bytes);
};

}  // namespace velmor::devserver

#endif  // VELMOR_TOOLS_DEVSERVER_RANDOM_TOKEN_H_
