#include "operations/RequestAccessTokenFromAuthCodeOperation.h"

#include "transport/RequestAccessTokenFromAuthCodeTransaction.h"

namespace velmor {
namespace {

constexpr char kRequestName[] = "RequestAccessTokenFromAuthToken";

}  // namespace

void RequestAccessTokenFromAuthCodeOperation::main() {
  RequestAccessTokenFromAuthCodeTransaction transaction(secureData());
  transaction.setAuthorizationCode(authorizationCode_);
  transaction.setRedirectUrl(redirectUrl_);
  transaction.setCodeVerifier(codeVerifier_);
  applyExpirationOverrides(transaction);

  const SignInCompletion& completion = signInCompletionBlock();
  const std::optional<Outcome> outcome = exchange(transaction, kRequestName);
  if (!outcome) return;
  if (!outcome->judged) {
    if (completion) completion(std::nullopt, std::nullopt, outcome->error);
    return;
  }
  // A rejected code says nothing about the user's password, so the
  // server's error passes unchanged.
  if (!outcome->error) secureData()->setUsername(username());
  if (completion) completion(username(), transaction.scopes(), outcome->error);
}

}  // namespace velmor
