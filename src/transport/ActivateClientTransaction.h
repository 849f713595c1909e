// Registers this installation of the application with the authorization
// server, which answers with the client id and secret.
#ifndef VELMOR_TRANSPORT_ACTIVATE_CLIENT_TRANSACTION_H_
#define VELMOR_TRANSPORT_ACTIVATE_CLIENT_TRANSACTION_H_

#include <memory>
#include <optional>
#include <string>

#include "transport/HttpTransaction.h"

namespace velmor {

// POST "oauth2/v1/clients" with the form "x_app_token=<app token>&
// x_client_context=<context>", both escaped, and no "Authorization" header:
// the client has no credentials yet. The client context is made (and
// remembered) through AuthorizationClientContext when the request is built.
//
// Only a 200 answer succeeds; it must carry a non-empty "client_id" and
// "client_secret", which are then stored in the credential record. Anything
// else, an absent response included, is judged as an error answer.
class ActivateClientTransaction final : public HttpTransaction {
 public:
  using HttpTransaction::HttpTransaction;

  Data generateRequest(const Url& baseUrl, std::optional<Url>* completeUrl, Dictionary* headers,
                       std::string* verb) override;
  // A missing value is client-domain code 3 with {"MissingResponseValue":
  // "client_id" or "client_secret", "response_text": the body}; neither
  // value is stored then.
  ErrorRef handleResponse(const std::shared_ptr<HttpUrlResponse>& response,
                          const std::optional<Data>& content) override;
};

}  // namespace velmor

#endif  // VELMOR_TRANSPORT_ACTIVATE_CLIENT_TRANSACTION_H_
