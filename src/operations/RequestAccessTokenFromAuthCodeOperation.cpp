#include "operations/RequestAccessTokenFromAuthCodeOperation.h"

#include "transport/RequestAccessTokenFromAuthCodeTransaction.h"

namespace velmor {
namespace {

constexpr char kRequestName[] = "RequestAccessTokenFromAuthToken";

}  // namespace

void RequestAccessTokenFromAuthCodeOperation::perform() {
  RequestAccessTokenFromAuthCodeTransaction transaction(secureData());
  transaction.setAuthorizationCode(authorizationCode_);
  transaction.setRedirectUrl(redirectUrl_);
  transaction.setCodeVerifier(codeVerifier_);
  applyExpirationOverrides(transaction);

  const SignInCompletion& completion = signInCompletionBlock();
  const std::optional<Outcome> outcome = exchange(transaction, kRequestName);
  if (!outcome) return;
  if (!outcome->judged) {
    complete(completion, std::nullopt, std::nullopt, outcome->error);
    return;
  }
  // A rejected code says nothing about the user's password, so the
  // server's error passes unchanged.
  if (!outcome->error) secureData()->setUsername(username());
  complete(completion, username(), transaction.scopes(), outcome->error);
}

}  // namespace velmor
