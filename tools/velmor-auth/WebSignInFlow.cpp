#include "WebSignInFlow.h"

#include <memory>
#include <thread>
#include <utility>

#include "OutputPrinter.h"
#include "PastedRedirectReader.h"
#include "ToolError.h"
#include "velmor/LoopbackRedirectListener.h"

namespace velmor::tool {

namespace {

constexpr std::int64_t kTimedOut = -1001;

ErrorRef timedOut(std::chrono::seconds timeout) {
  return toolError(kToolErrorTimedOut, "No redirect came back from the browser within " +
                                           std::to_string(timeout.count()) + " s");
}

}  // namespace

WebSignInFlow::WebSignInFlow(VelmorAuthorizationClient& client, Url signInUrl,
                             std::optional<Scopes> scopes, std::chrono::seconds timeout)
    : client_(client),
      signInUrl_(std::move(signInUrl)),
      scopes_(std::move(scopes)),
      timeout_(timeout) {}

void WebSignInFlow::acceptPastedRedirect(int fd, RejectLine rejectLine) {
  pasteFd_ = fd;
  rejectLine_ = std::move(rejectLine);
}

WebSignInFlow::Outcome WebSignInFlow::run(const OpenPage& openPage) {
  Outcome outcome;
  ErrorRef problem;
  std::unique_ptr<LoopbackRedirectListener> listener = LoopbackRedirectListener::start(&problem);
  if (!listener) {
    outcome.error = toolError(kToolErrorListener, OutputPrinter::describe(*problem).value_or(""));
    return outcome;
  }
  const std::string redirectUrl = listener->redirectUrl().absoluteString();
  const std::optional<HttpRequest> request = client_.createWebSignInRequestWithBaseUrl(
      signInUrl_, listener->redirectUrl(), scopes_, std::nullopt, &outcome.error);
  if (!request) return outcome;

  std::unique_ptr<PastedRedirectReader> pasted;
  if (pasteFd_) {
    pasted = std::make_unique<PastedRedirectReader>(
        *pasteFd_, redirectUrl,
        [&listener](const Url& redirect) { listener->deliverRedirect(redirect); }, rejectLine_);
  }
  std::thread opener(openPage, Page{request->url.absoluteString(), redirectUrl});
  outcome.scopes = listener->waitForSignIn(client_, timeout_, &outcome.error);
  if (outcome.error && outcome.error->domain() == "NSURLErrorDomain" &&
      outcome.error->code() == kTimedOut) {
    outcome.error = timedOut(timeout_);
  }
  pasted.reset();
  // The opener may be a browser stand-in that waits for the listener's page.
  listener.reset();
  opener.join();
  return outcome;
}

}  // namespace velmor::tool
