#include "devserver/TokenStore.h"

#include <algorithm>
#include <utility>

#include "devserver/CodeChallenge.h"
#include "devserver/RandomToken.h"

namespace velmor::devserver {

namespace {

GrantOutcome refused(std::string error, std::string description) {
  return GrantOutcome{std::nullopt, GrantRefusal{std::move(error), std::move(description)}};
}

GrantOutcome invalidGrant(std::string description) {
  return refused("invalid_grant", std::move(description));
}

bool within(const std::vector<std::string>& wanted, const std::vector<std::string>& allowed) {
  return std::all_of(wanted.begin(), wanted.end(), [&](const std::string& scope) {
    return std::find(allowed.begin(), allowed.end(), scope) != allowed.end();
  });
}

// Nothing when the verifier answers the code's challenge, or neither is
// there.
std::optional<GrantOutcome> checkProofKey(const std::optional<std::string>& challenge,
                                          const std::optional<std::string>& verifier) {
  if (!challenge) {
    if (!verifier) return std::nullopt;
    return invalidGrant(
        "The code was issued without a code challenge, so no code_verifier belongs to it");
  }
  if (!verifier) {
    return invalidGrant("The code was issued for a code challenge: code_verifier is missing");
  }
  if (!CodeChallenge::isAnsweredBy(*challenge, *verifier)) {
    return invalidGrant("The code_verifier does not match the code challenge");
  }
  return std::nullopt;
}

}  // namespace

TokenStore::TokenStore(TokenLifetimes lifetimes, const Clock& clock)
    : lifetimes_(lifetimes), clock_(clock) {}

IssuedTokens TokenStore::issue(const GrantRequest& grant) {
  return issueFor(addGrant(grant), grant.scopes);
}

std::uint64_t TokenStore::addGrant(const GrantRequest& grant) {
  const std::uint64_t id = nextGrantId_++;
  grants_[id] = Grant{grant};
  return id;
}

IssuedTokens TokenStore::issueFor(std::uint64_t grantId, const std::vector<std::string>& scopes) {
  const Clock::TimePoint now = clock_.now();
  IssuedTokens issued;
  issued.accessToken = RandomToken::make(32);
  issued.accessTokenExpiresIn = lifetimes_.accessToken;
  issued.scopes = scopes;
  accessTokens_[issued.accessToken] =
      AccessTokenEntry{grantId, scopes, now + lifetimes_.accessToken};
  if (grants_.at(grantId).request.withRefreshToken) {
    issued.refreshToken = RandomToken::make(32);
    issued.refreshTokenExpiresIn = lifetimes_.refreshToken;
    refreshTokens_[*issued.refreshToken] =
        RefreshTokenEntry{grantId, now + lifetimes_.refreshToken};
  }
  return issued;
}

GrantOutcome TokenStore::refresh(const std::string& clientId, const std::string& refreshToken,
                                 const std::vector<std::string>& scopes) {
  auto found = refreshTokens_.find(refreshToken);
  if (found == refreshTokens_.end()) return invalidGrant("The refresh token is not known");
  RefreshTokenEntry& entry = found->second;
  Grant& grant = grants_.at(entry.grantId);
  if (grant.request.clientId != clientId) {
    return invalidGrant("The refresh token was issued to another client");
  }
  if (grant.revoked) return invalidGrant("The refresh token was revoked");
  const Clock::TimePoint now = clock_.now();
  if (entry.spentAt) {
    ++reusedRefreshTokens_;
    if (now >= *entry.spentAt + lifetimes_.refreshTokenReuseGrace) {
      grant.revoked = true;
      return invalidGrant("The refresh token was used before; the sign-in is revoked");
    }
  }
  if (now >= entry.expiresAt) return invalidGrant("The refresh token expired");
  if (!within(scopes, grant.request.scopes)) {
    return refused("invalid_scope", "The scope asked for exceeds the one granted");
  }
  if (!entry.spentAt) entry.spentAt = now;
  return GrantOutcome{issueFor(entry.grantId, scopes.empty() ? grant.request.scopes : scopes),
                      std::nullopt};
}

std::string TokenStore::issueAuthorizationCode(const GrantRequest& grant, std::string redirectUri,
                                               std::optional<std::string> codeChallenge) {
  std::string code = RandomToken::make(24);
  codes_[code] = CodeEntry{grant, std::move(redirectUri), std::move(codeChallenge),
                           clock_.now() + lifetimes_.authorizationCode, std::nullopt};
  return code;
}

GrantOutcome TokenStore::redeemAuthorizationCode(const std::string& clientId,
                                                 const std::string& code,
                                                 const std::string& redirectUri,
                                                 const std::optional<std::string>& codeVerifier) {
  auto found = codes_.find(code);
  if (found == codes_.end()) return invalidGrant("The authorization code is not known");
  CodeEntry& entry = found->second;
  if (entry.redeemedAs) {
    grants_.at(*entry.redeemedAs).revoked = true;
    return invalidGrant("The authorization code was used before; its sign-in is revoked");
  }
  if (clock_.now() >= entry.expiresAt) return invalidGrant("The authorization code expired");
  if (entry.grant.clientId != clientId) {
    return invalidGrant("The authorization code was issued to another client");
  }
  if (entry.redirectUri != redirectUri) {
    return invalidGrant("The redirect URL differs from the one the code was issued for");
  }
  if (std::optional<GrantOutcome> refusal = checkProofKey(entry.codeChallenge, codeVerifier)) {
    return *refusal;
  }
  const std::uint64_t grantId = addGrant(entry.grant);
  entry.redeemedAs = grantId;
  return GrantOutcome{issueFor(grantId, entry.grant.scopes), std::nullopt};
}

void TokenStore::revoke(const std::string& clientId, const std::string& token) {
  if (auto refresh = refreshTokens_.find(token); refresh != refreshTokens_.end()) {
    Grant& grant = grants_.at(refresh->second.grantId);
    if (grant.request.clientId == clientId) grant.revoked = true;
    return;
  }
  if (auto access = accessTokens_.find(token); access != accessTokens_.end()) {
    if (grants_.at(access->second.grantId).request.clientId == clientId) {
      access->second.revoked = true;
    }
  }
}

AccessTokenInfo TokenStore::inspect(const std::string& accessToken) const {
  AccessTokenInfo info;
  auto found = accessTokens_.find(accessToken);
  if (found == accessTokens_.end()) return info;
  const AccessTokenEntry& entry = found->second;
  const Grant& grant = grants_.at(entry.grantId);
  info.clientId = grant.request.clientId;
  info.username = grant.request.username;
  info.scopes = entry.scopes;
  info.realmId = grant.request.realmId;
  info.namespaceId = grant.request.namespaceId;
  if (grant.revoked || entry.revoked) {
    info.status = AccessTokenInfo::Status::kRevoked;
  } else if (clock_.now() >= entry.expiresAt) {
    info.status = AccessTokenInfo::Status::kExpired;
  } else {
    info.status = AccessTokenInfo::Status::kValid;
  }
  return info;
}

}  // namespace velmor::devserver
