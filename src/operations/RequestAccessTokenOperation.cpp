#include "operations/RequestAccessTokenOperation.h"

#include "velmor/VelmorAuthorizationError.h"

namespace velmor {
namespace {

constexpr char kRequestName[] = "RequestAccessToken";

// A rejected password grant tells the user why: a locked account, with how
// long it stays locked, or wrong credentials.
ErrorRef signInError(const ErrorRef& error) {
  const auto* serverError = dynamic_cast<const VelmorAuthorizationError*>(error.get());
  if (serverError == nullptr) return error;
  if (serverError->isAccountLockoutError()) {
    return VelmorAuthorizationError::accountLockoutError(*serverError);
  }
  if (serverError->isInvalidGrantError()) {
    return VelmorAuthorizationError::invalidSignInError(*serverError);
  }
  return error;
}

}  // namespace

void RequestAccessTokenOperation::perform() {
  RequestAccessTokenTransaction transaction(secureData());
  transaction.setUsername(username_);
  transaction.setPassword(password_.value_or(""));
  transaction.setScopes(scopes_);
  transaction.setRealmId(realmId_);
  transaction.setNamespaceId(namespaceId_);
  applyExpirationOverrides(transaction);

  const std::optional<Outcome> outcome = exchange(transaction, kRequestName);
  if (!outcome) return;
  if (!outcome->judged) {
    complete(signInCompletion_, std::nullopt, std::nullopt, outcome->error);
    return;
  }
  const ErrorRef error = signInError(outcome->error);
  if (!error) secureData()->setUsername(username_);
  complete(signInCompletion_, username_, transaction.scopes(), error);
}

bool RequestAccessTokenOperation::completeWithError(const ErrorRef& error) {
  if (!signInCompletion_) return false;
  signInCompletion_(std::nullopt, std::nullopt, error);
  return true;
}

void RequestAccessTokenOperation::applyExpirationOverrides(
    RequestAccessTokenTransaction& transaction) const {
  transaction.setAccessTokenExpirationOverride(accessTokenExpirationOverride_);
  transaction.setRefreshTokenExpirationOverride(refreshTokenExpirationOverride_);
}

}  // namespace velmor
