#include "devserver/CodeChallenge.h"

#include <openssl/crypto.h>
#include <openssl/sha.h>

#include <algorithm>
#include <cctype>
#include <string>

#include "devserver/RandomToken.h"

namespace velmor::devserver {

namespace {

bool isBase64UrlSymbol(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_';
}

bool isVerifierSymbol(char c) { return isBase64UrlSymbol(c) || c == '.' || c == '~'; }

}  // namespace

bool CodeChallenge::isWellFormed(std::string_view challenge) {
  return challenge.size() == 43 &&
         std::all_of(challenge.begin(), challenge.end(), isBase64UrlSymbol);
}

bool CodeChallenge::isAnsweredBy(std::string_view challenge, std::string_view verifier) {
  if (verifier.size() < 43 || verifier.size() > 128 ||
      !std::all_of(verifier.begin(), verifier.end(), isVerifierSymbol)) {
    return false;
  }
  unsigned char digest[SHA256_DIGEST_LENGTH];
  SHA256(reinterpret_cast<const unsigned char*>(verifier.data()), verifier.size(), digest);
  const std::string expected = RandomToken::encode(digest);
  return expected.size() == challenge.size() &&
         CRYPTO_memcmp(expected.data(), challenge.data(), expected.size()) == 0;
}

}  // namespace velmor::devserver
