#include "transport/ApplicationHttpTransaction.h"

#include <optional>
#include <string>
#include <typeinfo>
#include <vector>

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

// A subclass would not count: its class says it is something else.
bool startsWithBearerChallenge(const WwwAuthenticateHeaderData& header) {
  if (header.challenges().empty()) return false;
  const WwwAuthenticateChallenge& first = *header.challenges().front();
  return typeid(first) == typeid(BearerChallenge);
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
  std::shared_ptr<WwwAuthenticateHeaderData> parsed =
      WwwAuthenticateHeaderParser::parse(header, &parseError);
  if (!parsed) parsed = bearerChallengeLine(*response);
  if (!parsed) return parseError;
  // Only the first challenge counts, and only when it is exactly a Bearer one.
  if (!startsWithBearerChallenge(*parsed)) return invalidOperationError();
  const WwwAuthenticateChallenge& challenge = *parsed->challenges().front();

  const Dictionary& attributes = challenge.attributeNameValuePairs();
  auto serverErrorResponse = std::make_shared<ServerErrorResponse>(attributes);
  const std::int64_t code = AuthorizationServerErrorParser::parse(serverErrorResponse->error());
  forgetAccessTokenRefusedWith(response->statusCode(), code);
  return std::make_shared<VelmorAuthorizationError>(response, std::move(serverErrorResponse), code);
}

// Servers that offer several schemes send one line each ("Basic realm=..."
// and "Bearer error=..."), which the joined value mixes into one challenge
// the parser cannot read. Each line alone is one challenge; the first Bearer
// one is the refusal of the token.
std::shared_ptr<WwwAuthenticateHeaderData> ApplicationHttpTransaction::bearerChallengeLine(
    const HttpUrlResponse& response) {
  const std::vector<std::string> lines = response.valuesForHTTPHeaderField(kWwwAuthenticateHeader);
  if (lines.size() < 2) return nullptr;
  for (const std::string& line : lines) {
    ErrorRef ignored;
    std::shared_ptr<WwwAuthenticateHeaderData> parsed =
        WwwAuthenticateHeaderParser::parse(line, &ignored);
    if (parsed && startsWithBearerChallenge(*parsed)) return parsed;
  }
  return nullptr;
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
