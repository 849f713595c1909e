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
// are not sent. Responses are handled as for every token request.
class RefreshAccessTokenTransaction final : public RequestAccessTokenTransaction {
 public:
  using RequestAccessTokenTransaction::RequestAccessTokenTransaction;

  Data generateRequest(const Url& baseUrl, std::optional<Url>* completeUrl, Dictionary* headers,
                       std::string* verb) override;
};

}  // namespace velmor

#endif  // VELMOR_TRANSPORT_REFRESH_ACCESS_TOKEN_TRANSACTION_H_
