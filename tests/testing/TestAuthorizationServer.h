// An HTTP(S) server on 127.0.0.1 that records what it is sent and answers
// what the test scripts.
#ifndef VELMOR_TESTING_TEST_AUTHORIZATION_SERVER_H_
#define VELMOR_TESTING_TEST_AUTHORIZATION_SERVER_H_

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velmor::test {

using HeaderList = std::vector<std::pair<std::string, std::string>>;

// One scripted answer.
struct ScriptedResponse {
  int status = 200;
  // Sent in this order. Without a "Content-Type" here none is sent.
  // "Content-Length" belongs in `declaredContentLength`, not here.
  HeaderList headers;
  std::string body;
  // Sent as "Content-Length" instead of the body's size; must be positive.
  // When larger than the body, the connection is closed after the body: the
  // client sees it dropped mid-body.
  std::optional<std::size_t> declaredContentLength;
  // Waited before answering; cut short when the server stops.
  std::chrono::milliseconds delay{0};
  // Not answered until the test calls releaseHeldRequests() (or the server
  // stops), so that a test can act while the client is sure to be waiting.
  bool holdUntilReleased = false;
};

// One request as the server read it.
struct RecordedRequest {
  std::string method;
  // Path and query as sent ("/oauth2/v1/tokens/bearer?x=1").
  std::string target;
  // Sorted by name ignoring case, repeated names in arrival order; fields
  // with an empty value are not seen (the HTTP library drops them).
  HeaderList headers;
  std::string body;
  // The client's port: two requests with the same port came over one
  // connection.
  int remotePort = 0;

  // The first value of the field `name`, matched ignoring case.
  std::optional<std::string> header(std::string_view name) const;
};

// Serves HTTPS (or plain HTTP) on 127.0.0.1 at a port of the system's
// choosing, with a certificate from a certificate authority made for this
// server. Requests take the next queued answer, else the answer set for
// their path, else a 404 with an empty body. Thread-safe. The destructor
// stops the server and waits for its threads; destroy clients that keep
// connections open first, or it waits for the keep-alive period (5 s).
// Throws std::runtime_error when it cannot start.
class TestAuthorizationServer final {
 public:
  enum class Certificate {
    kLocalhost,  // for "localhost" and 127.0.0.1, valid
    kExpired,    // for "localhost" and 127.0.0.1, ended a day ago
    kOtherHost,  // valid, but only for "other.invalid"
  };
  struct Options {
    bool tls = true;
    Certificate certificate = Certificate::kLocalhost;
  };

  TestAuthorizationServer();
  explicit TestAuthorizationServer(Options options);
  ~TestAuthorizationServer();
  TestAuthorizationServer(const TestAuthorizationServer&) = delete;
  TestAuthorizationServer& operator=(const TestAuthorizationServer&) = delete;

  int port() const;
  // "https://127.0.0.1:<port>" (or "http://...") followed by `path`.
  std::string url(std::string_view path = "/") const;
  // The PEM file of the authority that signed the server's certificate.
  const std::string& caFile() const;

  // Answers the next request, whatever its path.
  void enqueue(ScriptedResponse response);
  // Answers every request for `path` (without query) that no queued answer
  // takes.
  void answer(std::string path, ScriptedResponse response);

  std::vector<RecordedRequest> requests() const;

  // Blocks until a request with `holdUntilReleased` has arrived and is being
  // held; false when none has after `timeout`.
  bool waitForHeldRequest(std::chrono::milliseconds timeout = std::chrono::seconds(30));
  // Lets every request held so far be answered.
  void releaseHeldRequests();

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace velmor::test

#endif  // VELMOR_TESTING_TEST_AUTHORIZATION_SERVER_H_
