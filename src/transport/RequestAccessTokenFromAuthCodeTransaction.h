// Trades the authorization code of a finished web sign-in for tokens.
#ifndef VELMOR_TRANSPORT_REQUEST_ACCESS_TOKEN_FROM_AUTH_CODE_TRANSACTION_H_
#define VELMOR_TRANSPORT_REQUEST_ACCESS_TOKEN_FROM_AUTH_CODE_TRANSACTION_H_

#include <optional>
#include <string>
#include <utility>

#include "transport/RequestAccessTokenTransaction.h"

namespace velmor {

// The form is "grant_type=authorization_code&code=<code>&redirect_uri=<url>":
// the code exactly as received, deliberately not escaped, and the
// redirect URL's absolute text escaped (empty when none is set), then
// "&code_verifier=<verifier>" (escaped) when the sign-in carried a proof-key
// challenge. Responses are handled as for every token request.
class RequestAccessTokenFromAuthCodeTransaction final : public RequestAccessTokenTransaction {
 public:
  using RequestAccessTokenTransaction::RequestAccessTokenTransaction;

  const std::string& authorizationCode() const { return authorizationCode_; }
  void setAuthorizationCode(std::string code) { authorizationCode_ = std::move(code); }
  // The redirect URL the sign-in request named; the server checks they match.
  const std::optional<Url>& redirectUrl() const { return redirectUrl_; }
  void setRedirectUrl(std::optional<Url> url) { redirectUrl_ = std::move(url); }
  // The proof key's verifier when the sign-in request carried a challenge.
  const std::optional<std::string>& codeVerifier() const { return codeVerifier_; }
  void setCodeVerifier(std::optional<std::string> verifier) { codeVerifier_ = std::move(verifier); }

  Data generateRequest(const Url& baseUrl, std::optional<Url>* completeUrl, Dictionary* headers,
                       std::string* verb) override;

 private:
  std::string authorizationCode_;
  std::optional<Url> redirectUrl_;
  std::optional<std::string> codeVerifier_;
};

}  // namespace velmor

#endif  // VELMOR_TRANSPORT_REQUEST_ACCESS_TOKEN_FROM_AUTH_CODE_TRANSACTION_H_
