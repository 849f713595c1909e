#include "platform/UrlLoadingError.h"

#include <openssl/x509_vfy.h>

#include <memory>
#include <string>
#include <utility>

#include "support/Format.h"

namespace velmor {

namespace {

std::int64_t certificateFailureCode(long verifyResult) {
  switch (verifyResult) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return url_error::kServerCertificateHasBadDate;
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return url_error::kServerCertificateNotYetValid;
    default:
      return url_error::kServerCertificateUntrusted;
  }
}

std::string description(std::int64_t code, const Url& url, std::size_t maxBodyBytes) {
  const std::string host = url.host().value_or("");
  switch (code) {
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

std::int64_t urlErrorCode(CURLcode code, long verifyResult) {
  switch (code) {
    case CURLE_URL_MALFORMAT:
      return url_error::kBadURL;
    case CURLE_UNSUPPORTED_PROTOCOL:
      return url_error::kUnsupportedURL;
    case CURLE_OPERATION_TIMEDOUT:
      return url_error::kTimedOut;
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_RESOLVE_HOST:
      return url_error::kCannotFindHost;
    case CURLE_COULDNT_CONNECT:
      return url_error::kCannotConnectToHost;
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
      return url_error::kNetworkConnectionLost;
    case CURLE_WEIRD_SERVER_REPLY:
      return url_error::kBadServerResponse;
    case CURLE_TOO_MANY_REDIRECTS:
      return url_error::kHTTPTooManyRedirects;
    case CURLE_FILESIZE_EXCEEDED:
      return url_error::kDataLengthExceedsMaximum;
    case CURLE_PEER_FAILED_VERIFICATION:
      return certificateFailureCode(verifyResult);
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_USE_SSL_FAILED:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_SHUTDOWN_FAILED:
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
    case CURLE_SSL_INVALIDCERTSTATUS:
    case CURLE_SSL_CLIENTCERT:
      return url_error::kSecureConnectionFailed;
    default:
      return url_error::kUnknown;
  }
}

ErrorRef urlLoadingError(std::int64_t code, const Url& url, std::size_t maxBodyBytes) {
  return makeError(code, url, description(code, url, maxBodyBytes));
}

ErrorRef malformedRequestError(const Url& url) {
  return makeError(url_error::kUnknown, url,
                   "The request has a method or header field that cannot be sent.");
}

}  // namespace velmor
