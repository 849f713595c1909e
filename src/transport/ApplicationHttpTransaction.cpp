#include "transport/ApplicationHttpTransaction.h"

#include <optional>
#include <string>
#include <typeinfo>

#include "support/AuthorizationServerErrorParser.h"
#include "transport/BearerChallenge.h"
#include "transport/WwwAuthenticateHeaderParser.h"
#include "velmor/ServerErrorResponse.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor {
namespace {

constexpr char kWwwAuthenticateHeader[] = "WWW-Authenticate";

ErrorRef invalidOperationError() {
  return VelmorAuthorizationError::errorWithDomain(AuthorizationClientErrorDomain,
                                                   kClientErrorInvalidOperation, std::nullopt);
}

}  // namespace

bool ApplicationHttpTransaction::isAuthorizationFailureStatusCode(std::int64_t statusCode) {
  return statusCode == 400 || statusCode == 401 || statusCode == 403;
}

bool ApplicationHttpTransaction::hasBearerTokenWwwAuthenticateHeader(const Dictionary& headers) {
  const std::string* header = headers.findString(kWwwAuthenticateHeader);
  if (header == nullptr || header->empty()) return false;
  return WwwAuthenticateHeaderParser::isHeaderLikelyToBeBearerTokenWwwAuthenticateFormatted(
      *header);
}

bool ApplicationHttpTransaction::hasAuthorizationFailureResponse(
    const std::shared_ptr<HttpUrlResponse>& response) {
  // The status is the cheap test; most responses end there.
  if (!response || !isAuthorizationFailureStatusCode(response->statusCode())) return false;
  return hasBearerTokenWwwAuthenticateHeader(response->allHeaderFields());
}

ErrorRef ApplicationHttpTransaction::handleAuthorizationFailureResponse(
    const std::shared_ptr<HttpUrlResponse>& response) {
  if (!response) return invalidOperationError();
  const std::optional<std::string> header =
      response->valueForHTTPHeaderField(kWwwAuthenticateHeader);
  if (!header || header->empty()) return invalidOperationError();

  ErrorRef parseError;
  const std::shared_ptr<WwwAuthenticateHeaderData> parsed =
      WwwAuthenticateHeaderParser::parse(header, &parseError);
  if (!parsed) return parseError;
  if (parsed->challenges().empty()) return invalidOperationError();
  // Only the first challenge counts, and only when it is exactly a Bearer one.
  const WwwAuthenticateChallenge& challenge = *parsed->challenges().front();
  if (typeid(challenge) != typeid(BearerChallenge)) return invalidOperationError();

  const Dictionary& attributes = challenge.attributeNameValuePairs();
  auto serverErrorResponse = std::make_shared<ServerErrorResponse>(attributes);
  const std::int64_t code = AuthorizationServerErrorParser::parse(serverErrorResponse->error());
  forgetAccessTokenRefusedWith(response->statusCode(), code);
  return std::make_shared<VelmorAuthorizationError>(response, std::move(serverErrorResponse), code);
}

void ApplicationHttpTransaction::forgetAccessTokenRefusedWith(
    std::int64_t statusCode, std::int64_t authorizationServerError) {
  // An expired or under-scoped token is worth refreshing; every other
  // refusal says nothing about the token, so it is kept.
  const bool expired = statusCode == 401 && authorizationServerError == kServerErrorInvalidToken;
  const bool underScoped =
      statusCode == 403 && authorizationServerError == kServerErrorInsufficientScope;
  if (!expired && !underScoped) return;
  // One write, so that a refresh storing new tokens meanwhile comes wholly
  // before or wholly after it.
  secureData()->deleteAccessTokenEntries();
}

}  // namespace velmor
