// Exchanges an authorization code from the web sign-in for tokens.
#ifndef VELMOR_OPERATIONS_REQUEST_ACCESS_TOKEN_FROM_AUTH_CODE_OPERATION_H_
#define VELMOR_OPERATIONS_REQUEST_ACCESS_TOKEN_FROM_AUTH_CODE_OPERATION_H_

#include <optional>
#include <string>

#include "operations/RequestAccessTokenOperation.h"
#include "velmor/Url.h"

namespace velmor {

// Runs RequestAccessTokenFromAuthCodeTransaction as
// "RequestAccessTokenFromAuthToken" with the code and the redirect URL it was
// issued for. On success the record's user name becomes `username` (absent
// included). Server errors pass unchanged. Reports through the inherited
// sign-in completion.
class RequestAccessTokenFromAuthCodeOperation final : public RequestAccessTokenOperation {
 public:
  const std::string& authorizationCode() const { return authorizationCode_; }
  void setAuthorizationCode(std::string code) { authorizationCode_ = std::move(code); }
  const std::optional<Url>& redirectUrl() const { return redirectUrl_; }
  void setRedirectUrl(std::optional<Url> url) { redirectUrl_ = std::move(url); }

 protected:
  void perform() override;

 private:
  std::string authorizationCode_;
  std::optional<Url> redirectUrl_;
};

}  // namespace velmor

#endif  // VELMOR_OPERATIONS_REQUEST_ACCESS_TOKEN_FROM_AUTH_CODE_OPERATION_H_
