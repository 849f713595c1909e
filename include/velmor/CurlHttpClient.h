// The library's HTTPS client, over libcurl and OpenSSL.
#ifndef VELMOR_CURL_HTTP_CLIENT_H_
#define VELMOR_CURL_HTTP_CLIENT_H_

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "velmor/Export.h"
#include "velmor/HttpClient.h"

namespace velmor {

struct VELMOR_EXPORT CurlHttpClientOptions {
  // The whole exchange, connecting included, must end within this time, or
  // it fails with "NSURLErrorDomain" -1001. Zero or less waits without limit.
  std::chrono::milliseconds timeout = std::chrono::seconds(60);
  // A PEM file of CA certificates trusted in addition to the system's bundle
  // (the one libcurl was built to use) and the environment's certificates
  // (below). When it cannot be read or holds no certificate, every HTTPS
  // exchange fails with -1200.
  std::optional<std::string> extraCaFile;
  // A larger response body (declared or received) ends the exchange with
  // -1103 rather than growing memory.
  std::size_t maxBodyBytes = 4 * 1024 * 1024;
};

// Sends requests over HTTP/1.1 with TLS peer and host verification always
// on, no cookies, no cache, no "Expect: 100-continue", and proxies from the
// usual environment variables (http_proxy, https_proxy, no_proxy, ...).
//
// Trusted are the system's CA bundle, the certificates the environment
// names as OpenSSL and curl read it (SSL_CERT_FILE, a PEM file, and
// SSL_CERT_DIR, colon-separated directories of certificates named by
// subject hash), and CurlHttpClientOptions::extraCaFile. The environment is
// read when the client is made; a file or directory it names that cannot be
// read adds nothing.
//
// The request goes out as given: its method, its header fields in order (an
// empty value is sent as an empty field) and its body, plus the fields HTTP
// framing needs ("Host", "Content-Length") and libcurl's defaults where the
// request has none ("Accept: */*"; "Content-Type:
// application/x-www-form-urlencoded" with a body). A method or field that
// would break the framing (line breaks, NUL, not an HTTP token) is refused
// with -1 before anything is sent. Redirects are handed back, not followed:
// the library's exchanges never expect one. The response's URL is therefore
// the request's.
//
// Transport failures are Errors in "NSURLErrorDomain" (-1001 timed out,
// -1002 unsupported scheme, -1003 cannot find host, -1004 cannot connect,
// -1005 connection lost, -1103 body too large, -1200 TLS failure, -1201
// expired certificate, -1202 untrusted certificate or wrong host, -1 other)
// with "NSErrorFailingURLKey", "NSErrorFailingURLStringKey" and
// "NSLocalizedDescription" in their user information. Nothing is logged.
//
// Between requests the client keeps a few libcurl handles with their live
// connections and TLS sessions (the most recently used first), a DNS cache
// shared by all of them, and one store of trusted certificates loaded at
// the first HTTPS connection; so consecutive requests to one server reuse
// the connection, and the CA bundle is read once per client. Thread-safe:
// concurrent sends use separate handles.
class VELMOR_EXPORT CurlHttpClient final : public HttpClient {
 public:
  explicit CurlHttpClient(CurlHttpClientOptions options = {});
  ~CurlHttpClient() override;

  CurlHttpClient(const CurlHttpClient&) = delete;
  CurlHttpClient& operator=(const CurlHttpClient&) = delete;

  HttpResult send(const HttpRequest& request) override;

 private:
  class VELMOR_NO_EXPORT Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace velmor

#endif  // VELMOR_CURL_HTTP_CLIENT_H_
