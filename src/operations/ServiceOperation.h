// The common base of the operations that each run one exchange with the
// authorization server on a client's queue.
#ifndef VELMOR_OPERATIONS_SERVICE_OPERATION_H_
#define VELMOR_OPERATIONS_SERVICE_OPERATION_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

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
// Subclasses implement `perform`: build their transaction's request, send
// it, and, unless cancelled meanwhile, let the transaction judge the answer
// and call their completion (through `complete`) on the queue's thread. A
// cancelled operation calls no completion. Transport failures reach the
// completion unchanged, as "NSURLErrorDomain" errors. An exception that
// escapes `perform` before the completion ran (a logger delegate that
// throws, say) still ends the exchange with a completion: client error 0
// ("Unknown error") with the exception's description under "Exception", so
// that no caller waits for an answer that never comes.
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

  // Runs `perform`, turning an exception that escapes it into the
  // completion's error as described above.
  void main() final;

  // Waits the simulated delay, sends the decorated request, logs both
  // directions under `requestName` and returns the response body. Never
  // throws for transport failures: `*error` gets them.
  std::optional<Data> sendHttpRequest(const std::string& requestName, const Url& url,
                                      const std::string& verb, const Dictionary& headers,
                                      const Data& body, std::shared_ptr<HttpUrlResponse>* response,
                                      ErrorRef* error);

 protected:
  // The exchange. Throws InternalInconsistencyException here ("This method,
  // main, must be overridden in a subclass"): every exchange supplies its own.
  virtual void perform();
  // Hands `error` to the completion as the exchange's only result; false
  // when there is no completion to tell (then the exception passes on to
  // the queue, which logs it).
  virtual bool completeWithError(const ErrorRef& error);

  // Calls `completion` (when set) with `results`, once the exchange is over.
  template <typename Completion, typename... Results>
  void complete(const Completion& completion, Results&&... results) {
    // Set first: an exception the completion itself throws must not be
    // answered with a second call.
    completed_ = true;
    if (completion) completion(std::forward<Results>(results)...);
  }

  // What an exchange came to once it was not cancelled.
  struct Outcome {
    // The final transport error, or the transaction's judgement of the
    // answer (nullptr on success).
    ErrorRef error;
    // False when a transport error ended the exchange before any answer
    // could be judged: the completion then gets nothing but the error.
    bool judged = false;
  };

  // A transaction's request, built before it is sent.
  struct PreparedRequest {
    // Absent when the base URL is missing or the path cannot be resolved
    // against it; sending then fails as a bad URL without any traffic.
    std::optional<Url> url;
    Dictionary headers;
    std::string verb;
    Data body;
  };

  // What came back from one send, unjudged.
  struct Reply {
    std::shared_ptr<HttpUrlResponse> response;
    std::optional<Data> content;
    ErrorRef transportError;
  };

  // The common shape of an exchange: generate the request, send it, and —
  // unless the operation was cancelled during the send — judge the answer.
  // Nothing when cancelled: the caller then calls no completion.
  std::optional<Outcome> exchange(HttpTransactionProtocol& transaction,
                                  const std::string& requestName);

  // The two halves of `exchange`, for callers that must act between
  // building the request and sending it (sign-out deletes the tokens there).
  PreparedRequest prepare(HttpTransactionProtocol& transaction) const;
  std::optional<Outcome> send(HttpTransactionProtocol& transaction, const PreparedRequest& request,
                              const std::string& requestName);

  // Sends without judging and without the cancellation test, for the
  // client-context update, whose failures are only logged.
  Reply transmit(const PreparedRequest& request, const std::string& requestName);

 private:
  // A transport error is final unless it is -1012 (the loader declined a
  // 401 challenge) and a body came with it: that body is the server's
  // error answer and goes to the transaction.
  static bool isFinal(const Reply& reply);

  bool completed_ = false;
  std::optional<Url> authorizationServerBaseUrl_;
  std::shared_ptr<SecureData> secureData_;
  std::uint64_t simulatedNetworkDelayInterval_ = 0;
  std::shared_ptr<HttpClient> httpClient_;
  HttpRequestSender::SleepFunction sleep_;
};

}  // namespace velmor

#endif  // VELMOR_OPERATIONS_SERVICE_OPERATION_H_
