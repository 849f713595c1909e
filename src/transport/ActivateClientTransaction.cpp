#include "transport/ActivateClientTransaction.h"

#include <utility>

#include "storage/AuthorizationClientContext.h"
#include "support/Format.h"
#include "transport/ActivateClientResponse.h"
#include "transport/HttpUtility.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor {
namespace {

constexpr char kPath[] = "oauth2/v1/clients";
constexpr char kBody[] = "x_app_token=%@&x_client_context=%@";

bool isPresentAndNonEmpty(const std::optional<std::string>& value) {
  return value && !value->empty();
}

}  // namespace

Data ActivateClientTransaction::generateRequest(const Url& baseUrl, std::optional<Url>* completeUrl,
                                                Dictionary* headers, std::string* verb) {
  // Whether the context changed matters only before a refresh, not here.
  const std::string clientContext =
      AuthorizationClientContext::generateAndSaveIfNeeded(nullptr, nullptr);
  const std::string form =
      stringWithFormat(kBody, HttpUtility::escapeDataString(secureData()->appToken()),
                       HttpUtility::escapeDataString(clientContext));
  return formRequest(baseUrl, kPath, Dictionary{{"Content-Type", kFormContentType}}, "POST", form,
                     completeUrl, headers, verb);
}

ErrorRef ActivateClientTransaction::handleResponse(const std::shared_ptr<HttpUrlResponse>& response,
                                                   const std::optional<Data>& content) {
  if (!response || response->statusCode() != 200) return handleResponseError(response, content);

  ErrorRef error;
  std::optional<Dictionary> parsed = readJsonContent(*response, content, &error);
  if (!parsed) return error;

  const ActivateClientResponse answer(std::move(*parsed));
  const char* missing = nullptr;
  if (!isPresentAndNonEmpty(answer.clientId())) {
    missing = "client_id";
  } else if (!isPresentAndNonEmpty(answer.clientSecret())) {
    missing = "client_secret";
  }
  if (missing != nullptr) {
    Dictionary userInfo{{"MissingResponseValue", missing}};
    if (auto text = HttpUtility::stringFromUtf8Data(content)) userInfo.set("response_text", *text);
    return VelmorAuthorizationError::errorWithDomain(
        AuthorizationClientErrorDomain, kClientErrorMissingResponseValue, std::move(userInfo));
  }
  secureData()->setClientId(answer.clientId());
  secureData()->setClientSecret(answer.clientSecret());
  return nullptr;
}

}  // namespace velmor
