// Where the browser comes back to at the end of a web sign-in: a small HTTP
// server on 127.0.0.1 at a port of the system's choosing.
#ifndef VELMOR_TOOLS_VELMOR_AUTH_LOOPBACK_REDIRECT_LISTENER_H_
#define VELMOR_TOOLS_VELMOR_AUTH_LOOPBACK_REDIRECT_LISTENER_H_

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace velmor::tool {

// Takes the first GET of "/callback" as the redirect and holds the
// browser's request until complete() says how the sign-in ended, so the
// page the user sees tells the truth; other paths get 404, later callbacks
// a note that the sign-in was handled already. Connections are not kept, so
// stopping never waits for an idle browser. Thread-safe.
class LoopbackRedirectListener final {
 public:
  // A listening server, or nullptr with a sentence in `error`.
  static std::unique_ptr<LoopbackRedirectListener> start(std::string* error);
  ~LoopbackRedirectListener();

  LoopbackRedirectListener(const LoopbackRedirectListener&) = delete;
  LoopbackRedirectListener& operator=(const LoopbackRedirectListener&) = delete;

  // "http://127.0.0.1:<port>/callback".
  const std::string& redirectUrl() const;
  // The full URL the browser asked for, or nothing when `timeout` passes.
  std::optional<std::string> waitForRedirect(std::chrono::seconds timeout);
  // Answers the held browser request with a page that says whether the
  // sign-in worked, and `detail`.
  void complete(bool succeeded, const std::string& detail);

 private:
  class Impl;
  explicit LoopbackRedirectListener(std::unique_ptr<Impl> impl);

  std::unique_ptr<Impl> impl_;
};

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_LOOPBACK_REDIRECT_LISTENER_H_
