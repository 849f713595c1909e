// Translates libcurl's outcomes into the platform's URL-loading codes. Only
// the HTTP client's implementation sees libcurl; everything above it sees
// the codes of UrlLoadingError.h.
#ifndef VELMOR_PLATFORM_CURL_ERROR_CODE_H_
#define VELMOR_PLATFORM_CURL_ERROR_CODE_H_

#include <curl/curl.h>

#include <cstdint>

namespace velmor {

// The one place where libcurl's outcomes become the platform's codes.
// `verifyResult` is OpenSSL's verdict on the server's certificate
// (CURLINFO_SSL_VERIFYRESULT); it tells a certificate outside its validity
// period from an untrusted one or one for another host, which libcurl
// reports alike.
std::int64_t urlErrorCode(CURLcode code, long verifyResult);

}  // namespace velmor

#endif  // VELMOR_PLATFORM_CURL_ERROR_CODE_H_
