#include "storage/ProofKey.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>

namespace velmor {
namespace {

TEST(ProofKey, ChallengeIsTheBase64UrlOfTheVerifiersSha256) {
  // RFC 7636, appendix B.
  EXPECT_EQ(ProofKey::codeChallengeForVerifier("dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk"),
            "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM");
  EXPECT_STREQ(ProofKey::kChallengeMethod, "S256");
}

TEST(ProofKey, VerifiersAreFreshAndUseTheUrlSafeAlphabet) {
  const std::regex shape("[A-Za-z0-9_-]{43}");
  std::set<std::string> seen;
  for (int i = 0; i < 64; ++i) {
    const std::string verifier = ProofKey::generateCodeVerifier();
    EXPECT_TRUE(std::regex_match(verifier, shape)) << verifier;
    seen.insert(verifier);
  }
  EXPECT_EQ(seen.size(), 64u);
}

}  // namespace
}  // namespace velmor
