// Judges the refusals of the application's own resource servers: whether a
// response rejected the Bearer token, and what to make of it.
#ifndef VELMOR_TRANSPORT_APPLICATION_HTTP_TRANSACTION_H_
#define VELMOR_TRANSPORT_APPLICATION_HTTP_TRANSACTION_H_

#include <cstdint>
#include <memory>

#include "transport/HttpTransaction.h"
#include "transport/WwwAuthenticateHeaderData.h"
#include "velmor/Error.h"
#include "velmor/HttpUrlResponse.h"
#include "velmor/Value.h"

namespace velmor {

// The application sends its requests itself and hands a refusal in here;
// this transaction never builds or sends a request (the inherited request
// and response members keep throwing). It holds the credential record
// shared with the client and, for an expired or under-scoped token
// (401 "invalid_token", 403 "insufficient_scope"), removes the access token
// and its two dates so that the next authorization check refreshes it; the
// refresh token and the client registration are kept.
//
// The class members are stateless and thread-safe; an instance serves one
// thread, like the record it writes. Failures are returned, never thrown.
class ApplicationHttpTransaction final : public HttpTransaction {
 public:
  using HttpTransaction::HttpTransaction;

  // 400, 401 and 403; nothing else, 402 included.
  static bool isAuthorizationFailureStatusCode(std::int64_t statusCode);
  // A non-empty "WWW-Authenticate" (under that exact name, as responses
  // spell it) that looks like a Bearer challenge with a quoted realm.
  static bool hasBearerTokenWwwAuthenticateHeader(const Dictionary& headers);
  // An authorization-failure status with a Bearer challenge; false for
  // nullptr.
  static bool hasAuthorizationFailureResponse(const std::shared_ptr<HttpUrlResponse>& response);

  // Always an error:
  // - client-domain code 1 without user information when the response
  //   (or its "WWW-Authenticate") is missing or empty, holds no challenge,
  //   or its first challenge is not a Bearer one;
  // - the parser's server-domain error (code 1) for a malformed header;
  //   but when the joined value is malformed and the field came in several
  //   lines, the first line that alone holds a Bearer challenge is handled
  //   as if it had come alone;
  // - otherwise a server-domain error coded by the challenge's "error"
  //   attribute (-1 for other texts or none), carrying the response and its
  //   "error", "error_description" and "error_uri" attributes as a server
  //   error response.
  ErrorRef handleAuthorizationFailureResponse(const std::shared_ptr<HttpUrlResponse>& response);

 private:
  static std::shared_ptr<WwwAuthenticateHeaderData> bearerChallengeLine(
      const HttpUrlResponse& response);
  void forgetAccessTokenRefusedWith(std::int64_t statusCode, std::int64_t authorizationServerError);
};

}  // namespace velmor

#endif  // VELMOR_TRANSPORT_APPLICATION_HTTP_TRANSACTION_H_
