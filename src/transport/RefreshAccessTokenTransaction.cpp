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
  const std::string refreshToken = secureData()->refreshToken().value_or("");
  const std::string form =
      stringWithFormat(kRefreshGrant, HttpUtility::escapeDataString(refreshToken)) +
      scopeParameter();
  return tokenRequest(baseUrl, form, completeUrl, headers, verb);
}

}  // namespace velmor
