#include "transport/RequestAccessTokenTransaction.h"

#include <chrono>
#include <limits>

#include "support/Format.h"
#include "support/Text.h"
#include "transport/HttpUtility.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor {
namespace {

constexpr char kPath[] = "oauth2/v1/tokens/bearer";
constexpr char kPasswordGrant[] = "grant_type=password&username=%@&password=%@";
constexpr char kClientCredentialsGrant[] = "grant_type=client_credentials";
constexpr char kScopeParameter[] = "&scope=%@";
constexpr char kRealmParameter[] = "&x_realm_id=%@";
constexpr char kNamespaceParameter[] = "&x_namespace_id=%@";

using Date = SecureData::Date;

bool isPresentAndNonEmpty(const std::optional<std::string>& value) {
  return value && !value->empty();
}

std::int64_t clampedToInt64(std::uint64_t seconds) {
  constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
  return seconds > static_cast<std::uint64_t>(kMax) ? kMax : static_cast<std::int64_t>(seconds);
}

// `now` plus a validated (positive) lifetime; lifetimes beyond what a date
// can hold end at the latest date there is.
Date later(Date now, std::int64_t seconds) {
  const auto room = std::chrono::duration_cast<std::chrono::seconds>(Date::max() - now);
  if (seconds >= room.count()) return Date::max();
  return now + std::chrono::seconds(seconds);
}

std::vector<std::string> splitOnSpaces(const std::string& text) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  for (std::size_t space; (space = text.find(' ', start)) != std::string::npos; start = space + 1) {
    parts.push_back(text.substr(start, space - start));
  }
  parts.push_back(text.substr(start));
  return parts;
}

}  // namespace

Data RequestAccessTokenTransaction::generateRequest(const Url& baseUrl,
                                                    std::optional<Url>* completeUrl,
                                                    Dictionary* headers, std::string* verb) {
  std::string form =
      username_ ? stringWithFormat(kPasswordGrant, HttpUtility::escapeDataString(*username_),
                                   HttpUtility::escapeDataString(password_))
                : std::string(kClientCredentialsGrant);
  form += scopeParameter();
  if (isPresentAndNonEmpty(realmId_)) {
    form += stringWithFormat(kRealmParameter, HttpUtility::escapeDataString(*realmId_));
  }
  if (isPresentAndNonEmpty(namespaceId_)) {
    form += stringWithFormat(kNamespaceParameter, HttpUtility::escapeDataString(*namespaceId_));
  }
  return tokenRequest(baseUrl, form, completeUrl, headers, verb);
}

ErrorRef RequestAccessTokenTransaction::handleResponse(
    const std::shared_ptr<HttpUrlResponse>& response, const std::optional<Data>& content) {
  if (!response) return handleAuthenticateResponseError(content);
  if (response->statusCode() != 200) return handleResponseError(response, content);

  ErrorRef error;
  std::optional<Dictionary> parsed = readJsonContent(*response, content, &error);
  if (!parsed) return error;
  RequestAccessTokenResponse answer(std::move(*parsed));
  if (ErrorRef invalid = validateRequestAccessTokenResponse(answer)) return invalid;
  // The tokens and their dates go in as one change: no other writer of the
  // record comes between them.
  SecretStoreLock lock;
  if (ErrorRef unstored = secureData()->lockRecord(&lock)) return unstored;
  storeTokens(answer);
  return nullptr;
}

ErrorRef RequestAccessTokenTransaction::validateRequestAccessTokenResponse(
    const RequestAccessTokenResponse& response) const {
  // Servers that leave the token type out are taken at their word. A wrong
  // type is reported under the value expected, not under the key.
  if (response.tokenType() && !text::equalsIgnoringCase(*response.tokenType(), "bearer")) {
    return createMissingResponseValueError("bearer", response);
  }
  if (!isPresentAndNonEmpty(response.accessToken())) {
    return createMissingResponseValueError("access_token", response);
  }
  if (response.expiresIn() < 1) return createMissingResponseValueError("expires_in", response);
  if (!response.refreshToken()) return nullptr;
  if (response.refreshToken()->empty()) {
    return createMissingResponseValueError("refresh_token", response);
  }
  if (response.refreshTokenExpiresIn() < 1) {
    return createMissingResponseValueError("x_refresh_token_expires_in", response);
  }
  return nullptr;
}

ErrorRef RequestAccessTokenTransaction::createMissingResponseValueError(
    std::string_view name, const RequestAccessTokenResponse& response) const {
  return VelmorAuthorizationError::errorWithDomain(
      AuthorizationClientErrorDomain, kClientErrorMissingResponseValue,
      Dictionary{{"MissingResponseValue", name}, {"ResponseData", response.responseDictionary()}});
}

Data RequestAccessTokenTransaction::tokenRequest(const Url& baseUrl, std::string_view form,
                                                 std::optional<Url>* completeUrl,
                                                 Dictionary* headers, std::string* verb) const {
  Dictionary requestHeaders{{"Authorization", clientBasicAuthorizationHeader()},
                            {"Content-Type", kFormContentType}};
  return formRequest(baseUrl, kPath, std::move(requestHeaders), "POST", form, completeUrl, headers,
                     verb);
}

std::string RequestAccessTokenTransaction::scopeParameter() const {
  if (!scopes_) return {};
  // An empty list still sends the parameter, empty.
  std::string joined;
  for (const std::string& scope : *scopes_) joined += scope + " ";
  return stringWithFormat(kScopeParameter,
                          HttpUtility::escapeDataString(text::trimWhitespaceAndNewlines(joined)));
}

void RequestAccessTokenTransaction::storeTokens(RequestAccessTokenResponse& response) {
  SecureData& record = *secureData();
  record.setAccessToken(response.accessToken());
  if (accessTokenExpirationOverride_ != 0) {
    response.setExpiresIn(clampedToInt64(accessTokenExpirationOverride_));
  }
  // One moment for both tokens, so their periods start together.
  const Date now = std::chrono::system_clock::now();
  record.setAccessTokenValidStartDateTime(now);
  record.setAccessTokenValidEndDateTime(later(now, response.expiresIn()));

  // Without a new refresh token the one held stays valid as it was.
  if (isPresentAndNonEmpty(response.refreshToken())) {
    record.setRefreshToken(response.refreshToken());
    if (refreshTokenExpirationOverride_ != 0) {
      response.setRefreshTokenExpiresIn(clampedToInt64(refreshTokenExpirationOverride_));
    }
    record.setRefreshTokenValidStartDateTime(now);
    record.setRefreshTokenValidEndDateTime(later(now, response.refreshTokenExpiresIn()));
  }

  if (isPresentAndNonEmpty(response.scope())) {
    scopes_ = splitOnSpaces(*response.scope());
  } else {
    scopes_ = Scopes();
  }
}

}  // namespace velmor
