// The platform's URL-loading errors, as the HTTP client reports transport
// failures.
#ifndef VELMOR_PLATFORM_URL_LOADING_ERROR_H_
#define VELMOR_PLATFORM_URL_LOADING_ERROR_H_

#include <cstddef>
#include <cstdint>

#include "velmor/Error.h"
#include "velmor/Url.h"

namespace velmor {

inline constexpr const char* kNSURLErrorDomain = "NSURLErrorDomain";

// The platform's codes in "NSURLErrorDomain" that the client answers.
namespace url_error {
inline constexpr std::int64_t kCancelled = -999;
inline constexpr std::int64_t kUnknown = -1;
inline constexpr std::int64_t kBadURL = -1000;
inline constexpr std::int64_t kTimedOut = -1001;
inline constexpr std::int64_t kUnsupportedURL = -1002;
inline constexpr std::int64_t kCannotFindHost = -1003;
inline constexpr std::int64_t kCannotConnectToHost = -1004;
inline constexpr std::int64_t kNetworkConnectionLost = -1005;
inline constexpr std::int64_t kHTTPTooManyRedirects = -1007;
inline constexpr std::int64_t kBadServerResponse = -1011;
inline constexpr std::int64_t kUserCancelledAuthentication = -1012;
inline constexpr std::int64_t kDataLengthExceedsMaximum = -1103;
inline constexpr std::int64_t kSecureConnectionFailed = -1200;
inline constexpr std::int64_t kServerCertificateHasBadDate = -1201;
inline constexpr std::int64_t kServerCertificateUntrusted = -1202;
inline constexpr std::int64_t kServerCertificateNotYetValid = -1204;
}  // namespace url_error

// An Error in "NSURLErrorDomain" with `code`, and user information
// "NSErrorFailingURLKey" and "NSErrorFailingURLStringKey" (both the URL's
// absolute text) and "NSLocalizedDescription" (a short English text).
// `maxBodyBytes` fills the text of -1103.
ErrorRef urlLoadingError(std::int64_t code, const Url& url, std::size_t maxBodyBytes);

// The same for a request that cannot be sent as it stands: a method or
// header field that would break the request's framing.
ErrorRef malformedRequestError(const Url& url);

}  // namespace velmor

#endif  // VELMOR_PLATFORM_URL_LOADING_ERROR_H_
