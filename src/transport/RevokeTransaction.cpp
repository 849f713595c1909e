#include "transport/RevokeTransaction.h"

#include "transport/HttpUtility.h"

namespace velmor {
namespace {

constexpr char kPath[] = "oauth2/v1/tokens/revoke";
constexpr char kBodyPrefix[] = "token=";

}  // namespace

Data RevokeTransaction::generateRequest(const Url& baseUrl, std::optional<Url>* completeUrl,
                                        Dictionary* headers, std::string* verb) {
  // Revoking the refresh token ends the whole grant; the access token is
  // the only handle left when there is none.
  SecureData& record = *secureData();
  const std::optional<std::string> token =
      record.hasRefreshToken() ? record.refreshToken() : record.accessToken();
  const std::string form = kBodyPrefix + HttpUtility::escapeDataString(token.value_or(""));
  Dictionary requestHeaders{{"Authorization", clientBasicAuthorizationHeader()},
                            {"Content-Type", kFormContentType}};
  return formRequest(baseUrl, kPath, std::move(requestHeaders), "POST", form, completeUrl, headers,
                     verb);
}

ErrorRef RevokeTransaction::handleResponse(const std::shared_ptr<HttpUrlResponse>& response,
                                           const std::optional<Data>& content) {
  if (!response) return handleAuthenticateResponseError(content);
  const std::int64_t status = response->statusCode();
  if (status == 200 || status == 204) return nullptr;
  return handleResponseError(response, content);
}

}  // namespace velmor
