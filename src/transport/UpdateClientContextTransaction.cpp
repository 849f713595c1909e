#include "transport/UpdateClientContextTransaction.h"

#include "transport/HttpUtility.h"

namespace velmor {
namespace {

constexpr char kPath[] = "oauth2/v1/clients";
constexpr char kBodyPrefix[] = "x_client_context=";

}  // namespace

Data UpdateClientContextTransaction::generateRequest(const Url& baseUrl,
                                                     std::optional<Url>* completeUrl,
                                                     Dictionary* headers, std::string* verb) {
  const std::string form = kBodyPrefix + HttpUtility::escapeDataString(authorizationClientContext_);
  Dictionary requestHeaders{{"Authorization", clientBasicAuthorizationHeader()},
                            {"Content-Type", kFormContentType}};
  return formRequest(baseUrl, kPath, std::move(requestHeaders), "PUT", form, completeUrl, headers,
                     verb);
}

ErrorRef UpdateClientContextTransaction::handleResponse(
    const std::shared_ptr<HttpUrlResponse>& response, const std::optional<Data>& content) {
  if (!response) return handleAuthenticateResponseError(content);
  if (response->statusCode() == 204) return nullptr;
  return handleResponseError(response, content);
}

}  // namespace velmor
