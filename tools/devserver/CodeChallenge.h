// The server's side of the proof key of a browser sign-in (RFC 7636, S256
// only).
#ifndef VELMOR_TOOLS_DEVSERVER_CODE_CHALLENGE_H_
#define VELMOR_TOOLS_DEVSERVER_CODE_CHALLENGE_H_

#include <string_view>

namespace velmor::devserver {

class CodeChallenge final {
 public:
  CodeChallenge() = delete;

  static constexpr char kMethod[] = "S256";

  // The Base64url of a SHA-256: 43 characters of A-Z, a-z, 0-9, "-", "_".
  static bool isWellFormed(std::string_view challenge);
  // Whether `verifier` is 43 to 128 of the characters RFC 7636 allows
  // (letters, digits, "-", ".", "_", "~") and its SHA-256, in unpadded
  // Base64url, is `challenge`.
  static bool isAnsweredBy(std::string_view challenge, std::string_view verifier);
};

}  // namespace velmor::devserver

#endif  // VELMOR_TOOLS_DEVSERVER_CODE_CHALLENGE_H_
