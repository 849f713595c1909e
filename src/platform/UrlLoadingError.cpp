#include "platform/UrlLoadingError.h"

#include <memory>
#include <string>
#include <utility>

#include "support/Format.h"

namespace velmor {

namespace {

std::string description(std::int64_t code, const Url& url, std::size_t maxBodyBytes) {
  const std::string host = url.host().value_or("");
  switch (code) {
    case url_error::kCancelled:
      return "cancelled";
    case url_error::kBadURL:
      return "bad URL";
    case url_error::kTimedOut:
      return "The request timed out.";
    case url_error::kUnsupportedURL:
      return "unsupported URL";
    case url_error::kCannotFindHost:
      return "A server with the specified hostname could not be found.";
    case url_error::kCannotConnectToHost:
      return "Could not connect to the server.";
    case url_error::kNetworkConnectionLost:
      return "The network connection was lost.";
    case url_error::kHTTPTooManyRedirects:
      return "too many HTTP redirects";
    case url_error::kBadServerResponse:
      return "bad server response";
    case url_error::kDataLengthExceedsMaximum:
      return stringWithFormat("The response body exceeds the maximum size of %lu bytes.",
                              maxBodyBytes);
    case url_error::kSecureConnectionFailed:
      return "An SSL error has occurred and a secure connection to the server cannot be made.";
    case url_error::kServerCertificateHasBadDate:
      return stringWithFormat(
          "The certificate for this server has expired. You might be connecting to a server that "
          "is pretending to be “%@” which could put your confidential information at risk.",
          host);
    case url_error::kServerCertificateUntrusted:
      return stringWithFormat(
          "The certificate for this server is invalid. You might be connecting to a server that "
          "is pretending to be “%@” which could put your confidential information at risk.",
          host);
    case url_error::kServerCertificateNotYetValid:
      return stringWithFormat(
          "The certificate for this server is not yet valid. You might be connecting to a server "
          "that is pretending to be “%@” which could put your confidential information at risk.",
          host);
    default:
      return "unknown error";
  }
}

ErrorRef makeError(std::int64_t code, const Url& url, std::string text) {
  return std::make_shared<Error>(kNSURLErrorDomain, code,
                                 Dictionary{{"NSErrorFailingURLKey", url.absoluteString()},
                                            {"NSErrorFailingURLStringKey", url.absoluteString()},
                                            {"NSLocalizedDescription", std::move(text)}});
}

}  // namespace

ErrorRef urlLoadingError(std::int64_t code, const Url& url, std::size_t maxBodyBytes) {
  return makeError(code, url, description(code, url, maxBodyBytes));
}

ErrorRef malformedRequestError(const Url& url) {
  return makeError(url_error::kUnknown, url,
                   "The request has a method or header field that cannot be sent.");
}

}  // namespace velmor
