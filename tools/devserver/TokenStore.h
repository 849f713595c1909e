// The grants, tokens and authorization codes the development server has
// handed out, with their lifetimes, rotation and revocation.
#ifndef VELMOR_TOOLS_DEVSERVER_TOKEN_STORE_H_
#define VELMOR_TOOLS_DEVSERVER_TOKEN_STORE_H_

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "devserver/Clock.h"

namespace velmor::devserver {

// Who a grant is for and what it allows.
struct GrantRequest {
  std::string clientId;
  // Absent for the client-credentials grant.
  std::optional<std::string> username;
  std::vector<std::string> scopes;
  std::optional<std::string> realmId{};
  std::optional<std::string> namespaceId{};
  // The client-credentials grant gets no refresh token: the client can ask
  // again with its own credentials at any time.
  bool withRefreshToken = true;
};

struct IssuedTokens {
  std::string accessToken;
  std::chrono::seconds accessTokenExpiresIn{0};
  std::optional<std::string> refreshToken;
  std::chrono::seconds refreshTokenExpiresIn{0};
  // What the access token allows.
  std::vector<std::string> scopes;
};

// An OAuth error code ("invalid_grant", "invalid_scope") and a sentence.
struct GrantRefusal {
  std::string error;
  std::string description;
};

// Exactly one of the two is set.
struct GrantOutcome {
  std::optional<IssuedTokens> tokens;
  std::optional<GrantRefusal> refusal;
};

struct TokenLifetimes {
  std::chrono::seconds accessToken{3600};
  std::chrono::seconds refreshToken{14 * 24 * 3600};
  std::chrono::seconds authorizationCode{600};
  // How long a spent refresh token is still honoured; 0 is strict.
  std::chrono::seconds refreshTokenReuseGrace{0};
};

// What an access token presented to a resource is worth.
struct AccessTokenInfo {
  enum class Status { kValid, kUnknown, kExpired, kRevoked };

  Status status = Status::kUnknown;
  std::string clientId;
  std::optional<std::string> username;
  std::vector<std::string> scopes;
  std::optional<std::string> realmId;
  std::optional<std::string> namespaceId;
};

// Tokens belong to a grant: one sign-in or code exchange and every refresh
// that follows from it.
// - Refresh rotates: each use of a refresh token answers a new one and
//   spends the old. Presenting a spent refresh token again means it leaked,
//   so the whole grant is revoked (every token of it stops working) — unless
//   it comes within the reuse grace after it was spent, as two clients
//   racing with one token would: then it is honoured once more with new
//   tokens of the same grant. Every presentation of a spent token counts as
//   a reuse, honoured or not.
// - An authorization code works once, for the client it was issued to and
//   the same redirect URL, within its lifetime; a second use revokes the
//   grant the first use made. A code issued with a proof-key challenge
//   (S256) needs the verifier that answers it; one issued without refuses
//   a verifier, so that nobody can pass off a stolen code as protected.
// - Revoking a refresh token revokes its grant; revoking an access token
//   ends that token only. Tokens of other clients are left alone.
// Everything lives in memory. Not thread-safe: the owning service
// serialises the calls. The clock must outlive the store.
class TokenStore final {
 public:
  TokenStore(TokenLifetimes lifetimes, const Clock& clock);

  IssuedTokens issue(const GrantRequest& grant);
  // `scopes`, when given and not empty, must lie within the grant's and
  // narrow the new access token only.
  GrantOutcome refresh(const std::string& clientId, const std::string& refreshToken,
                       const std::vector<std::string>& scopes);

  std::string issueAuthorizationCode(const GrantRequest& grant, std::string redirectUri,
                                     std::optional<std::string> codeChallenge = std::nullopt);
  GrantOutcome redeemAuthorizationCode(
      const std::string& clientId, const std::string& code, const std::string& redirectUri,
      const std::optional<std::string>& codeVerifier = std::nullopt);

  // Whichever kind `token` is; unknown tokens and other clients' tokens are
  // ignored, as revocation answers the same whatever the token was.
  void revoke(const std::string& clientId, const std::string& token);

  AccessTokenInfo inspect(const std::string& accessToken) const;

  // Spent refresh tokens presented again so far.
  std::uint64_t reusedRefreshTokens() const { return reusedRefreshTokens_; }

 private:
  struct Grant {
    GrantRequest request;
    bool revoked = false;
  };
  struct AccessTokenEntry {
    std::uint64_t grantId;
    std::vector<std::string> scopes;
    Clock::TimePoint expiresAt;
    bool revoked = false;
  };
  struct RefreshTokenEntry {
    std::uint64_t grantId;
    Clock::TimePoint expiresAt;
    std::optional<Clock::TimePoint> spentAt{};
  };
  struct CodeEntry {
    GrantRequest grant;
    std::string redirectUri;
    std::optional<std::string> codeChallenge;
    Clock::TimePoint expiresAt;
    std::optional<std::uint64_t> redeemedAs;
  };

  std::uint64_t addGrant(const GrantRequest& grant);
  IssuedTokens issueFor(std::uint64_t grantId, const std::vector<std::string>& scopes);

  TokenLifetimes lifetimes_;
  const Clock& clock_;
  std::uint64_t nextGrantId_ = 1;
  std::map<std::uint64_t, Grant> grants_;
  std::map<std::string, AccessTokenEntry> accessTokens_;
  std::map<std::string, RefreshTokenEntry> refreshTokens_;
  std::map<std::string, CodeEntry> codes_;
  std::uint64_t reusedRefreshTokens_ = 0;
};

}  // namespace velmor::devserver

#endif  // VELMOR_TOOLS_DEVSERVER_TOKEN_STORE_H_
