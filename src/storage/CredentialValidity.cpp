#include "storage/CredentialValidity.h"

namespace velmor {

AuthorizationState CredentialValidity::authorizationState(const CredentialRecord& record,
                                                          Date now) {
  if (isActivationRequired(record)) return AuthorizationStateActivationRequired;
  if (hasValidAccessToken(record, now)) return AuthorizationStateAuthorized;
  if (hasValidRefreshToken(record, now)) return AuthorizationStateRefreshRequired;
  return AuthorizationStateSignInRequired;
}

AuthorizationState CredentialValidity::authorizationState(const CredentialRecord& record) {
  return authorizationState(record, std::chrono::system_clock::now());
}

bool CredentialValidity::isActivationRequired(const CredentialRecord& record) {
  return !record.clientId() || !record.clientSecret();
}

bool CredentialValidity::hasValidAccessToken(const CredentialRecord& record, Date now) {
  if (!record.accessToken()) return false;
  const std::optional<Date> start = record.accessTokenValidStartDateTime();
  if (!start || now < *start) return false;
  const std::optional<Date> end = record.accessTokenValidEndDateTime();
  if (!end) return false;
  return now + kAccessTokenMargin <= *end;
}

bool CredentialValidity::hasValidRefreshToken(const CredentialRecord& record, Date now) {
  if (!record.refreshToken()) return false;
  const std::optional<Date> start = record.refreshTokenValidStartDateTime();
  const std::optional<Date> end = record.refreshTokenValidEndDateTime();
  return (!start || *start <= now) && (!end || now <= *end);
}

}  // namespace velmor
