#include "velmor/VelmorAuthorizationError.h"

#include <string_view>
#include <utility>

#include "support/AuthorizationServerErrorParser.h"
#include "support/Format.h"
#include "support/KeychainStatus.h"
#include "support/Text.h"
#include "velmor/Localization.h"

namespace velmor {

const char AuthorizationClientErrorDomain[] = "com.velmor.authorization.client.general";
const char NetworkCommunicationErrorDomain[] =
    "com.velmor.authorization.client.network_communication";
const char AuthorizationServerErrorDomain[] = "com.velmor.authorization.server";

namespace {

struct CodeText {
  std::int64_t code;
  const char* text;
};

// Client code 4 has no text on purpose: it falls through to the server
// details and usually ends without a description.
constexpr CodeText kClientTexts[] = {
    {0, "Unknown error"},
    {1, "Invalid operation"},
    {2, "Insecure URL provided as parameter"},
    {3, "Missing response value"},
};

// Network code 1 has no text either. The stray quote of code 6 is part of
// the published text.
constexpr CodeText kNetworkTexts[] = {
    {0, "Unknown network error"},
    {2, "Missing 'Content-Type'"},
    {3, "Unexpected 'Content-Type'"},
    {4, "Unexpected 'Content-Length'"},
    {5, "Response data length did not match advertised content length"},
    {6, "Unexpected response content'"},
};

constexpr std::string_view kAccountLockoutReason = "account_lockout";

template <std::size_t N>
const char* textFor(const CodeText (&table)[N], std::int64_t code) {
  for (const CodeText& entry : table) {
    if (entry.code == code) return entry.text;
  }
  return nullptr;
}

bool isPresentAndNonEmpty(const std::optional<std::string>& value) {
  return value && !value->empty();
}

std::string serverErrorResponseText(const ServerErrorResponse& response) {
  std::string text = stringWithFormat("Server error: '%@'", response.error());
  if (isPresentAndNonEmpty(response.errorDescription())) {
    text += stringWithFormat(", Description: '%@'", response.errorDescription());
  }
  if (isPresentAndNonEmpty(response.errorReason())) {
    text += stringWithFormat(", Error reason: '%@'", response.errorReason());
  }
  if (isPresentAndNonEmpty(response.errorReasonDetail())) {
    text += stringWithFormat(", Error reason detail: '%@'", response.errorReasonDetail());
  }
  return text;
}

// Hours and minutes of the remaining lockout. Under one hour the minutes
// are dropped and the phrase falls back to "1 minute"; that is the
// published wording and applications match on it.
std::string lockoutDurationPhrase(std::int64_t seconds) {
  if (seconds < 0) seconds = 0;
  const std::int64_t hours = seconds / 3600;
  const std::int64_t minutes = (seconds % 3600) / 60;

  std::optional<std::string> phrase;
  if (hours >= 2) {
    phrase = stringWithFormat("%ld hours", hours);
  } else if (hours == 1) {
    phrase = "1 hour";
  }
  if (phrase) {
    if (minutes > 0) *phrase += " and ";
    if (minutes >= 2) {
      *phrase += stringWithFormat("%ld minutes", minutes);
    } else if (minutes == 1) {
      *phrase += "1 minute";
    }
  }
  if (!phrase || phrase->empty()) phrase = "1 minute";
  return *phrase;
}

Dictionary webSignInUserInfo(const std::optional<std::string>& errorUrl,
                             const std::optional<std::string>& state) {
  Dictionary userInfo;
  if (isPresentAndNonEmpty(errorUrl)) userInfo.set("errorUrl", *errorUrl);
  if (isPresentAndNonEmpty(state)) userInfo.set("state", *state);
  return userInfo;
}

}  // namespace

std::shared_ptr<VelmorAuthorizationError> VelmorAuthorizationError::errorWithDomain(
    std::string domain, std::int64_t code, std::optional<Dictionary> userInfo) {
  return std::make_shared<VelmorAuthorizationError>(std::move(domain), code, std::move(userInfo));
}

std::shared_ptr<VelmorAuthorizationError> VelmorAuthorizationError::invalidSignInError(
    const Error& error) {
  return std::make_shared<VelmorAuthorizationError>(
      error.domain(), error.code(),
      "Your User ID or password was entered incorrectly. Please try again.", error.userInfo());
}

std::shared_ptr<VelmorAuthorizationError> VelmorAuthorizationError::accountLockoutError(
    const VelmorAuthorizationError& error) {
  std::optional<std::string> detail;
  if (error.serverErrorResponse()) detail = error.serverErrorResponse()->errorReasonDetail();
  const std::int64_t seconds = text::integerValue(detail.value_or(std::string()));
  return std::make_shared<VelmorAuthorizationError>(
      error.domain(), error.code(),
      stringWithFormat("This account has been temporarily locked out. Please try again in %@.",
                       lockoutDurationPhrase(seconds)),
      error.userInfo());
}

VelmorAuthorizationError::VelmorAuthorizationError(std::string domain, std::int64_t code,
                                                   std::optional<Dictionary> userInfo)
    : Error(std::move(domain), code, std::move(userInfo)) {}

VelmorAuthorizationError::VelmorAuthorizationError(const std::string& keychainCall,
                                                   std::int32_t statusCode)
    : Error(AuthorizationClientErrorDomain, statusCode),
      descriptionText_(stringWithFormat("Keychain error: %ld, '%@' in %@", statusCode,
                                        KeychainStatus::errorMessage(statusCode), keychainCall)) {}

VelmorAuthorizationError::VelmorAuthorizationError(std::shared_ptr<HttpUrlResponse> httpUrlResponse)
    : Error(AuthorizationServerErrorDomain, httpUrlResponse ? httpUrlResponse->statusCode() : 0,
            httpUrlResponse ? std::optional<Dictionary>(httpUrlResponse->allHeaderFields())
                            : std::nullopt),
      httpUrlResponse_(std::move(httpUrlResponse)) {}

VelmorAuthorizationError::VelmorAuthorizationError(std::string domain, std::int64_t code,
                                                   std::optional<std::string> descriptionText,
                                                   std::optional<Dictionary> userInfo)
    : Error(std::move(domain), code, std::move(userInfo)),
      descriptionText_(std::move(descriptionText)) {}

VelmorAuthorizationError::VelmorAuthorizationError(
    std::shared_ptr<ServerErrorResponse> serverErrorResponse, std::int64_t authorizationServerError,
    std::optional<Dictionary> userInfo)
    : Error(AuthorizationServerErrorDomain, authorizationServerError, std::move(userInfo)),
      authorizationServerError_(authorizationServerError),
      serverErrorResponse_(std::move(serverErrorResponse)) {}

VelmorAuthorizationError::VelmorAuthorizationError(
    std::shared_ptr<HttpUrlResponse> httpUrlResponse,
    std::shared_ptr<ServerErrorResponse> serverErrorResponse, std::int64_t authorizationServerError)
    : Error(AuthorizationServerErrorDomain, authorizationServerError),
      authorizationServerError_(authorizationServerError),
      httpUrlResponse_(std::move(httpUrlResponse)),
      serverErrorResponse_(std::move(serverErrorResponse)) {}

VelmorAuthorizationError::VelmorAuthorizationError(std::optional<std::string> serverError,
                                                   std::optional<std::string> errorDescription,
                                                   std::optional<std::string> errorUrl,
                                                   std::optional<std::string> state)
    : Error(AuthorizationServerErrorDomain, AuthorizationServerErrorParser::parse(serverError),
            webSignInUserInfo(errorUrl, state)),
      serverErrorText_(std::move(serverError)),
      serverErrorDescription_(std::move(errorDescription)),
      authorizationServerError_(code()) {}

bool VelmorAuthorizationError::isInvalidGrantError() const {
  return authorizationServerError_ == kServerErrorInvalidGrant;
}

bool VelmorAuthorizationError::isAccountLockoutError() const {
  if (!isInvalidGrantError() || !serverErrorResponse_) return false;
  // A response without a reason but with a detail counts as a lockout;
  // servers that omit the reason rely on this.
  const std::optional<std::string>& reason = serverErrorResponse_->errorReason();
  const bool reasonMatches = !reason || text::equalsIgnoringCase(*reason, kAccountLockoutReason);
  return reasonMatches && serverErrorResponse_->errorReasonDetail().has_value();
}

std::optional<std::string> VelmorAuthorizationError::description() const {
  if (descriptionText_) return descriptionText_;
  const char* fixedText = nullptr;
  if (domain() == AuthorizationClientErrorDomain) fixedText = textFor(kClientTexts, code());
  if (domain() == NetworkCommunicationErrorDomain) fixedText = textFor(kNetworkTexts, code());
  if (fixedText != nullptr) return Localization::localizedString(fixedText);
  if (serverErrorResponse_) return serverErrorResponseText(*serverErrorResponse_);
  if (httpUrlResponse_) {
    return stringWithFormat(
        "Server error status code: %ld '%@'", httpUrlResponse_->statusCode(),
        HttpUrlResponse::localizedStringForStatusCode(httpUrlResponse_->statusCode()));
  }
  // The redirect's description is deliberately left out here; it stays
  // readable through serverErrorDescription().
  if (serverErrorText_) return stringWithFormat("Server error: '%@'", serverErrorText_);
  return std::nullopt;
}

std::optional<std::string> VelmorAuthorizationError::localizedDescription() const {
  return description();
}

}  // namespace velmor
