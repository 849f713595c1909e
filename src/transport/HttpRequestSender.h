// Sends one transaction's request the way every exchange with the
// authorization server is sent, and logs both directions.
#ifndef VELMOR_TRANSPORT_HTTP_REQUEST_SENDER_H_
#define VELMOR_TRANSPORT_HTTP_REQUEST_SENDER_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "velmor/Data.h"
#include "velmor/Error.h"
#include "velmor/HttpClient.h"
#include "velmor/HttpUrlResponse.h"
#include "velmor/Url.h"
#include "velmor/Value.h"

namespace velmor {

// Decorates a request with the headers every request carries — "User-Agent"
// (HttpUserAgent), "Accept-Language", "Cache-Control: no-cache, no-store"
// and a fresh "velmor_tid" transaction id — over the transaction's own,
// sends it through an HttpClient (whose own timeout, no cookies and no cache
// apply) and logs request and response through the shared logger. Secrets
// appear in the logs only when level 5 (sensitive) is loggable; at level 3
// the "Authorization" header and the bodies are starred out.
//
// "Accept-Language" is the user's locale from LC_ALL, LC_MESSAGES or LANG
// (the first that is set and not empty, read through SystemIdentity), without
// its encoding or modifier and with "-" for "_": "de_DE.UTF-8" gives
// "de-DE". The "C" and "POSIX" locales, and no locale at all, give "en-US",
// the language of every text the library makes.
//
// Used by one thread at a time; `send` blocks it for the simulated delay
// plus the exchange. Never throws except std::bad_alloc and what the sleep
// function throws.
class HttpRequestSender final {
 public:
  // Blocks the calling thread for a whole number of seconds; 0 returns at once.
  using SleepFunction = std::function<void(std::uint64_t seconds)>;

  // nullptr takes HttpClient::defaultClient(); an empty function sleeps for real.
  explicit HttpRequestSender(std::shared_ptr<HttpClient> client = nullptr,
                             SleepFunction sleep = nullptr);

  // Seconds to wait before every send, to imitate a slow network; 0 by default.
  std::uint64_t simulatedNetworkDelayInterval() const { return simulatedNetworkDelayInterval_; }
  void setSimulatedNetworkDelayInterval(std::uint64_t seconds) {
    simulatedNetworkDelayInterval_ = seconds;
  }

  // Waits the simulated delay, sends `verb` to `url` with the decorated
  // `headers` and `body`, and returns the response body (nothing when none
  // came back). `*response` gets the response or nullptr, `*error` the
  // transport error or nullptr (each when given). The response is not judged.
  std::optional<Data> send(const std::string& requestName, const Url& url, const std::string& verb,
                           const Dictionary& headers, const Data& body,
                           std::shared_ptr<HttpUrlResponse>* response, ErrorRef* error);

  // The request as sent, in full at level 5, otherwise redacted at level 3.
  static void logRequest(const std::string& requestName, const Url& url, const std::string& verb,
                         const Dictionary& headers, const Data& content);
  // What came back, in full at level 5, otherwise with the body starred at
  // level 3; response headers are shown as they came.
  static void logResponse(const std::string& requestName, const ErrorRef& error,
                          const std::shared_ptr<HttpUrlResponse>& httpUrlResponse,
                          const std::optional<Data>& content);

  // A copy of `headers` in which "Authorization" is replaced by
  // "Authorization (Redacted)": "Basic " padded with "*" to the length of the
  // real value (cut to it when shorter), whatever the real scheme was. A
  // dictionary without "Authorization" is returned unchanged.
  static Dictionary redactAuthorizationHeader(const Dictionary& headers);

 private:
  std::shared_ptr<HttpClient> client_;
  SleepFunction sleep_;
  std::uint64_t simulatedNetworkDelayInterval_ = 0;
};

}  // namespace velmor

#endif  // VELMOR_TRANSPORT_HTTP_REQUEST_SENDER_H_
