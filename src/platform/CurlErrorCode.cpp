#include "platform/CurlErrorCode.h"

#include <openssl/x509_vfy.h>

#include "platform/UrlLoadingError.h"

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

}  // namespace velmor
