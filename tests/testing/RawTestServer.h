// A plain-TCP server on 127.0.0.1 that records requests byte for byte and
// answers with scripted raw bytes.
#ifndef VELMOR_TESTING_RAW_TEST_SERVER_H_
#define VELMOR_TESTING_RAW_TEST_SERVER_H_

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace velmor::test {

// For what an HTTP library hides or will not send: the exact bytes of a
// request (field order, fields with empty values), a "Content-Length" that
// differs from the body, a connection closed or reset before or during an
// answer. Serves one connection at a time, requests framed by
// "Content-Length". A request with no queued answer gets its connection
// closed. Thread-safe; the destructor
// stops the server and waits for its thread. Throws std::runtime_error when
// it cannot start.
class RawTestServer final {
 public:
  struct Answer {
    std::string bytes;  // sent as they are
    bool closeAfter = true;
    // Ends the connection after the bytes with a TCP reset (RST) instead of
    // an orderly close, as a crashed peer or a middlebox does.
    bool reset = false;
  };

  RawTestServer();
  ~RawTestServer();
  RawTestServer(const RawTestServer&) = delete;
  RawTestServer& operator=(const RawTestServer&) = delete;

  int port() const;
  // "http://127.0.0.1:<port>" followed by `path`.
  std::string url(std::string_view path = "/") const;

  void enqueue(Answer answer);
  // Each request's bytes: head and body.
  std::vector<std::string> requests() const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace velmor::test

#endif  // VELMOR_TESTING_RAW_TEST_SERVER_H_
