#include "transport/RequestSignInViaWebTransaction.h"
#include "platform/Uuid.h"

#include <cstddef>
#include <cstdint>

#include "storage/ProofKey.h"
#include "support/AuthorizationServerErrorParser.h"
#include "support/Format.h"
#include "support/Text.h"
#include "transport/HttpUtility.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor {
namespace {

constexpr char kBaseQueryPrefix[] = "?%@&";
constexpr char kSignInParameters[] = "response_type=code&client_id=%@&redirect_uri=%@";
constexpr char kScopeParameter[] = "&scope=%@";
constexpr char kStateParameter[] = "&state=%@";
constexpr char kExtraParameter[] = "&%@=%@";
constexpr char kChallengeParameters[] = "&code_challenge=%@&code_challenge_method=%s";
constexpr char kMissingResponseValueKey[] = "Missing response value";

bool isPresentAndNonEmpty(const std::optional<std::string>& value) {
  return value && !value->empty();
}

std::string newState() {
  std::string state = Uuid::randomLowercaseString();
  std::erase(state, '-');
  return state;
}

// An absent text stays absent, and so shows as "(null)".
std::optional<std::string> escapedIfPresent(const std::optional<std::string>& text) {
  if (!text) return std::nullopt;
  return HttpUtility::escapeDataString(*text);
}

std::optional<std::string> parameter(const Dictionary& query, std::string_view name) {
  const std::string* value = query.findString(name);
  if (value == nullptr) return std::nullopt;
  return *value;
}

std::string parameterText(const Value& value) {
  const std::string* text = value.stringValue();
  return text != nullptr ? *text : value.description();
}

ErrorRef missingResponseValueError(const char* name) {
  return VelmorAuthorizationError::errorWithDomain(AuthorizationClientErrorDomain,
                                                   kClientErrorMissingResponseValue,
                                                   Dictionary{{kMissingResponseValueKey, name}});
}

// The absolute text up to the first "?".
std::optional<Url> withoutQuery(const Url& url) {
  const std::string& text = url.absoluteString();
  return Url::withString(std::string_view(text).substr(0, text.find('?')));
}

}  // namespace

RequestSignInViaWebTransaction::RequestSignInViaWebTransaction(
    std::shared_ptr<SecureData> secureData)
    : secureData_(std::move(secureData)) {}

std::optional<HttpRequest> RequestSignInViaWebTransaction::generateRequest(const Url& baseUrl,
                                                                           const Url& redirectUrl) {
  lastGeneratedState_ = newState();
  codeVerifier_ = usesPkce_ ? std::optional(ProofKey::generateCodeVerifier()) : std::nullopt;
  std::optional<Url> signInUrl =
      Url::withString(signInQuery(baseUrl, redirectUrl, *lastGeneratedState_), baseUrl);
  if (!signInUrl) return std::nullopt;
  HttpRequest request(std::move(*signInUrl));
  request.headerFields = {{"Cache-Control", "no-cache, no-store"},
                          {"velmor_tid", Uuid::randomLowercaseString()}};
  return request;
}

std::string RequestSignInViaWebTransaction::signInQuery(const Url& baseUrl, const Url& redirectUrl,
                                                        const std::string& state) const {
  // The page's own parameters stay in front of ours.
  const std::optional<std::string>& baseQuery = baseUrl.query();
  std::string query =
      isPresentAndNonEmpty(baseQuery) ? stringWithFormat(kBaseQueryPrefix, baseQuery) : "?";
  query += stringWithFormat(kSignInParameters, escapedIfPresent(secureData_->clientId()),
                            HttpUtility::escapeDataString(redirectUrl.absoluteString()));
  if (scopes_) {
    std::string joined;
    for (const std::string& scope : *scopes_) joined += scope + " ";
    query += stringWithFormat(
        kScopeParameter, HttpUtility::escapeDataString(text::trimWhitespaceAndNewlines(joined)));
  }
  // Hex digits only: nothing to escape.
  query += stringWithFormat(kStateParameter, state);
  if (extraParameters_) {
    for (const auto& [key, value] : *extraParameters_) {
      query += stringWithFormat(kExtraParameter, HttpUtility::escapeDataString(key),
                                HttpUtility::escapeDataString(parameterText(value)));
    }
  }
  // Base64url text: nothing to escape.
  if (codeVerifier_) {
    query +=
        stringWithFormat(kChallengeParameters, ProofKey::codeChallengeForVerifier(*codeVerifier_),
                         ProofKey::kChallengeMethod);
  }
  return query;
}

ErrorRef RequestSignInViaWebTransaction::handleResponse(
    const Url& responseUrl, std::optional<std::string>* authorizationCode,
    std::optional<Url>* redirectUrl, std::optional<std::string>* username) {
  const Dictionary query = HttpUtility::parseQueryString(responseUrl.query().value_or(""));

  const std::optional<std::string> serverError = parameter(query, "error");
  if (isPresentAndNonEmpty(serverError)) {
    const std::int64_t code = AuthorizationServerErrorParser::parse(serverError);
    // The server no longer knows this client: its registration and
    // everything obtained with it are worthless.
    if (code == kServerErrorInvalidClient || code == kServerErrorUnauthorizedClient)
      secureData_->deleteAll();
    return std::make_shared<VelmorAuthorizationError>(
        serverError, parameter(query, "error_description"), parameter(query, "error_uri"),
        parameter(query, "state"));
  }

  if (redirectUrl != nullptr) *redirectUrl = withoutQuery(responseUrl);
  const std::optional<std::string> code = parameter(query, "code");
  if (authorizationCode != nullptr) *authorizationCode = code;
  if (!isPresentAndNonEmpty(code)) return missingResponseValueError("code");

  const std::optional<std::string> state = parameter(query, "state");
  if (!isPresentAndNonEmpty(state)) return missingResponseValueError("state");
  // Before any request was built there is nothing to compare with, and the
  // redirect is taken on trust.
  if (lastGeneratedState_ && !text::equalsIgnoringCase(*state, *lastGeneratedState_)) {
    return VelmorAuthorizationError::errorWithDomain(AuthorizationClientErrorDomain,
                                                     kClientErrorInvalidOperation, std::nullopt);
  }

  const std::optional<std::string> user = parameter(query, "x_username");
  if (!isPresentAndNonEmpty(user)) return missingResponseValueError("x_username");
  if (username != nullptr) *username = user;
  return nullptr;
}

}  // namespace velmor
