// The common base of the library's exchanges with the authorization server.
#ifndef VELMOR_TRANSPORT_HTTP_TRANSACTION_H_
#define VELMOR_TRANSPORT_HTTP_TRANSACTION_H_

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "storage/SecureData.h"
#include "transport/HttpTransactionProtocol.h"
#include "velmor/Data.h"
#include "velmor/Error.h"
#include "velmor/HttpUrlResponse.h"
#include "velmor/Url.h"
#include "velmor/Value.h"

namespace velmor {

// Holds the credential record the exchange reads its credentials from and
// writes the server's answers to; the record is shared with the client, not
// owned here. Provides the checks every response goes through and the
// judgement of the server's error answers, which also throws away stored
// credentials the server no longer accepts.
//
// Response headers are looked up under their exact names, "Content-Type"
// and "Content-Length", in the response's header dictionary: a server that
// spells them otherwise ("content-type") is treated as not sending them.
//
// Failures are returned as errors, never thrown; only the two abstract
// members throw. One thread at a time, like the record it writes.
class HttpTransaction : public HttpTransactionProtocol {
 public:
  static constexpr char kFormContentType[] = "application/x-www-form-urlencoded;charset=UTF-8";

  explicit HttpTransaction(std::shared_ptr<SecureData> secureData);

  const std::shared_ptr<SecureData>& secureData() const { return secureData_; }

  // Both throw InternalInconsistencyException("This method, <name>, must be
  // overridden in a subclass"): every exchange supplies its own.
  Data generateRequest(const Url& baseUrl, std::optional<Url>* completeUrl, Dictionary* headers,
                       std::string* verb) override;
  ErrorRef handleResponse(const std::shared_ptr<HttpUrlResponse>& response,
                          const std::optional<Data>& content) override;

  // True for "application/json" in any letter case with no charset, or with
  // "UTF-8" anywhere after it. The charset's value is not parsed, so
  // "application/json; charset=latin1; x=utf-8" passes.
  bool isContentTypeJsonUtf8(const std::optional<std::string>& contentType) const;

  // Network-domain code 2 without "Content-Type", 3 when it is not JSON in
  // UTF-8; the headers are the error's user information.
  ErrorRef validateResponseContentTypeIsJsonUtf8(const Dictionary& headers) const;

  // Network-domain code 4 for a declared length of 0 (or a non-numeric
  // one), 5 when a body's size differs from the declared length, 6 for an
  // absent or empty body; the headers are the error's user information.
  ErrorRef validateResponseContent(const Dictionary& headers,
                                   const std::optional<Data>& content) const;

  // The parsed body, or nothing with network-domain code 6 and
  // {"Parse error detail": reason} in `*error` (when given).
  std::optional<Value> parseJsonData(const std::optional<Data>& content, ErrorRef* error) const;

  // Reads the body as a server error answer and returns it as a server-domain
  // error coded by its "error" text. "invalid_client" and
  // "unauthorized_client" delete the whole credential record,
  // "invalid_grant" what discardRejectedGrant says. An unreadable body gives
  // the parse error and deletes nothing.
  ErrorRef parseAndHandleResponseContent(const std::optional<Data>& content);

  // A JSON answer is checked and read as a server error; anything else
  // becomes a server-domain error carrying the HTTP status (0 without a
  // response) and the response's headers.
  ErrorRef handleResponseError(const std::shared_ptr<HttpUrlResponse>& response,
                               const std::optional<Data>& content) override;
  // The body read as a server error.
  ErrorRef handleAuthenticateResponseError(const std::optional<Data>& content) override;

  // "Basic " and the Base64 of "<client id>:<client secret>" as stored,
  // neither part encoded first; an absent part reads "(null)".
  std::string clientBasicAuthorizationHeader() const;

 protected:
  // What an "invalid_grant" answer throws away: here the tokens and their
  // validity dates, in one write.
  virtual void discardRejectedGrant();

  // Fills generateRequest's out-parameters for a request to `path` resolved
  // against `baseUrl`, and returns `form` as the body.
  static Data formRequest(const Url& baseUrl, std::string_view path, Dictionary requestHeaders,
                          std::string_view requestVerb, std::string_view form,
                          std::optional<Url>* completeUrl, Dictionary* headers, std::string* verb);

  // The checks of an expected success, in order: content type, content,
  // JSON. The parsed object (an empty one when the JSON is not an object),
  // or nothing with the first error in `*error`.
  std::optional<Dictionary> readJsonContent(const HttpUrlResponse& response,
                                            const std::optional<Data>& content,
                                            ErrorRef* error) const;

 private:
  void discardCredentialsRejectedBy(std::int64_t authorizationServerError);

  std::shared_ptr<SecureData> secureData_;
};

}  // namespace velmor

#endif  // VELMOR_TRANSPORT_HTTP_TRANSACTION_H_
