// The library's HTTPS client, over libcurl and OpenSSL.
#ifndef VELMOR_CURL_HTTP_CLIENT_H_
#define VELMOR_CURL_HTTP_CLIENT_H_

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "velmor/HttpClient.h"

namespace velmor {

struct CurlHttpClientOptions {
  // The whole exchange must end within this time (NSURLErrorDomain -1001).
  std::chrono::milliseconds timeout = std::chrono::seconds(60);
  // A PEM file of certificates trusted in addition to the system's.
  std::optional<std::string> extraCaFile;
  // Larger bodies end the exchange with an error rather than growing memory.
  std::size_t maxBodyBytes = 4 * 1024 * 1024;
};

// Sends requests with TLS peer and host verification always on (system CA
// store plus `extraCaFile`), no cookies, no cache, no "Expect:
// 100-continue", and proxies from the usual environment variables
// (https_proxy, no_proxy, ...). Connections, TLS sessions and the loaded CA
// store are kept between requests, so consecutive requests to one server
// reuse the connection. Thread-safe.
class CurlHttpClient final : public HttpClient {
 public:
  explicit CurlHttpClient(CurlHttpClientOptions options = {});
  ~CurlHttpClient() override;

  CurlHttpClient(const CurlHttpClient&) = delete;
  CurlHttpClient& operator=(const CurlHttpClient&) = delete;

  HttpResult send(const HttpRequest& request) override;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace velmor

#endif  // VELMOR_CURL_HTTP_CLIENT_H_
