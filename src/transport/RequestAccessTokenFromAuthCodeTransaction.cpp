#include "transport/RequestAccessTokenFromAuthCodeTransaction.h"

#include "support/Format.h"
#include "transport/HttpUtility.h"

namespace velmor {
namespace {

constexpr char kAuthorizationCodeGrant[] = "grant_type=authorization_code&code=%@&redirect_uri=%@";
constexpr char kCodeVerifierParameter[] = "&code_verifier=%@";

}  // namespace

Data RequestAccessTokenFromAuthCodeTransaction::generateRequest(const Url& baseUrl,
                                                                std::optional<Url>* completeUrl,
                                                                Dictionary* headers,
                                                                std::string* verb) {
  const std::string redirect = redirectUrl_ ? redirectUrl_->absoluteString() : std::string();
  // The code goes in as it was received, deliberately not escaped: the
  // token endpoint has always been sent it that way.
  std::string form = stringWithFormat(kAuthorizationCodeGrant, authorizationCode_,
                                      HttpUtility::escapeDataString(redirect));
  if (codeVerifier_) {
    form += stringWithFormat(kCodeVerifierParameter, HttpUtility::escapeDataString(*codeVerifier_));
  }
  return tokenRequest(baseUrl, form, completeUrl, headers, verb);
}

}  // namespace velmor
