#include "client/ClientLogText.h"

#include "support/Format.h"
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor {

std::optional<std::string> ClientLogText::of(const std::optional<Url>& url) {
  if (!url) return std::nullopt;
  return url->absoluteString();
}

std::optional<std::string> ClientLogText::of(
    const std::optional<std::vector<std::string>>& scopes) {
  if (!scopes) return std::nullopt;
  return Value(Array(scopes->begin(), scopes->end())).description();
}

std::optional<std::string> ClientLogText::of(const std::optional<Dictionary>& dictionary) {
  if (!dictionary) return std::nullopt;
  return Value(*dictionary).description();
}

std::optional<std::string> ClientLogText::of(const std::shared_ptr<OperationQueue>& queue) {
  if (!queue) return std::nullopt;
  return queue->description();
}

std::optional<std::string> ClientLogText::of(const std::shared_ptr<HttpUrlResponse>& response) {
  if (!response) return std::nullopt;
  return stringWithFormat("<HttpUrlResponse: %p> { URL: %@ } { Status Code: %ld, Headers %@ }",
                          static_cast<const void*>(response.get()), response->url(),
                          response->statusCode(), response->allHeaderFields());
}

std::optional<std::string> ClientLogText::of(const VelmorAuthorizationClientDelegate* delegate) {
  if (delegate == nullptr) return std::nullopt;
  return stringWithFormat("<VelmorAuthorizationClientDelegate: %p>",
                          static_cast<const void*>(delegate));
}

std::optional<std::string> ClientLogText::ofCompletion(bool isSet) {
  return LogArgument::callback(isSet).text;
}

}  // namespace velmor
