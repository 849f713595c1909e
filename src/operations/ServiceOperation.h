// The common base of the operations that each run one exchange with the
// authorization server on a client's queue.
#ifndef VELMOR_OPERATIONS_SERVICE_OPERATION_H_
#define VELMOR_OPERATIONS_SERVICE_OPERATION_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "storage/SecureData.h"
#include "transport/HttpRequestSender.h"
#include "transport/HttpTransactionProtocol.h"
#include "velmor/Data.h"
#include "velmor/Error.h"
#include "velmor/HttpClient.h"
#include "velmor/HttpUrlResponse.h"
#include "velmor/Operation.h"
#include "velmor/Url.h"
#include "velmor/Value.h"

namespace velmor {

// Holds what every exchange needs — the server's base URL, the credential
// record shared with the client, the simulated network delay — and sends one
// request the way every request is sent (HttpRequestSender). The inputs are
// set before the operation is queued and only read afterwards.
//
// Subclasses implement `main`: build their transaction's request, send it,
// and, unless cancelled meanwhile, let the transaction judge the answer and
// call their completion on the queue's thread. A cancelled operation calls
// no completion. Transport failures reach the completion unchanged, as
// "NSURLErrorDomain" errors.
class ServiceOperation : public Operation {
 public:
  const std::optional<Url>& authorizationServerBaseUrl() const {
    return authorizationServerBaseUrl_;
  }
  void setAuthorizationServerBaseUrl(std::optional<Url> url) {
    authorizationServerBaseUrl_ = std::move(url);
  }
  const std::shared_ptr<SecureData>& secureData() const { return secureData_; }
  void setSecureData(std::shared_ptr<SecureData> secureData) {
    secureData_ = std::move(secureData);
  }
  // Seconds to wait before every send; 0 by default.
  std::uint64_t simulatedNetworkDelayInterval() const { return simulatedNetworkDelayInterval_; }
  void setSimulatedNetworkDelayInterval(std::uint64_t seconds) {
    simulatedNetworkDelayInterval_ = seconds;
  }
  // The client the request goes through; HttpClient::defaultClient() when
  // none is set.
  void setHttpClient(std::shared_ptr<HttpClient> client) { httpClient_ = std::move(client); }
  // Replaces the real sleep of the simulated delay (tests).
  void setSleepFunction(HttpRequestSender::SleepFunction sleep) { sleep_ = std::move(sleep); }

  // Throws InternalInconsistencyException: every exchange supplies its own.
  void main() override;

  // Waits the simulated delay, sends the decorated request, logs both
  // directions under `requestName` and returns the response body. Never
  // throws for transport failures: `*error` gets them.
  std::optional<Data> sendHttpRequest(const std::string& requestName, const Url& url,
                                      const std::string& verb, const Dictionary& headers,
                                      const Data& body, std::shared_ptr<HttpUrlResponse>* response,
                                      ErrorRef* error);

 protected:
  // The common shape of an exchange: generate the request, send it, and —
  // unless the operation was cancelled during the send — return the outcome:
  // a final transport error as it is, otherwise what the transaction's
  // handleResponse makes of the answer (nullptr on success). A transport
  // error -1012 that came with a body is judged by the transaction too.
  // Returns false, with `*outcome` untouched, when cancelled.
  bool exchange(HttpTransactionProtocol& transaction, const std::string& requestName,
                ErrorRef* outcome);

  // As `exchange`, for callers that must act between building the request
  // and sending it (sign-out deletes the tokens there).
  struct PreparedRequest {
    std::optional<Url> url;
    Dictionary headers;
    std::string verb;
    Data body;
  };
  PreparedRequest prepare(HttpTransactionProtocol& transaction) const;
  bool send(HttpTransactionProtocol& transaction, const PreparedRequest& request,
            const std::string& requestName, ErrorRef* outcome);

 private:
  std::optional<Url> authorizationServerBaseUrl_;
  std::shared_ptr<SecureData> secureData_;
  std::uint64_t simulatedNetworkDelayInterval_ = 0;
  std::shared_ptr<HttpClient> httpClient_;
  HttpRequestSender::SleepFunction sleep_;
};

}  // namespace velmor

#endif  // VELMOR_OPERATIONS_SERVICE_OPERATION_H_
