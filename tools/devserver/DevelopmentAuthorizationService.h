// The development authorization server's protocol, apart from HTTP: client
// registration, the four grants, revocation, browser sign-in and a
// protected resource.
#ifndef VELMOR_TOOLS_DEVSERVER_DEVELOPMENT_AUTHORIZATION_SERVICE_H_
#define VELMOR_TOOLS_DEVSERVER_DEVELOPMENT_AUTHORIZATION_SERVICE_H_

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "devserver/ClientRegistry.h"
#include "devserver/Clock.h"
#include "devserver/FormFields.h"
#include "devserver/ServiceExchange.h"
#include "devserver/ServiceSettings.h"
#include "devserver/TokenStore.h"
#include "devserver/UserDirectory.h"

namespace velmor::devserver {

// Endpoints, relative to the server's root:
//   POST /oauth2/v1/clients          x_app_token, x_client_context → 200
//                                    {"client_id", "client_secret"}
//   PUT  /oauth2/v1/clients          Basic client; x_client_context → 204
//   POST /oauth2/v1/tokens/bearer    Basic client; grant_type password
//                                    (username, password, scope, x_realm_id,
//                                    x_namespace_id), client_credentials
//                                    (scope), refresh_token (refresh_token,
//                                    scope), authorization_code (code,
//                                    redirect_uri, code_verifier) → 200
//                                    token response
//   POST /oauth2/v1/tokens/revoke    Basic client; token → 200
//   GET  /oauth2/v1/authorize        the sign-in form for response_type=code,
//                                    client_id, redirect_uri, scope, state,
//                                    code_challenge, code_challenge_method
//   POST /oauth2/v1/authorize        the form: a 302 to redirect_uri with
//                                    code, state and x_username, or with
//                                    error=access_denied on "cancel"
//   GET  /api/v1/me                  Bearer token with the resource scope →
//                                    200 {"username", "client_id", "scope"}
//
// Token responses carry "access_token", "token_type" "bearer",
// "expires_in", "scope" and, except for client credentials, "refresh_token"
// and "x_refresh_token_expires_in". Refusals are OAuth error bodies
// {"error", "error_description"} with status 400, or 401 with a Basic
// challenge for "invalid_client". A locked account answers "invalid_grant"
// with "x_error_reason" "account_lockout" and the seconds left, as text, in
// "x_error_reason_detail". The protected resource refuses with 401 (no,
// unknown, expired or revoked token: "invalid_token") or 403
// ("insufficient_scope" with the scope it needs) and a Bearer challenge
// whose realm comes first.
//
// A sign-in request may carry a proof-key challenge (PKCE), method S256
// only; with `requirePkce` it must. A code issued for a challenge is
// exchanged only with the verifier that answers it, and a code issued
// without one refuses any verifier: "invalid_grant" either way.
//
// Thread-safe: one lock serialises every request, which is plenty for a
// development server. The clock is shared with the caller and must be safe
// to read from any thread.
class DevelopmentAuthorizationService final {
 public:
  static constexpr char kClientsPath[] = "/oauth2/v1/clients";
  static constexpr char kTokenPath[] = "/oauth2/v1/tokens/bearer";
  static constexpr char kRevokePath[] = "/oauth2/v1/tokens/revoke";
  static constexpr char kSignInPath[] = "/oauth2/v1/authorize";
  static constexpr char kProtectedResourcePath[] = "/api/v1/me";

  DevelopmentAuthorizationService(ServiceSettings settings, std::shared_ptr<const Clock> clock);

  ServiceReply handle(const ServiceRequest& request);

  // Spent refresh tokens presented again since the start (TokenStore).
  std::uint64_t reusedRefreshTokens();

  const ServiceSettings& settings() const { return settings_; }

 private:
  ServiceReply route(const ServiceRequest& request);
  ServiceReply registerClient(const ServiceRequest& request);
  ServiceReply updateClient(const ServiceRequest& request);
  ServiceReply token(const ServiceRequest& request);
  ServiceReply passwordGrant(const RegisteredClient& client, const FormFields& form);
  ServiceReply clientCredentialsGrant(const RegisteredClient& client, const FormFields& form);
  ServiceReply refreshTokenGrant(const RegisteredClient& client, const FormFields& form);
  ServiceReply authorizationCodeGrant(const RegisteredClient& client, const FormFields& form);
  ServiceReply revoke(const ServiceRequest& request);
  ServiceReply signIn(const ServiceRequest& request);
  ServiceReply submitSignIn(const FormFields& form, const std::vector<std::string>& scopes);
  ServiceReply protectedResource(const ServiceRequest& request);
  ServiceReply index() const;

  // The scopes a "scope" parameter names, each once; none when it is absent
  // or blank. Sets `refusal` for a scope the server does not know.
  std::vector<std::string> requestedScopes(const FormFields& form,
                                           std::optional<GrantRefusal>* refusal) const;
  // The same, but every known scope when none is named.
  std::vector<std::string> grantedScopes(const FormFields& form,
                                         std::optional<GrantRefusal>* refusal) const;
  ServiceReply challenge(int status, const std::string& error, const std::string& description,
                         bool withScope) const;
  ServiceReply invalidClient() const;

  ServiceSettings settings_;
  std::shared_ptr<const Clock> clock_;
  std::mutex mutex_;
  ClientRegistry clients_;
  UserDirectory users_;
  TokenStore tokens_;
};

}  // namespace velmor::devserver

#endif  // VELMOR_TOOLS_DEVSERVER_DEVELOPMENT_AUTHORIZATION_SERVICE_H_
