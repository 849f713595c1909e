#include "client/CredentialValidity.h"

namespace velmor {

AuthorizationState CredentialValidity::authorizationState(SecureData& record, Date now) {
  if (isActivationRequired(record)) return AuthorizationStateActivationRequired;
  if (hasValidAccessToken(record, now)) return AuthorizationStateAuthorized;
  if (hasValidRefreshToken(record, now)) return AuthorizationStateRefreshRequired;
  return AuthorizationStateSignInRequired;
}

AuthorizationState CredentialValidity::authorizationState(SecureData& record) {
  return authorizationState(record, std::chrono::system_clock::now());
}

bool CredentialValidity::isActivationRequired(SecureData& record) {
  return !record.hasClientId() || !record.hasClientSecret();
}

bool CredentialValidity::hasValidAccessToken(SecureData& record, Date now) {
  if (!record.hasAccessToken()) return false;
  const std::optional<Date> start = record.accessTokenValidStartDateTime();
  if (!start || now < *start) return false;
  const std::optional<Date> end = record.accessTokenValidEndDateTime();
  if (!end) return false;
  return now + kAccessTokenMargin <= *end;
}

bool CredentialValidity::hasValidRefreshToken(SecureData& record, Date now) {
  if (!record.hasRefreshToken()) return false;
  const std::optional<Date> start = record.refreshTokenValidStartDateTime();
  const std::optional<Date> end = record.refreshTokenValidEndDateTime();
  return (!start || *start <= now) && (!end || now <= *end);
}

}  // namespace velmor
