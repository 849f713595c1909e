#include "storage/ProofKey.h"

#include <openssl/err.h>
#include <openssl/evp.h>

#include <new>

#include "platform/SecureRandom.h"
#include "storage/CryptoUtility.h"
#include "velmor/Base64.h"

namespace velmor {
namespace {

constexpr std::size_t kVerifierEntropyLength = 32;

// The URL- and file-safe alphabet of RFC 4648, section 5, without padding.
std::string base64Url(const Data& bytes) {
  std::string text = Base64::encodeBase64WithData(bytes).value_or("");
  for (char& c : text) {
    if (c == '+') c = '-';
    if (c == '/') c = '_';
  }
  text.erase(text.find_last_not_of('=') + 1);
  return text;
}

}  // namespace

std::string ProofKey::generateCodeVerifier() {
  Data entropy = SecureRandom::bytes(kVerifierEntropyLength);
  std::string verifier = base64Url(entropy);
  cleanseData(entropy);
  return verifier;
}

std::string ProofKey::codeChallengeForVerifier(std::string_view verifier) {
  Data digest(EVP_MAX_MD_SIZE);
  unsigned int length = 0;
  if (EVP_Digest(verifier.data(), verifier.size(), digest.data(), &length, EVP_sha256(), nullptr) !=
      1) {
    ERR_clear_error();
    // SHA-256 is built into libcrypto: only a lack of memory stops a digest.
    throw std::bad_alloc();
  }
  digest.resize(length);
  return base64Url(digest);
}

}  // namespace velmor
