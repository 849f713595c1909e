// One request a browser made of a LoopbackHttpServer, and the means to
// answer it.
#ifndef VELMOR_PLATFORM_LOOPBACK_HTTP_EXCHANGE_H_
#define VELMOR_PLATFORM_LOOPBACK_HTTP_EXCHANGE_H_

#include <optional>
#include <string>
#include <string_view>

#include "platform/FileDescriptor.h"

namespace velmor {

// The parts of a request the library looks at.
struct LoopbackHttpRequest {
  std::string method;               // "GET"
  std::string target;               // "/callback?code=..." as sent, percent escapes kept
  std::optional<std::string> host;  // the Host header's value
};

// Owns the connection the request came on until it is answered. Move-only;
// answer it from any one thread, at most once. Dropped unanswered, the
// connection is closed without a word.
class LoopbackHttpExchange final {
 public:
  LoopbackHttpExchange(FileDescriptor connection, LoopbackHttpRequest request);
  LoopbackHttpExchange(LoopbackHttpExchange&&) noexcept = default;
  LoopbackHttpExchange& operator=(LoopbackHttpExchange&&) noexcept = default;

  const LoopbackHttpRequest& request() const { return request_; }

  // Sends a complete response — `status`, a body of `contentType` that
  // nothing may cache, sniff or load further resources for — and closes
  // the connection. A browser that stopped reading is given up on after a
  // few seconds; failures are dropped, as nobody is left to tell.
  void respond(int status, std::string_view contentType, std::string_view body);

 private:
  FileDescriptor connection_;
  LoopbackHttpRequest request_;
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_LOOPBACK_HTTP_EXCHANGE_H_
