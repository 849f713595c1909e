// A web sign-in from start to end: the loopback listener, the sign-in URL
// for the browser, the redirect (or the address pasted in its place) and
// the code exchange.
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

// Used once, from one thread; the client must outlive it. Whether the
// request carries a proof key is the client's setting.
class WebSignInFlow final {
 public:
  using Scopes = VelmorAuthorizationClient::Scopes;

  // Where the browser must go, and the address it comes back to.
  struct Page {
    std::string signInUrl;
    std::string redirectUrl;
  };
  // Shows the sign-in page to the user (opens a browser, prints the URL, or
  // plays the browser itself). Runs on a thread of its own, so it may take
  // as long as it likes.
  using OpenPage = std::function<void(const Page& page)>;
  // Hears about a pasted line that is not the redirect, on the thread that
  // reads them.
  using RejectLine = std::function<void(const std::string& line)>;

  struct Outcome {
    std::optional<Scopes> scopes;
    ErrorRef error;
  };

  WebSignInFlow(VelmorAuthorizationClient& client, Url signInUrl, std::optional<Scopes> scopes,
                std::chrono::seconds timeout);

  // Also takes the redirect as a line on `fd` (standard input), whichever
  // comes first.
  void acceptPastedRedirect(int fd, RejectLine rejectLine);

  // The granted scopes, or the error: the listener's (tool error
  // kToolErrorListener), the request's, a timeout (kToolErrorTimedOut) or
  // the sign-in's own.
  Outcome run(const OpenPage& openPage);

 private:
  VelmorAuthorizationClient& client_;
  Url signInUrl_;
  std::optional<Scopes> scopes_;
  std::chrono::seconds timeout_;
  std::optional<int> pasteFd_;
  RejectLine rejectLine_;
};

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_WEB_SIGN_IN_FLOW_H_
