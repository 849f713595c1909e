// What every exchange with the authorization server provides: the request
// to send and the judgement of the one response that comes back.
#ifndef VELMOR_TRANSPORT_HTTP_TRANSACTION_PROTOCOL_H_
#define VELMOR_TRANSPORT_HTTP_TRANSACTION_PROTOCOL_H_

#include <memory>
#include <optional>
#include <string>

#include "velmor/Data.h"
#include "velmor/Error.h"
#include "velmor/HttpUrlResponse.h"
#include "velmor/Url.h"
#include "velmor/Value.h"

namespace velmor {

// A transaction never sends anything itself: the caller asks it for the
// request, sends it, and hands the response back. Each transaction serves
// one exchange on one thread.
class HttpTransactionProtocol {
 public:
  virtual ~HttpTransactionProtocol();

  // Builds the request against the server's `baseUrl`: the complete URL
  // (nothing when it cannot be resolved), the header fields and the verb go
  // to the out-parameters (each may be nullptr); the body is returned.
  virtual Data generateRequest(const Url& baseUrl, std::optional<Url>* completeUrl,
                               Dictionary* headers, std::string* verb) = 0;

  // Judges what came back: `response` is nullptr when the transport gave
  // none, `content` the body. Nothing means success.
  virtual ErrorRef handleResponse(const std::shared_ptr<HttpUrlResponse>& response,
                                  const std::optional<Data>& content) = 0;

  // The judgement of a response that is not the expected success, and of
  // the body of an exchange that ended without a response. Transactions
  // that never see such answers may leave these alone; the defaults answer
  // no error at all.
  virtual ErrorRef handleResponseError(const std::shared_ptr<HttpUrlResponse>& response,
                                       const std::optional<Data>& content);
  virtual ErrorRef handleAuthenticateResponseError(const std::optional<Data>& content);
};

}  // namespace velmor

#endif  // VELMOR_TRANSPORT_HTTP_TRANSACTION_PROTOCOL_H_
