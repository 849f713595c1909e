// How the library sends its HTTP requests.
#ifndef VELMOR_HTTP_CLIENT_H_
#define VELMOR_HTTP_CLIENT_H_

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "velmor/Data.h"
#include "velmor/Error.h"
#include "velmor/Export.h"
#include "velmor/HttpUrlResponse.h"
#include "velmor/Url.h"

namespace velmor {

// One request: method, URL, header fields in order, body.
struct VELMOR_EXPORT HttpRequest {
  explicit HttpRequest(Url requestUrl) : url(std::move(requestUrl)) {}

  Url url;
  std::string method = "GET";
  HttpUrlResponse::HeaderFields headerFields;
  Data body;
};

// What came back. Exactly one of these holds:
// - `response` (and `body`, possibly empty): the server answered, whatever
//   its status;
// - `error`: the exchange failed, an Error in "NSURLErrorDomain" with the
//   platform's code (-1001 timed out, -1003 cannot find host, -1004 cannot
//   connect, -1005 connection lost, -1200 secure connection failed, -1202
//   untrusted certificate, ...) and "NSErrorFailingURLKey" in its user
//   information; `body` may still hold what arrived.
struct VELMOR_EXPORT HttpResult {
  std::shared_ptr<HttpUrlResponse> response;
  std::optional<Data> body;
  ErrorRef error;
};

// A blocking HTTP client. `send` may be called from any thread, from several
// at once; it blocks the calling thread until the exchange ends or its
// timeout passes. It never throws.
class VELMOR_EXPORT HttpClient {
 public:
  virtual ~HttpClient();

  virtual HttpResult send(const HttpRequest& request) = 0;

  // The client the library uses: a CurlHttpClient with default options
  // unless set.
  static std::shared_ptr<HttpClient> defaultClient();
  // Replaces the default; nullptr returns to a CurlHttpClient.
  static void setDefault(std::shared_ptr<HttpClient> client);
};

// Forwards to another client; subclass it to change one behaviour.
class VELMOR_EXPORT HttpClientWrapper : public HttpClient {
 public:
  explicit HttpClientWrapper(std::shared_ptr<HttpClient> target) : target_(std::move(target)) {}
  HttpResult send(const HttpRequest& request) override { return target_->send(request); }
  const std::shared_ptr<HttpClient>& target() const { return target_; }

 private:
  std::shared_ptr<HttpClient> target_;
};

}  // namespace velmor

#endif  // VELMOR_HTTP_CLIENT_H_
