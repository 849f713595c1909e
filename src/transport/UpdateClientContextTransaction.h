// Sends the registered client's changed client context to the server.
#ifndef VELMOR_TRANSPORT_UPDATE_CLIENT_CONTEXT_TRANSACTION_H_
#define VELMOR_TRANSPORT_UPDATE_CLIENT_CONTEXT_TRANSACTION_H_

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "transport/HttpTransaction.h"

namespace velmor {

// PUT "oauth2/v1/clients" with the Basic client header and the form
// "x_client_context=<context>" (escaped). Only 204 succeeds, and its body is
// not read; an absent response is read as a server error body, any other
// status as an error answer.
class UpdateClientContextTransaction final : public HttpTransaction {
 public:
  using HttpTransaction::HttpTransaction;

  // The client-context line to send, set before the request is built.
  const std::string& authorizationClientContext() const { return authorizationClientContext_; }
  void setAuthorizationClientContext(std::string context) {
    authorizationClientContext_ = std::move(context);
  }

  Data generateRequest(const Url& baseUrl, std::optional<Url>* completeUrl, Dictionary* headers,
                       std::string* verb) override;
  ErrorRef handleResponse(const std::shared_ptr<HttpUrlResponse>& response,
                          const std::optional<Data>& content) override;

 private:
  std::string authorizationClientContext_;
};

}  // namespace velmor

#endif  // VELMOR_TRANSPORT_UPDATE_CLIENT_CONTEXT_TRANSACTION_H_
