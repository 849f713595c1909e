#include "operations/ServiceOperation.h"

#include <utility>

#include "platform/CurrentException.h"
#include "platform/UrlLoadingError.h"
#include "support/Format.h"
#include "velmor/Exception.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor {
namespace {

constexpr char kAbstractMethod[] = "This method, %@, must be overridden in a subclass";
constexpr char kBadUrlDescription[] = "bad URL";

// What the loader answers for a request without a usable URL; nothing is
// sent then.
ErrorRef badUrlError() {
  return std::make_shared<Error>(kNSURLErrorDomain, url_error::kBadURL,
                                 Dictionary{{"NSLocalizedDescription", kBadUrlDescription}});
}

}  // namespace

void ServiceOperation::main() {
  try {
    perform();
  } catch (...) {
    if (completed_) throw;
    const ErrorRef error = VelmorAuthorizationError::errorWithDomain(
        AuthorizationClientErrorDomain, kClientErrorUnknown,
        Dictionary{{"Exception", currentExceptionDescription()}});
    completed_ = true;
    if (!completeWithError(error)) throw;
  }
}

void ServiceOperation::perform() {
  throw InternalInconsistencyException(stringWithFormat(kAbstractMethod, "main"));
}

bool ServiceOperation::completeWithError(const ErrorRef&) { return false; }

std::optional<Data> ServiceOperation::sendHttpRequest(const std::string& requestName,
                                                      const Url& url, const std::string& verb,
                                                      const Dictionary& headers, const Data& body,
                                                      std::shared_ptr<HttpUrlResponse>* response,
                                                      ErrorRef* error) {
  HttpRequestSender sender(httpClient_, sleep_);
  sender.setSimulatedNetworkDelayInterval(simulatedNetworkDelayInterval_);
  return sender.send(requestName, url, verb, headers, body, response, error);
}

std::optional<ServiceOperation::Outcome> ServiceOperation::exchange(
    HttpTransactionProtocol& transaction, const std::string& requestName) {
  return send(transaction, prepare(transaction), requestName);
}

ServiceOperation::PreparedRequest ServiceOperation::prepare(
    HttpTransactionProtocol& transaction) const {
  PreparedRequest request;
  if (!authorizationServerBaseUrl_) return request;
  request.body = transaction.generateRequest(*authorizationServerBaseUrl_, &request.url,
                                             &request.headers, &request.verb);
  return request;
}

std::optional<ServiceOperation::Outcome> ServiceOperation::send(
    HttpTransactionProtocol& transaction, const PreparedRequest& request,
    const std::string& requestName) {
  const Reply reply = transmit(request, requestName);
  // A send is never interrupted; a cancellation that came meanwhile drops
  // whatever it brought.
  if (isCancelled()) return std::nullopt;
  if (isFinal(reply)) return Outcome{reply.transportError, false};
  return Outcome{transaction.handleResponse(reply.response, reply.content), true};
}

ServiceOperation::Reply ServiceOperation::transmit(const PreparedRequest& request,
                                                   const std::string& requestName) {
  Reply reply;
  if (!request.url) {
    reply.transportError = badUrlError();
    return reply;
  }
  reply.content = sendHttpRequest(requestName, *request.url, request.verb, request.headers,
                                  request.body, &reply.response, &reply.transportError);
  return reply;
}

bool ServiceOperation::isFinal(const Reply& reply) {
  const ErrorRef& error = reply.transportError;
  if (!error) return false;
  const bool declinedChallenge = error->domain() == kNSURLErrorDomain &&
                                 error->code() == url_error::kUserCancelledAuthentication;
  return !(declinedChallenge && reply.content);
}

}  // namespace velmor
