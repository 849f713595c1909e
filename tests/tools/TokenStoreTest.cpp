#include "devserver/TokenStore.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "tools/ManualClock.h"

namespace velmor::devserver {
namespace {

using Status = AccessTokenInfo::Status;
using std::chrono::seconds;

class TokenStoreTest : public ::testing::Test {
 protected:
  static GrantRequest aliceGrant(std::string clientId = "client-1") {
    GrantRequest grant;
    grant.clientId = std::move(clientId);
    grant.username = "alice";
    grant.scopes = {"profile", "email"};
    return grant;
  }

  test::ManualClock clock_;
  TokenStore tokens_{TokenLifetimes{seconds(3600), seconds(86400), seconds(600)}, clock_};
};

TEST_F(TokenStoreTest, IssuesTokensWithTheirLifetimes) {
  const IssuedTokens issued = tokens_.issue(aliceGrant());
  EXPECT_EQ(issued.accessTokenExpiresIn, seconds(3600));
  ASSERT_TRUE(issued.refreshToken);
  EXPECT_EQ(issued.refreshTokenExpiresIn, seconds(86400));
  EXPECT_NE(issued.accessToken, *issued.refreshToken);
  EXPECT_EQ(issued.scopes, (std::vector<std::string>{"profile", "email"}));

  const AccessTokenInfo info = tokens_.inspect(issued.accessToken);
  EXPECT_EQ(info.status, Status::kValid);
  EXPECT_EQ(info.clientId, "client-1");
  EXPECT_EQ(info.username, "alice");

  clock_.advance(seconds(3599));
  EXPECT_EQ(tokens_.inspect(issued.accessToken).status, Status::kValid);
  clock_.advance(seconds(1));
  EXPECT_EQ(tokens_.inspect(issued.accessToken).status, Status::kExpired);
  EXPECT_EQ(tokens_.inspect(*issued.refreshToken).status, Status::kUnknown);
}

TEST_F(TokenStoreTest, RefreshRotatesAndASpentTokenRevokesTheGrant) {
  const IssuedTokens first = tokens_.issue(aliceGrant());
  const GrantOutcome second = tokens_.refresh("client-1", *first.refreshToken, {});
  ASSERT_TRUE(second.tokens);
  ASSERT_TRUE(second.tokens->refreshToken);
  EXPECT_NE(*second.tokens->refreshToken, *first.refreshToken);
  EXPECT_EQ(second.tokens->scopes, first.scopes);
  // The old access token lives on until it expires; rotation is about the
  // refresh token.
  EXPECT_EQ(tokens_.inspect(first.accessToken).status, Status::kValid);

  const GrantOutcome replay = tokens_.refresh("client-1", *first.refreshToken, {});
  ASSERT_TRUE(replay.refusal);
  EXPECT_EQ(replay.refusal->error, "invalid_grant");
  // A replayed refresh token means it leaked: nothing of the grant works.
  EXPECT_EQ(tokens_.inspect(second.tokens->accessToken).status, Status::kRevoked);
  EXPECT_TRUE(tokens_.refresh("client-1", *second.tokens->refreshToken, {}).refusal);
}

TEST_F(TokenStoreTest, AGracePeriodHonoursASpentRefreshTokenBrieflyAndEveryReuseCounts) {
  TokenStore lenient{TokenLifetimes{seconds(3600), seconds(86400), seconds(600), seconds(30)},
                     clock_};
  const IssuedTokens first = lenient.issue(aliceGrant());
  ASSERT_TRUE(lenient.refresh("client-1", *first.refreshToken, {}).tokens);
  clock_.advance(seconds(29));
  // Two clients that raced with one token both get tokens of the grant.
  const GrantOutcome again = lenient.refresh("client-1", *first.refreshToken, {});
  ASSERT_TRUE(again.tokens);
  EXPECT_EQ(lenient.reusedRefreshTokens(), 1u);
  clock_.advance(seconds(1));
  EXPECT_EQ(lenient.refresh("client-1", *first.refreshToken, {}).refusal->error, "invalid_grant");
  EXPECT_EQ(lenient.reusedRefreshTokens(), 2u);
  EXPECT_EQ(lenient.inspect(again.tokens->accessToken).status, Status::kRevoked);

  // The strict store counts its reuses too.
  const IssuedTokens strict = tokens_.issue(aliceGrant());
  ASSERT_TRUE(tokens_.refresh("client-1", *strict.refreshToken, {}).tokens);
  EXPECT_EQ(tokens_.reusedRefreshTokens(), 0u);
  EXPECT_TRUE(tokens_.refresh("client-1", *strict.refreshToken, {}).refusal);
  EXPECT_EQ(tokens_.reusedRefreshTokens(), 1u);
}

TEST_F(TokenStoreTest, RefreshRefusals) {
  const IssuedTokens issued = tokens_.issue(aliceGrant());
  const struct {
    const char* name;
    std::string clientId;
    std::string token;
    std::vector<std::string> scopes;
    const char* error;
  } cases[] = {
      {"unknown token", "client-1", "nonsense", {}, "invalid_grant"},
      {"another client", "client-2", *issued.refreshToken, {}, "invalid_grant"},
      {"access token", "client-1", issued.accessToken, {}, "invalid_grant"},
      {"wider scope", "client-1", *issued.refreshToken, {"profile", "admin"}, "invalid_scope"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const GrantOutcome outcome = tokens_.refresh(c.clientId, c.token, c.scopes);
    ASSERT_TRUE(outcome.refusal);
    EXPECT_FALSE(outcome.tokens);
    EXPECT_EQ(outcome.refusal->error, c.error);
  }
  // None of the refusals spent the token.
  EXPECT_TRUE(tokens_.refresh("client-1", *issued.refreshToken, {}).tokens);
}

TEST_F(TokenStoreTest, RefreshMayNarrowTheScopeOfTheNewAccessToken) {
  const IssuedTokens issued = tokens_.issue(aliceGrant());
  const GrantOutcome narrowed = tokens_.refresh("client-1", *issued.refreshToken, {"email"});
  ASSERT_TRUE(narrowed.tokens);
  EXPECT_EQ(narrowed.tokens->scopes, std::vector<std::string>{"email"});
  EXPECT_EQ(tokens_.inspect(narrowed.tokens->accessToken).scopes,
            std::vector<std::string>{"email"});
  // The grant keeps its scope: the next refresh may ask for all of it again.
  const GrantOutcome widened =
      tokens_.refresh("client-1", *narrowed.tokens->refreshToken, {"profile", "email"});
  EXPECT_TRUE(widened.tokens);
}

TEST_F(TokenStoreTest, ExpiredRefreshTokenIsRefused) {
  const IssuedTokens issued = tokens_.issue(aliceGrant());
  clock_.advance(seconds(86400));
  const GrantOutcome outcome = tokens_.refresh("client-1", *issued.refreshToken, {});
  ASSERT_TRUE(outcome.refusal);
  EXPECT_EQ(outcome.refusal->description, "The refresh token expired");
}

TEST_F(TokenStoreTest, AuthorizationCodeIsBoundAndWorksOnce) {
  const std::string redirect = "http://127.0.0.1:5000/callback";
  const std::string code = tokens_.issueAuthorizationCode(aliceGrant(), redirect);
  const struct {
    const char* name;
    std::string clientId;
    std::string code;
    std::string redirectUri;
  } refusals[] = {
      {"another client", "client-2", code, redirect},
      {"another redirect URL", "client-1", code, "http://127.0.0.1:5001/callback"},
      {"a redirect URL with a query", "client-1", code, redirect + "?x=1"},
      {"unknown code", "client-1", code + "x", redirect},
  };
  for (const auto& c : refusals) {
    SCOPED_TRACE(c.name);
    const GrantOutcome outcome = tokens_.redeemAuthorizationCode(c.clientId, c.code, c.redirectUri);
    ASSERT_TRUE(outcome.refusal);
    EXPECT_EQ(outcome.refusal->error, "invalid_grant");
  }

  const GrantOutcome first = tokens_.redeemAuthorizationCode("client-1", code, redirect);
  ASSERT_TRUE(first.tokens);
  EXPECT_EQ(tokens_.inspect(first.tokens->accessToken).username, "alice");

  const GrantOutcome second = tokens_.redeemAuthorizationCode("client-1", code, redirect);
  ASSERT_TRUE(second.refusal);
  EXPECT_EQ(second.refusal->error, "invalid_grant");
  // A second use of a code revokes what the first use made.
  EXPECT_EQ(tokens_.inspect(first.tokens->accessToken).status, Status::kRevoked);
}

TEST_F(TokenStoreTest, AProofKeyBindsTheCodeToItsVerifier) {
  // RFC 7636, appendix B.
  const std::string verifier = "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk";
  const std::string challenge = "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM";
  const std::string withChallenge =
      tokens_.issueAuthorizationCode(aliceGrant(), "app:/cb", challenge);
  const std::string without = tokens_.issueAuthorizationCode(aliceGrant(), "app:/cb");
  const struct {
    const std::string& code;
    std::optional<std::string> verifier;
    const char* refusal;  // nullptr: accepted
  } cases[] = {
      {withChallenge, std::nullopt,
       "The code was issued for a code challenge: code_verifier is missing"},
      {withChallenge, "eBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk",
       "The code_verifier does not match the code challenge"},
      {withChallenge, verifier.substr(1), "The code_verifier does not match the code challenge"},
      {withChallenge, verifier + "=", "The code_verifier does not match the code challenge"},
      {without, verifier,
       "The code was issued without a code challenge, so no code_verifier belongs to it"},
      {withChallenge, verifier, nullptr},
      {without, std::nullopt, nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.verifier.value_or("(none)"));
    const GrantOutcome outcome =
        tokens_.redeemAuthorizationCode("client-1", c.code, "app:/cb", c.verifier);
    if (c.refusal == nullptr) {
      EXPECT_TRUE(outcome.tokens);
    } else {
      ASSERT_TRUE(outcome.refusal);
      EXPECT_EQ(outcome.refusal->error, "invalid_grant");
      EXPECT_EQ(outcome.refusal->description, c.refusal);
    }
  }
}

TEST_F(TokenStoreTest, AuthorizationCodeExpires) {
  const std::string code = tokens_.issueAuthorizationCode(aliceGrant(), "app:/cb");
  clock_.advance(seconds(600));
  const GrantOutcome outcome = tokens_.redeemAuthorizationCode("client-1", code, "app:/cb");
  ASSERT_TRUE(outcome.refusal);
  EXPECT_EQ(outcome.refusal->description, "The authorization code expired");
}

TEST_F(TokenStoreTest, RevokingARefreshTokenEndsTheGrantAnAccessTokenOnlyItself) {
  const IssuedTokens first = tokens_.issue(aliceGrant());
  const IssuedTokens other = tokens_.issue(aliceGrant());

  tokens_.revoke("client-1", other.accessToken);
  EXPECT_EQ(tokens_.inspect(other.accessToken).status, Status::kRevoked);
  EXPECT_TRUE(tokens_.refresh("client-1", *other.refreshToken, {}).tokens);

  tokens_.revoke("client-1", *first.refreshToken);
  EXPECT_EQ(tokens_.inspect(first.accessToken).status, Status::kRevoked);
  EXPECT_TRUE(tokens_.refresh("client-1", *first.refreshToken, {}).refusal);
}

TEST_F(TokenStoreTest, OtherClientsCannotRevoke) {
  const IssuedTokens issued = tokens_.issue(aliceGrant());
  tokens_.revoke("client-2", *issued.refreshToken);
  tokens_.revoke("client-2", issued.accessToken);
  tokens_.revoke("client-1", "unknown");
  EXPECT_EQ(tokens_.inspect(issued.accessToken).status, Status::kValid);
}

}  // namespace
}  // namespace velmor::devserver
