// The one error type the library reports to applications.
#ifndef VELMOR_VELMOR_AUTHORIZATION_ERROR_H_
#define VELMOR_VELMOR_AUTHORIZATION_ERROR_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "velmor/Error.h"
#include "velmor/Export.h"
#include "velmor/HttpUrlResponse.h"
#include "velmor/ServerErrorResponse.h"
#include "velmor/Value.h"

namespace velmor {

// Misuse of the library, missing response values, keychain failures.
extern VELMOR_EXPORT const char
    AuthorizationClientErrorDomain[];  // "com.velmor.authorization.client.general"
// Malformed HTTP responses.
extern VELMOR_EXPORT const char NetworkCommunicationErrorDomain[];
// Errors reported by the authorization server; the code is the OAuth error
// code (1 "access_denied" ... 12, -1 for others) or an HTTP status.
extern VELMOR_EXPORT const char AuthorizationServerErrorDomain[];

// Codes in AuthorizationClientErrorDomain.
enum AuthorizationClientErrorCode : std::int64_t {
  kClientErrorUnknown = 0,
  kClientErrorInvalidOperation = 1,
  kClientErrorInsecureUrl = 2,
  kClientErrorMissingResponseValue = 3,
  kClientErrorNoWebSignInRequest = 4,  // has no description text
};

// Codes in NetworkCommunicationErrorDomain.
enum NetworkCommunicationErrorCode : std::int64_t {
  kNetworkErrorUnknown = 0,
  kNetworkErrorMissingContentType = 2,
  kNetworkErrorUnexpectedContentType = 3,
  kNetworkErrorUnexpectedContentLength = 4,
  kNetworkErrorContentLengthMismatch = 5,
  kNetworkErrorUnexpectedContent = 6,
};

// OAuth error codes in AuthorizationServerErrorDomain (an HTTP status code
// stands there instead for an error answer that is not JSON).
enum AuthorizationServerErrorCode : std::int64_t {
  kServerErrorOther = -1,
  kServerErrorAccessDenied = 1,
  kServerErrorInsufficientScope = 2,
  kServerErrorInvalidClient = 3,
  kServerErrorInvalidGrant = 4,
  kServerErrorInvalidRequest = 5,
  kServerErrorInvalidScope = 6,
  kServerErrorInvalidToken = 7,
  kServerErrorServerError = 8,
  kServerErrorTemporarilyUnavailable = 9,
  kServerErrorUnauthorizedClient = 10,
  kServerErrorUnsupportedGrantType = 11,
  kServerErrorUnauthorizedResponseType = 12,
};

// An Error with the server's details of a failed OAuth exchange and a fixed
// English description for each library-made error. Made on the library's
// queue threads and handed to completions on the application's queue; not
// changed after it is handed out.
class VELMOR_EXPORT VelmorAuthorizationError : public Error {
 public:
  // Every error the library makes with a free-form domain ("CCCrypt.kCCEncrypt").
  static std::shared_ptr<VelmorAuthorizationError> errorWithDomain(
      std::string domain, std::int64_t code, std::optional<Dictionary> userInfo);
  // `error`'s domain, code and user information with the text "Your User ID
  // or password was entered incorrectly. Please try again.".
  static std::shared_ptr<VelmorAuthorizationError> invalidSignInError(const Error& error);
  // `error`'s domain, code and user information with the text "This account
  // has been temporarily locked out. Please try again in <duration>.", the
  // duration read from the server's reason detail in seconds.
  static std::shared_ptr<VelmorAuthorizationError> accountLockoutError(
      const VelmorAuthorizationError& error);

  VelmorAuthorizationError(std::string domain, std::int64_t code,
                           std::optional<Dictionary> userInfo);
  // A failed keychain call: client domain, the status as code, no user
  // information, and the text "Keychain error: <status>, '<message>' in
  // <call>" with the store's English message for the status.
  VelmorAuthorizationError(const std::string& keychainCall, std::int32_t statusCode);
  // A non-JSON error answer: server domain, the HTTP status as code, the
  // header fields as user information. A null response gives code 0.
  explicit VelmorAuthorizationError(std::shared_ptr<HttpUrlResponse> httpUrlResponse);
  VelmorAuthorizationError(std::string domain, std::int64_t code,
                           std::optional<std::string> descriptionText,
                           std::optional<Dictionary> userInfo);
  VelmorAuthorizationError(std::shared_ptr<ServerErrorResponse> serverErrorResponse,
                           std::int64_t authorizationServerError,
                           std::optional<Dictionary> userInfo);
  VelmorAuthorizationError(std::shared_ptr<HttpUrlResponse> httpUrlResponse,
                           std::shared_ptr<ServerErrorResponse> serverErrorResponse,
                           std::int64_t authorizationServerError);
  // An error redirect of a web sign-in: server domain, the OAuth code of
  // `serverError`, user information "errorUrl" and "state" when non-empty.
  VelmorAuthorizationError(std::optional<std::string> serverError,
                           std::optional<std::string> errorDescription,
                           std::optional<std::string> errorUrl, std::optional<std::string> state);

  // True when the OAuth code is 4 ("invalid_grant").
  bool isInvalidGrantError() const;
  // An "invalid_grant" whose server reason is "account_lockout" (ignoring
  // case; an absent reason counts as equal) and which carries a reason detail.
  bool isAccountLockoutError() const;

  // The first that applies: the description text; the fixed text of a
  // client-domain code 0-3 or network-domain code 0 or 2-6, translated
  // through Localization; "Server error: '<error>'" with the server error
  // body's non-empty description, reason and reason detail appended;
  // "Server error status code: <status> '<phrase>'"; "Server error: '<text>'"
  // for a web sign-in redirect. Otherwise absent (client code 4, say).
  std::optional<std::string> description() const override;
  std::optional<std::string> localizedDescription() const override;

  const std::optional<std::string>& serverErrorText() const { return serverErrorText_; }
  const std::optional<std::string>& serverErrorDescription() const {
    return serverErrorDescription_;
  }
  std::int64_t authorizationServerError() const { return authorizationServerError_; }
  const std::optional<std::string>& descriptionText() const { return descriptionText_; }
  const std::shared_ptr<HttpUrlResponse>& httpUrlResponse() const { return httpUrlResponse_; }
  const std::shared_ptr<ServerErrorResponse>& serverErrorResponse() const {
    return serverErrorResponse_;
  }

  void setServerErrorText(std::optional<std::string> value) { serverErrorText_ = std::move(value); }
  void setServerErrorDescription(std::optional<std::string> value) {
    serverErrorDescription_ = std::move(value);
  }
  void setAuthorizationServerError(std::int64_t value) { authorizationServerError_ = value; }
  void setDescriptionText(std::optional<std::string> value) { descriptionText_ = std::move(value); }
  void setHttpUrlResponse(std::shared_ptr<HttpUrlResponse> value) {
    httpUrlResponse_ = std::move(value);
  }
  void setServerErrorResponse(std::shared_ptr<ServerErrorResponse> value) {
    serverErrorResponse_ = std::move(value);
  }

 private:
  std::optional<std::string> serverErrorText_;
  std::optional<std::string> serverErrorDescription_;
  std::int64_t authorizationServerError_ = 0;
  std::optional<std::string> descriptionText_;
  std::shared_ptr<HttpUrlResponse> httpUrlResponse_;
  std::shared_ptr<ServerErrorResponse> serverErrorResponse_;
};

}  // namespace velmor

#endif  // VELMOR_VELMOR_AUTHORIZATION_ERROR_H_
