#include "ResourceCall.h"

#include "velmor/HttpClient.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor::tool {

ResourceCall::Result ResourceCall::get(VelmorAuthorizationClient& client, const Url& url,
                                       const Dictionary& headers) {
  HttpRequest request(url);
  for (const auto& [name, value] : headers) {
    if (value.stringValue()) request.headerFields.emplace_back(name, *value.stringValue());
  }
  const HttpResult sent = HttpClient::defaultClient()->send(request);
  Result result;
  result.response = sent.response;
  if (sent.body) result.body.assign(sent.body->begin(), sent.body->end());
  if (sent.error) {
    result.error = sent.error;
  } else if (client.hasAuthorizationFailureResponse(sent.response)) {
    result.error = client.handleAuthorizationFailureResponse(sent.response);
  } else if (sent.response->statusCode() < 200 || sent.response->statusCode() > 299) {
    result.error = std::make_shared<VelmorAuthorizationError>(sent.response);
  }
  return result;
}

}  // namespace velmor::tool
