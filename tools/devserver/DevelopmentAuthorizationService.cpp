#include "devserver/DevelopmentAuthorizationService.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <string_view>
#include <utility>

#include "devserver/CodeChallenge.h"
#include "devserver/FormCodec.h"
#include "devserver/SignInPage.h"

namespace velmor::devserver {

namespace {

using Json = nlohmann::json;

constexpr char kJsonType[] = "application/json;charset=UTF-8";
constexpr char kHtmlType[] = "text/html; charset=utf-8";
constexpr char kTextType[] = "text/plain; charset=utf-8";

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() &&
         std::equal(prefix.begin(), prefix.end(), text.begin(), [](char a, char b) {
           return std::tolower(static_cast<unsigned char>(a)) ==
                  std::tolower(static_cast<unsigned char>(b));
         });
}

ServiceReply reply(int status, std::string contentType, std::string body) {
  ServiceReply result;
  result.status = status;
  result.headers.emplace_back("Content-Type", std::move(contentType));
  result.body = std::move(body);
  return result;
}

// Token and error bodies must never be cached (RFC 6749, section 5.1).
ServiceReply jsonReply(int status, const Json& body) {
  ServiceReply result = reply(status, kJsonType, body.dump());
  result.headers.emplace_back("Cache-Control", "no-store");
  result.headers.emplace_back("Pragma", "no-cache");
  return result;
}

ServiceReply oauthError(const std::string& error, const std::string& description) {
  return jsonReply(400, Json{{"error", error}, {"error_description", description}});
}

ServiceReply refusal(const GrantRefusal& refused) {
  return oauthError(refused.error, refused.description);
}

ServiceReply methodNotAllowed(const char* allowed) {
  ServiceReply result = reply(405, kTextType, "Method not allowed\n");
  result.headers.emplace_back("Allow", allowed);
  return result;
}

ServiceReply problemPage(int status, std::string_view title, std::string_view detail) {
  ServiceReply result = reply(status, kHtmlType, SignInPage::problem(title, detail));
  result.headers.emplace_back("Cache-Control", "no-store");
  return result;
}

std::string joined(const std::vector<std::string>& scopes) {
  std::string text;
  for (const std::string& scope : scopes) text += (text.empty() ? "" : " ") + scope;
  return text;
}

ServiceReply tokenResponse(const IssuedTokens& issued) {
  Json body = {{"access_token", issued.accessToken},
               {"token_type", "bearer"},
               {"expires_in", issued.accessTokenExpiresIn.count()}};
  if (issued.refreshToken) {
    body["refresh_token"] = *issued.refreshToken;
    body["x_refresh_token_expires_in"] = issued.refreshTokenExpiresIn.count();
  }
  body["scope"] = joined(issued.scopes);
  return jsonReply(200, body);
}

ServiceReply outcomeReply(const GrantOutcome& outcome) {
  return outcome.tokens ? tokenResponse(*outcome.tokens) : refusal(*outcome.refusal);
}

bool isFormBody(const ServiceRequest& request) {
  return startsWithIgnoringCase(request.contentType, "application/x-www-form-urlencoded");
}

// The body as a form, or why it is not one.
std::optional<FormFields> formBody(const ServiceRequest& request, ServiceReply* problem) {
  if (!isFormBody(request)) {
    *problem = oauthError("invalid_request", "The body must be application/x-www-form-urlencoded");
    return std::nullopt;
  }
  std::optional<FormFields> form = FormCodec::parse(request.body);
  if (!form || form->hasDuplicates()) {
    *problem = oauthError("invalid_request", "The form is malformed or repeats a parameter");
    return std::nullopt;
  }
  return form;
}

std::optional<std::string> nonEmpty(const FormFields& form, std::string_view name) {
  const std::string* value = form.find(name);
  if (value == nullptr || value->empty()) return std::nullopt;
  return *value;
}

ServiceReply missing(std::string_view name) {
  return oauthError("invalid_request", "The parameter " + std::string(name) + " is missing");
}

// An absolute URL without a fragment and without white space or control
// characters: "https://host/path", "http://127.0.0.1:8000/cb", "app:/cb".
bool isRedirectUri(std::string_view uri) {
  const std::size_t colon = uri.find(':');
  if (colon == std::string_view::npos || colon == 0 ||
      !std::isalpha(static_cast<unsigned char>(uri[0])) || colon + 1 == uri.size()) {
    return false;
  }
  for (std::size_t i = 1; i < colon; ++i) {
    const auto c = static_cast<unsigned char>(uri[i]);
    if (!std::isalnum(c) && c != '+' && c != '-' && c != '.') return false;
  }
  return std::none_of(uri.begin(), uri.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte <= 0x20 || byte == 0x7F || byte == '#';
  });
}

ServiceReply redirectTo(const std::string& redirectUri, const FormFields& parameters) {
  const char separator = redirectUri.find('?') == std::string::npos ? '?' : '&';
  const std::string location = redirectUri + separator + FormCodec::encodeFields(parameters);
  ServiceReply result =
      reply(302, kHtmlType,
            "<!DOCTYPE html>\n<a href=\"" + SignInPage::escape(location) + "\">Continue</a>\n");
  result.headers.emplace_back("Location", location);
  result.headers.emplace_back("Cache-Control", "no-store");
  return result;
}

// An error redirect of the sign-in page, carrying the request's state back.
ServiceReply redirectError(const FormFields& request, const std::string& error,
                           const std::string& description) {
  std::vector<FormFields::Field> parameters = {{"error", error},
                                               {"error_description", description}};
  if (const std::string* state = request.find("state")) parameters.emplace_back("state", *state);
  return redirectTo(request.valueOf("redirect_uri"), FormFields(std::move(parameters)));
}

// Why a sign-in request's proof-key challenge cannot be taken, if it cannot.
std::optional<GrantRefusal> challengeRefusal(const FormFields& request, bool required) {
  const std::string* challenge = request.find("code_challenge");
  const std::string* method = request.find("code_challenge_method");
  if (challenge == nullptr) {
    if (method != nullptr) {
      return GrantRefusal{"invalid_request", "code_challenge_method came without a code_challenge"};
    }
    if (required) {
      return GrantRefusal{"invalid_request",
                          "This server requires a code challenge (PKCE, method S256)"};
    }
    return std::nullopt;
  }
  if (method == nullptr || *method != CodeChallenge::kMethod) {
    return GrantRefusal{"invalid_request", "Only the code challenge method S256 is supported"};
  }
  if (!CodeChallenge::isWellFormed(*challenge)) {
    return GrantRefusal{"invalid_request",
                        "The code_challenge is not the Base64url of a SHA-256 digest"};
  }
  return std::nullopt;
}

std::optional<std::string> valueIfPresent(const FormFields& form, std::string_view name) {
  const std::string* value = form.find(name);
  return value != nullptr ? std::optional<std::string>(*value) : std::nullopt;
}

std::string lockoutSentence(std::chrono::seconds left) {
  return "The account is locked after too many wrong passwords; try again in " +
         std::to_string(left.count()) + " seconds";
}

}  // namespace

DevelopmentAuthorizationService::DevelopmentAuthorizationService(ServiceSettings settings,
                                                                 std::shared_ptr<const Clock> clock)
    : settings_(std::move(settings)),
      clock_(std::move(clock)),
      clients_(settings_.appTokens),
      users_(settings_.users, settings_.maxFailedSignIns, settings_.lockoutDuration, *clock_),
      tokens_(TokenLifetimes{settings_.accessTokenLifetime, settings_.refreshTokenLifetime,
                             settings_.authorizationCodeLifetime, settings_.refreshTokenReuseGrace},
              *clock_) {}

ServiceReply DevelopmentAuthorizationService::handle(const ServiceRequest& request) {
  std::lock_guard<std::mutex> lock(mutex_);
  return route(request);
}

std::uint64_t DevelopmentAuthorizationService::reusedRefreshTokens() {
  std::lock_guard<std::mutex> lock(mutex_);
  return tokens_.reusedRefreshTokens();
}

ServiceReply DevelopmentAuthorizationService::route(const ServiceRequest& request) {
  const std::string& path = request.path;
  const std::string& method = request.method;
  if (path == kClientsPath) {
    if (method == "POST") return registerClient(request);
    if (method == "PUT") return updateClient(request);
    return methodNotAllowed("POST, PUT");
  }
  if (path == kTokenPath) return method == "POST" ? token(request) : methodNotAllowed("POST");
  if (path == kRevokePath) return method == "POST" ? revoke(request) : methodNotAllowed("POST");
  if (path == kSignInPath) {
    return method == "GET" || method == "POST" ? signIn(request) : methodNotAllowed("GET, POST");
  }
  if (path == kProtectedResourcePath) {
    return method == "GET" ? protectedResource(request) : methodNotAllowed("GET");
  }
  if (path == "/" && method == "GET") return index();
  return reply(404, kTextType, "Not found\n");
}

ServiceReply DevelopmentAuthorizationService::registerClient(const ServiceRequest& request) {
  ServiceReply problem;
  std::optional<FormFields> form = formBody(request, &problem);
  if (!form) return problem;
  std::optional<std::string> appToken = nonEmpty(*form, "x_app_token");
  if (!appToken) return missing("x_app_token");
  std::optional<RegisteredClient> client =
      clients_.registerClient(*appToken, form->valueOf("x_client_context"));
  if (!client) return oauthError("invalid_request", "The application token is not known");
  return jsonReply(200,
                   Json{{"client_id", client->clientId}, {"client_secret", client->clientSecret}});
}

ServiceReply DevelopmentAuthorizationService::updateClient(const ServiceRequest& request) {
  const RegisteredClient* client = clients_.authenticate(request.authorization);
  if (client == nullptr) return invalidClient();
  ServiceReply problem;
  std::optional<FormFields> form = formBody(request, &problem);
  if (!form) return problem;
  clients_.updateClientContext(client->clientId, form->valueOf("x_client_context"));
  ServiceReply result;
  result.status = 204;
  return result;
}

ServiceReply DevelopmentAuthorizationService::token(const ServiceRequest& request) {
  const RegisteredClient* client = clients_.authenticate(request.authorization);
  if (client == nullptr) return invalidClient();
  ServiceReply problem;
  std::optional<FormFields> form = formBody(request, &problem);
  if (!form) return problem;
  const std::string grantType = form->valueOf("grant_type");
  if (grantType.empty()) return missing("grant_type");
  if (grantType == "password") return passwordGrant(*client, *form);
  if (grantType == "client_credentials") return clientCredentialsGrant(*client, *form);
  if (grantType == "refresh_token") return refreshTokenGrant(*client, *form);
  if (grantType == "authorization_code") return authorizationCodeGrant(*client, *form);
  return oauthError("unsupported_grant_type", "The grant type " + grantType + " is not supported");
}

ServiceReply DevelopmentAuthorizationService::passwordGrant(const RegisteredClient& client,
                                                            const FormFields& form) {
  std::optional<std::string> username = nonEmpty(form, "username");
  if (!username) return missing("username");
  const std::string* password = form.find("password");
  if (password == nullptr) return missing("password");
  std::optional<GrantRefusal> refused;
  std::vector<std::string> scopes = grantedScopes(form, &refused);
  if (refused) return refusal(*refused);
  const UserDirectory::Check check = users_.verify(*username, *password);
  if (check.verdict == UserDirectory::Verdict::kLockedOut) {
    return jsonReply(400, Json{{"error", "invalid_grant"},
                               {"error_description", lockoutSentence(check.lockedFor)},
                               {"x_error_reason", "account_lockout"},
                               {"x_error_reason_detail", std::to_string(check.lockedFor.count())}});
  }
  if (check.verdict == UserDirectory::Verdict::kRejected) {
    return oauthError("invalid_grant", "The user name or password is wrong");
  }
  GrantRequest grant{client.clientId, *username, std::move(scopes), nonEmpty(form, "x_realm_id"),
                     nonEmpty(form, "x_namespace_id")};
  return tokenResponse(tokens_.issue(grant));
}

ServiceReply DevelopmentAuthorizationService::clientCredentialsGrant(const RegisteredClient& client,
                                                                     const FormFields& form) {
  std::optional<GrantRefusal> refused;
  std::vector<std::string> scopes = grantedScopes(form, &refused);
  if (refused) return refusal(*refused);
  GrantRequest grant{client.clientId, std::nullopt, std::move(scopes)};
  grant.withRefreshToken = false;
  return tokenResponse(tokens_.issue(grant));
}

ServiceReply DevelopmentAuthorizationService::refreshTokenGrant(const RegisteredClient& client,
                                                                const FormFields& form) {
  std::optional<std::string> refreshToken = nonEmpty(form, "refresh_token");
  if (!refreshToken) return missing("refresh_token");
  std::optional<GrantRefusal> refused;
  std::vector<std::string> scopes = requestedScopes(form, &refused);
  if (refused) return refusal(*refused);
  return outcomeReply(tokens_.refresh(client.clientId, *refreshToken, scopes));
}

ServiceReply DevelopmentAuthorizationService::authorizationCodeGrant(const RegisteredClient& client,
                                                                     const FormFields& form) {
  std::optional<std::string> code = nonEmpty(form, "code");
  if (!code) return missing("code");
  std::optional<std::string> redirectUri = nonEmpty(form, "redirect_uri");
  if (!redirectUri) return missing("redirect_uri");
  return outcomeReply(tokens_.redeemAuthorizationCode(client.clientId, *code, *redirectUri,
                                                      valueIfPresent(form, "code_verifier")));
}

ServiceReply DevelopmentAuthorizationService::revoke(const ServiceRequest& request) {
  const RegisteredClient* client = clients_.authenticate(request.authorization);
  if (client == nullptr) return invalidClient();
  ServiceReply problem;
  std::optional<FormFields> form = formBody(request, &problem);
  if (!form) return problem;
  std::optional<std::string> token = nonEmpty(*form, "token");
  if (!token) return missing("token");
  tokens_.revoke(client->clientId, *token);
  // The same answer whatever the token was (RFC 7009, section 2.2).
  ServiceReply result;
  result.headers.emplace_back("Cache-Control", "no-store");
  return result;
}

ServiceReply DevelopmentAuthorizationService::signIn(const ServiceRequest& request) {
  const bool submitted = request.method == "POST";
  if (submitted && !isFormBody(request)) {
    return problemPage(400, "Bad request",
                       "The sign-in form must be sent form-encoded, as the page itself sends "
                       "it.");
  }
  std::optional<FormFields> parameters = FormCodec::parse(submitted ? request.body : request.query);
  if (!parameters || parameters->hasDuplicates()) {
    return problemPage(400, "Bad request",
                       "The sign-in link is malformed: a parameter is repeated or badly "
                       "percent-encoded. Start the sign-in again from the application.");
  }
  // Without a known client and a usable redirect URL there is nobody to send
  // an error to: tell the person in the browser instead (RFC 6749, 4.1.2.1).
  if (clients_.find(parameters->valueOf("client_id")) == nullptr) {
    return problemPage(400, "Unknown client",
                       "This server knows no application with the client_id of this link. It "
                       "forgets every registration when it restarts: activate the application "
                       "again, then start a new sign-in.");
  }
  if (!isRedirectUri(parameters->valueOf("redirect_uri"))) {
    return problemPage(400, "Invalid redirect URL",
                       "The sign-in link has no usable redirect_uri, so there is nowhere to "
                       "send you back to. It must be an absolute URL without a fragment, such "
                       "as http://127.0.0.1:8000/callback.");
  }
  if (parameters->valueOf("response_type") != "code") {
    return redirectError(*parameters, "unsupported_response_type",
                         "Only the response type code is supported");
  }
  std::optional<GrantRefusal> refused;
  std::vector<std::string> scopes = grantedScopes(*parameters, &refused);
  if (refused) return redirectError(*parameters, refused->error, refused->description);
  refused = challengeRefusal(*parameters, settings_.requirePkce);
  if (refused) return redirectError(*parameters, refused->error, refused->description);
  if (!submitted) {
    ServiceReply result = reply(200, kHtmlType, SignInPage::form(*parameters, "", ""));
    result.headers.emplace_back("Cache-Control", "no-store");
    return result;
  }
  return submitSignIn(*parameters, scopes);
}

ServiceReply DevelopmentAuthorizationService::submitSignIn(const FormFields& form,
                                                           const std::vector<std::string>& scopes) {
  if (form.valueOf("action") == "cancel") {
    return redirectError(form, "access_denied", "The user cancelled the sign-in");
  }
  const std::string username = form.valueOf("username");
  const UserDirectory::Check check = users_.verify(username, form.valueOf("password"));
  if (check.verdict != UserDirectory::Verdict::kAccepted) {
    const std::string message = check.verdict == UserDirectory::Verdict::kLockedOut
                                    ? lockoutSentence(check.lockedFor) + "."
                                    : "The user name or password is wrong.";
    ServiceReply result = reply(200, kHtmlType, SignInPage::form(form, username, message));
    result.headers.emplace_back("Cache-Control", "no-store");
    return result;
  }
  const std::string redirectUri = form.valueOf("redirect_uri");
  const std::string code =
      tokens_.issueAuthorizationCode(GrantRequest{form.valueOf("client_id"), username, scopes},
                                     redirectUri, valueIfPresent(form, "code_challenge"));
  std::vector<FormFields::Field> parameters = {{"code", code}};
  if (const std::string* state = form.find("state")) parameters.emplace_back("state", *state);
  parameters.emplace_back("x_username", username);
  return redirectTo(redirectUri, FormFields(std::move(parameters)));
}

ServiceReply DevelopmentAuthorizationService::protectedResource(const ServiceRequest& request) {
  if (request.authorization.empty()) {
    // No credentials at all: a bare challenge without an error (RFC 6750, 3.1).
    ServiceReply result = reply(401, kTextType, "A Bearer token is required\n");
    result.headers.emplace_back("WWW-Authenticate", "Bearer realm=\"" + settings_.realm + "\"");
    return result;
  }
  static constexpr std::string_view kScheme = "Bearer ";
  if (!startsWithIgnoringCase(request.authorization, kScheme)) {
    return challenge(400, "invalid_request", "The request must carry one Bearer token", false);
  }
  const AccessTokenInfo info = tokens_.inspect(request.authorization.substr(kScheme.size()));
  switch (info.status) {
    case AccessTokenInfo::Status::kUnknown:
      return challenge(401, "invalid_token", "The access token is not known", false);
    case AccessTokenInfo::Status::kExpired:
      return challenge(401, "invalid_token", "The access token expired", false);
    case AccessTokenInfo::Status::kRevoked:
      return challenge(401, "invalid_token", "The access token was revoked", false);
    case AccessTokenInfo::Status::kValid:
      break;
  }
  const std::string& needed = settings_.protectedResourceScope;
  if (!needed.empty() &&
      std::find(info.scopes.begin(), info.scopes.end(), needed) == info.scopes.end()) {
    return challenge(403, "insufficient_scope", "The access token lacks the scope " + needed, true);
  }
  Json body = {{"client_id", info.clientId}, {"scope", joined(info.scopes)}};
  body["username"] = info.username ? Json(*info.username) : Json(nullptr);
  if (info.realmId) body["realm_id"] = *info.realmId;
  if (info.namespaceId) body["namespace_id"] = *info.namespaceId;
  return reply(200, kJsonType, body.dump());
}

ServiceReply DevelopmentAuthorizationService::index() const {
  std::string text = "Velmor development authorization server\n\nEndpoints:\n";
  text += std::string("  POST, PUT ") + kClientsPath + "\n";
  text += std::string("  POST      ") + kTokenPath + "\n";
  text += std::string("  POST      ") + kRevokePath + "\n";
  text += std::string("  GET, POST ") + kSignInPath + "\n";
  text += std::string("  GET       ") + kProtectedResourcePath + "\n";
  return reply(200, kTextType, text);
}

std::vector<std::string> DevelopmentAuthorizationService::requestedScopes(
    const FormFields& form, std::optional<GrantRefusal>* refusal) const {
  const std::string text = form.valueOf("scope");
  std::vector<std::string> scopes;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find(' ', start);
    if (end == std::string::npos) end = text.size();
    std::string scope = text.substr(start, end - start);
    start = end + 1;
    if (scope.empty() || std::find(scopes.begin(), scopes.end(), scope) != scopes.end()) continue;
    if (std::find(settings_.scopes.begin(), settings_.scopes.end(), scope) ==
        settings_.scopes.end()) {
      *refusal = GrantRefusal{"invalid_scope", "The scope " + scope + " is not known here"};
      return {};
    }
    scopes.push_back(std::move(scope));
  }
  return scopes;
}

std::vector<std::string> DevelopmentAuthorizationService::grantedScopes(
    const FormFields& form, std::optional<GrantRefusal>* refusal) const {
  std::vector<std::string> scopes = requestedScopes(form, refusal);
  return scopes.empty() && !*refusal ? settings_.scopes : scopes;
}

ServiceReply DevelopmentAuthorizationService::challenge(int status, const std::string& error,
                                                        const std::string& description,
                                                        bool withScope) const {
  // Realm first: clients look for `Bearer realm="` to spot a Bearer challenge.
  std::string value = "Bearer realm=\"" + settings_.realm + "\", error=\"" + error +
                      "\", error_description=\"" + description + "\"";
  if (withScope) value += ", scope=\"" + settings_.protectedResourceScope + "\"";
  ServiceReply result =
      jsonReply(status, Json{{"error", error}, {"error_description", description}});
  result.headers.emplace_back("WWW-Authenticate", value);
  return result;
}

ServiceReply DevelopmentAuthorizationService::invalidClient() const {
  ServiceReply result =
      jsonReply(401, Json{{"error", "invalid_client"},
                          {"error_description", "The client id or secret is wrong or missing"}});
  result.headers.emplace_back("WWW-Authenticate", "Basic realm=\"" + settings_.realm + "\"");
  return result;
}

}  // namespace velmor::devserver
