// Obtains tokens from the token endpoint with the password or the
// client-credentials grant, and stores what the server granted.
#ifndef VELMOR_TRANSPORT_REQUEST_ACCESS_TOKEN_TRANSACTION_H_
#define VELMOR_TRANSPORT_REQUEST_ACCESS_TOKEN_TRANSACTION_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "transport/HttpTransaction.h"
#include "transport/RequestAccessTokenResponse.h"

namespace velmor {

// POST "oauth2/v1/tokens/bearer" with the Basic client header. The form is
// "grant_type=password&username=<u>&password=<p>" when a user name is set,
// else "grant_type=client_credentials"; then "&scope=<scopes>" when scopes
// are set (an empty list sends an empty parameter), "&x_realm_id=<r>" and
// "&x_namespace_id=<n>" when those are non-empty. Every value is escaped.
//
// The response handling is shared with the refresh and authorization-code
// grants, which derive from this class and build only their own requests:
// a 200 JSON answer is validated and its access token, refresh token (when
// one came), validity periods and granted scopes are stored; an absent
// response is read as a server error body; any other status is judged as
// an error answer.
class RequestAccessTokenTransaction : public HttpTransaction {
 public:
  using Scopes = std::vector<std::string>;

  using HttpTransaction::HttpTransaction;

  const std::optional<std::string>& username() const { return username_; }
  void setUsername(std::optional<std::string> username) { username_ = std::move(username); }
  const std::string& password() const { return password_; }
  void setPassword(std::string password) { password_ = std::move(password); }
  // The requested scopes before the exchange, the granted ones after a
  // successful one (empty when the server named none).
  const std::optional<Scopes>& scopes() const { return scopes_; }
  void setScopes(std::optional<Scopes> scopes) { scopes_ = std::move(scopes); }
  const std::optional<std::string>& realmId() const { return realmId_; }
  void setRealmId(std::optional<std::string> realmId) { realmId_ = std::move(realmId); }
  const std::optional<std::string>& namespaceId() const { return namespaceId_; }
  void setNamespaceId(std::optional<std::string> namespaceId) {
    namespaceId_ = std::move(namespaceId);
  }
  // Seconds that replace the granted lifetimes when non-zero, so that tests
  // can watch tokens expire.
  std::uint64_t accessTokenExpirationOverride() const { return accessTokenExpirationOverride_; }
  void setAccessTokenExpirationOverride(std::uint64_t seconds) {
    accessTokenExpirationOverride_ = seconds;
  }
  std::uint64_t refreshTokenExpirationOverride() const { return refreshTokenExpirationOverride_; }
  void setRefreshTokenExpirationOverride(std::uint64_t seconds) {
    refreshTokenExpirationOverride_ = seconds;
  }

  Data generateRequest(const Url& baseUrl, std::optional<Url>* completeUrl, Dictionary* headers,
                       std::string* verb) override;
  ErrorRef handleResponse(const std::shared_ptr<HttpUrlResponse>& response,
                          const std::optional<Data>& content) override;

  // The first defect of the answer, in this order: a "token_type" other than
  // "bearer" (ignoring case; none at all passes) reported as "bearer"; no
  // or an empty "access_token"; "expires_in" below 1; and, only when a
  // refresh token came, an empty "refresh_token" or
  // "x_refresh_token_expires_in" below 1.
  ErrorRef validateRequestAccessTokenResponse(const RequestAccessTokenResponse& response) const;
  // Client-domain code 3 with {"MissingResponseValue": name, "ResponseData":
  // the parsed answer}.
  ErrorRef createMissingResponseValueError(std::string_view name,
                                           const RequestAccessTokenResponse& response) const;

 protected:
  // The token endpoint's request frame around the grant's `form`.
  Data tokenRequest(const Url& baseUrl, std::string_view form, std::optional<Url>* completeUrl,
                    Dictionary* headers, std::string* verb) const;
  // "&scope=<scopes>" when scopes are set, else nothing.
  std::string scopeParameter() const;

 private:
  void storeTokens(RequestAccessTokenResponse& response);

  std::optional<std::string> username_;
  std::string password_;
  std::optional<Scopes> scopes_;
  std::optional<std::string> realmId_;
  std::optional<std::string> namespaceId_;
  std::uint64_t accessTokenExpirationOverride_ = 0;
  std::uint64_t refreshTokenExpirationOverride_ = 0;
};

}  // namespace velmor

#endif  // VELMOR_TRANSPORT_REQUEST_ACCESS_TOKEN_TRANSACTION_H_
