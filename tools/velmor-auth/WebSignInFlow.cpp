#include "WebSignInFlow.h"

#include <memory>
#include <thread>
#include <utility>

#include "LoopbackRedirectListener.h"
#include "OutputPrinter.h"
#include "ToolError.h"

namespace velmor::tool {

WebSignInFlow::WebSignInFlow(VelmorAuthorizationClient& client, Url signInUrl,
                             std::optional<Scopes> scopes, std::chrono::seconds timeout)
    : client_(client),
      signInUrl_(std::move(signInUrl)),
      scopes_(std::move(scopes)),
      timeout_(timeout) {}

WebSignInFlow::Outcome WebSignInFlow::run(const OpenUrl& openUrl) {
  Outcome outcome;
  std::string problem;
  std::unique_ptr<LoopbackRedirectListener> listener = LoopbackRedirectListener::start(&problem);
  if (!listener) {
    outcome.error = toolError(kToolErrorListener, problem);
    return outcome;
  }
  const std::optional<HttpRequest> request = client_.createWebSignInRequestWithBaseUrl(
      signInUrl_, Url::withString(listener->redirectUrl()), scopes_, std::nullopt, &outcome.error);
  if (!request) return outcome;

  std::thread opener(openUrl, request->url.absoluteString());
  const std::optional<std::string> redirect = listener->waitForRedirect(timeout_);
  if (!redirect) {
    outcome.error = toolError(kToolErrorTimedOut, "No redirect came back from the browser within " +
                                                      std::to_string(timeout_.count()) + " s");
    listener->complete(false, "velmor-auth stopped waiting.");
  } else if (const std::optional<Url> responseUrl = Url::withString(*redirect)) {
    outcome.scopes = client_.signInWithWebAuthorizationResponse(responseUrl, &outcome.error);
    const std::optional<std::string> description =
        outcome.error ? OutputPrinter::describe(*outcome.error) : std::nullopt;
    listener->complete(!outcome.error, outcome.error
                                           ? description.value_or("The sign-in failed.")
                                           : "You are signed in as " +
                                                 client_.username().value_or("this client") + ".");
  } else {
    outcome.error = toolError(kToolErrorListener, "The browser came back to an unreadable URL");
    listener->complete(false, "The redirect could not be read.");
  }
  // The opener may be a browser stand-in that waits for the page above.
  listener.reset();
  opener.join();
  return outcome;
}

}  // namespace velmor::tool
