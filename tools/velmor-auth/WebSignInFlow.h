// A web sign-in from start to end: the loopback listener, the sign-in URL
// for the browser, the redirect and the code exchange.
#ifndef VELMOR_TOOLS_VELMOR_AUTH_WEB_SIGN_IN_FLOW_H_
#define VELMOR_TOOLS_VELMOR_AUTH_WEB_SIGN_IN_FLOW_H_

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "velmor/Error.h"
#include "velmor/Url.h"
#include "velmor/VelmorAuthorizationClient.h"

namespace velmor::tool {

// Used once, from one thread; the client must outlive it.
class WebSignInFlow final {
 public:
  using Scopes = VelmorAuthorizationClient::Scopes;
  // Shows the sign-in URL to the user (opens a browser, prints it, or
  // plays the browser itself). Runs on a thread of its own, so it may take
  // as long as it likes.
  using OpenUrl = std::function<void(const std::string& signInUrl)>;

  struct Outcome {
    std::optional<Scopes> scopes;
    ErrorRef error;
  };

  WebSignInFlow(VelmorAuthorizationClient& client, Url signInUrl, std::optional<Scopes> scopes,
                std::chrono::seconds timeout);

  // The granted scopes, or the error: the listener's, the request's, a
  // timeout (tool error kToolErrorTimedOut) or the sign-in's own.
  Outcome run(const OpenUrl& openUrl);

 private:
  VelmorAuthorizationClient& client_;
  Url signInUrl_;
  std::optional<Scopes> scopes_;
  std::chrono::seconds timeout_;
};

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_WEB_SIGN_IN_FLOW_H_
