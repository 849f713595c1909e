// Exchanges an authorization code from the web sign-in for tokens.
#ifndef VELMOR_OPERATIONS_REQUEST_ACCESS_TOKEN_FROM_AUTH_CODE_OPERATION_H_
#define VELMOR_OPERATIONS_REQUEST_ACCESS_TOKEN_FROM_AUTH_CODE_OPERATION_H_

#include <optional>
#include <string>

#include "operations/RequestAccessTokenOperation.h"
#include "velmor/Url.h"

namespace velmor {

// Runs RequestAccessTokenFromAuthCodeTransaction as
// "RequestAccessTokenFromAuthToken" with the code, the redirect URL it was
// issued for and, when the sign-in carried a challenge, the code verifier. On success the record's
// user name becomes `username` (absent included). Server errors pass unchanged. Reports through the
// inherited sign-in completion.
class RequestAccessTokenFromAuthCodeOperation final : public RequestAccessTokenOperation {
 public:
  const std::string& authorizationCode() const { return authorizationCode_; }
  void setAuthorizationCode(std::string code) { authorizationCode_ = std::move(code); }
  const std::optional<Url>& redirectUrl() const { return redirectUrl_; }
  void setRedirectUrl(std::optional<Url> url) { redirectUrl_ = std::move(url); }
  // The proof key's verifier, sent along when present.
  const std::optional<std::string>& codeVerifier() const { return codeVerifier_; }
  void setCodeVerifier(std::optional<std::string> verifier) { codeVerifier_ = std::move(verifier); }

 protected:
  void perform() override;

 private:
  std::string authorizationCode_;
  std::optional<Url> redirectUrl_;
  std::optional<std::string> codeVerifier_;
};

}  // namespace velmor

#endif  // VELMOR_OPERATIONS_REQUEST_ACCESS_TOKEN_FROM_AUTH_CODE_OPERATION_H_
