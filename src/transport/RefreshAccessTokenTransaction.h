// Trades the stored refresh token for a new access token.
#ifndef VELMOR_TRANSPORT_REFRESH_ACCESS_TOKEN_TRANSACTION_H_
#define VELMOR_TRANSPORT_REFRESH_ACCESS_TOKEN_TRANSACTION_H_

#include <optional>
#include <string>

#include "transport/RequestAccessTokenTransaction.h"

namespace velmor {

// The form is "grant_type=refresh_token&refresh_token=<token>" with the
// stored refresh token escaped (empty when none is stored), then the scope
// parameter when scopes are set. User name, password, realm and namespace
// are not sent. Responses are handled as for every token request, except
// that "invalid_grant" throws the tokens away only while the record still
// holds the refresh token that was sent: tokens another thread or process
// stored meanwhile are newer than the rejected one and are kept.
class RefreshAccessTokenTransaction final : public RequestAccessTokenTransaction {
 public:
  using RequestAccessTokenTransaction::RequestAccessTokenTransaction;

  Data generateRequest(const Url& baseUrl, std::optional<Url>* completeUrl, Dictionary* headers,
                       std::string* verb) override;

  // True after an "invalid_grant" answer that found newer tokens stored.
  bool wasSuperseded() const { return superseded_; }

 protected:
  void discardRejectedGrant() override;

 private:
  std::optional<std::string> sentRefreshToken_;
  bool superseded_ = false;
};

}  // namespace velmor

#endif  // VELMOR_TRANSPORT_REFRESH_ACCESS_TOKEN_TRANSACTION_H_
