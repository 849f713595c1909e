// Asks the server to revoke the user's grant at sign-out.
#ifndef VELMOR_TRANSPORT_REVOKE_TRANSACTION_H_
#define VELMOR_TRANSPORT_REVOKE_TRANSACTION_H_

#include <memory>
#include <optional>
#include <string>

#include "transport/HttpTransaction.h"

namespace velmor {

// POST "oauth2/v1/tokens/revoke" with the Basic client header and the form
// "token=<token>": the stored refresh token when there is one, else the
// stored access token (empty when neither is stored), escaped; no token-type
// hint. 200 and 204 succeed without the body being read; an absent response
// is read as a server error body, any other status as an error answer.
// Clearing the local record afterwards is the caller's business.
class RevokeTransaction final : public HttpTransaction {
 public:
  using HttpTransaction::HttpTransaction;

  Data generateRequest(const Url& baseUrl, std::optional<Url>* completeUrl, Dictionary* headers,
                       std::string* verb) override;
  ErrorRef handleResponse(const std::shared_ptr<HttpUrlResponse>& response,
                          const std::optional<Data>& content) override;
};

}  // namespace velmor

#endif  // VELMOR_TRANSPORT_REVOKE_TRANSACTION_H_
