// The proof key that binds a web sign-in's authorization code to the client
// that asked for it (RFC 7636, method S256).
#ifndef VELMOR_STORAGE_PROOF_KEY_H_
#define VELMOR_STORAGE_PROOF_KEY_H_

#include <string>
#include <string_view>

namespace velmor {

// The client keeps a random code verifier to itself and sends the sign-in
// page only its challenge; the code exchange then shows the verifier, so a
// code caught on its way back is worthless to anyone else. Stateless and
// thread-safe.
class ProofKey final {
 public:
  ProofKey() = delete;

  // The "code_challenge_method" of every challenge made here.
  static constexpr char kChallengeMethod[] = "S256";

  // Base64url without padding of 32 fresh random bytes: 43 characters of
  // A-Z, a-z, 0-9, "-" and "_". Throws GenericException when the system's
  // random source fails.
  static std::string generateCodeVerifier();
  // Base64url without padding of the SHA-256 of the verifier's bytes.
  static std::string codeChallengeForVerifier(std::string_view verifier);
};

}  // namespace velmor

#endif  // VELMOR_STORAGE_PROOF_KEY_H_
