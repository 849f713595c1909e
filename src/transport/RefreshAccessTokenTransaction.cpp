#include "transport/RefreshAccessTokenTransaction.h"

#include "support/Format.h"
#include "transport/HttpUtility.h"

namespace velmor {
namespace {

constexpr char kRefreshGrant[] = "grant_type=refresh_token&refresh_token=%@";

}  // namespace

Data RefreshAccessTokenTransaction::generateRequest(const Url& baseUrl,
                                                    std::optional<Url>* completeUrl,
                                                    Dictionary* headers, std::string* verb) {
  sentRefreshToken_ = secureData()->refreshToken();
  const std::string form =
      stringWithFormat(kRefreshGrant,
                       HttpUtility::escapeDataString(sentRefreshToken_.value_or(""))) +
      scopeParameter();
  return tokenRequest(baseUrl, form, completeUrl, headers, verb);
}

void RefreshAccessTokenTransaction::discardRejectedGrant() {
  superseded_ = !secureData()->deleteTokenEntriesIfRefreshTokenIs(sentRefreshToken_);
}

}  // namespace velmor
