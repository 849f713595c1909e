#include "transport/RequestAccessTokenFromAuthCodeTransaction.h"

#include "support/Format.h"
#include "transport/HttpUtility.h"

namespace velmor {
namespace {

constexpr char kAuthorizationCodeGrant[] = "grant_type=authorization_code&code=%@&redirect_uri=%@";

}  // namespace

Data RequestAccessTokenFromAuthCodeTransaction::generateRequest(const Url& baseUrl,
                                                                std::optional<Url>* completeUrl,
                                                                Dictionary* headers,
                                                                std::string* verb) {
  const std::string redirect = redirectUrl_ ? redirectUrl_->absoluteString() : std::string();
  // The code goes in as it was received, deliberately not escaped: the
  // token endpoint has always been sent it that way.
  const std::string form = stringWithFormat(kAuthorizationCodeGrant, authorizationCode_,
                                            HttpUtility::escapeDataString(redirect));
  return tokenRequest(baseUrl, form, completeUrl, headers, verb);
}

}  // namespace velmor
