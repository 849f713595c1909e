// Where the user's browser comes back to at the end of a web sign-in.
#ifndef VELMOR_LOOPBACK_REDIRECT_LISTENER_H_
#define VELMOR_LOOPBACK_REDIRECT_LISTENER_H_

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "velmor/Error.h"
#include "velmor/Export.h"
#include "velmor/Url.h"

namespace velmor {

class VelmorAuthorizationClient;

// For applications that open the sign-in page in the user's own browser
// (BrowserLauncher) instead of a browser view of their own: a small HTTP
// server on 127.0.0.1, at a port the system picks, whose redirectUrl() the
// application names in createWebSignInRequestWithBaseUrl. The URL holds the
// IP literal, never "localhost", which may resolve to ::1 where nothing
// listens. Nothing outside the machine can reach it.
//
//   ErrorRef error;
//   auto listener = LoopbackRedirectListener::start(&error);
//   auto page = client.createWebSignInRequestWithBaseUrl(
//       signInUrl, listener->redirectUrl(), scopes, std::nullopt, &error);
//   BrowserLauncher::openUrl(page->url, &error);
//   auto granted = listener->waitForSignIn(client, std::chrono::minutes(5), &error);
//
// Only a GET of the redirect URL's path, addressed to the redirect URL's
// host and port, counts; anything else (the browser asking for
// "/favicon.ico", say) is answered 404 and changes nothing. The first
// request that counts is the redirect: waitForSignIn hands it to the
// client, whose state check (letter case aside, the state must be the one
// its last sign-in request carried) is the only judge of it, and then
// answers the browser, held open until then, with a small page saying that
// the user is signed in or why not. Later requests are told that the
// sign-in was handled already. One listener serves one sign-in.
//
// Every member may be called from any thread; waits run on the caller's
// thread, which the client's sign-in then also runs on (so not on one of
// the client's completion queues). The destructor answers a browser still
// held with a page saying the application stopped waiting, and stops the
// server; it must not run while another thread waits (cancel() first and
// let that wait return). Failures are returned, never thrown.
class VELMOR_EXPORT LoopbackRedirectListener final {
 public:
  using Scopes = std::vector<std::string>;

  static constexpr char kDefaultPath[] = "/callback";

  // A listening server for kDefaultPath, or for `path` (which must start
  // with "/" and may not hold "?" or "#"; InvalidArgumentException
  // otherwise). On failure nothing, with `error` (when given) set to an
  // Error in "NSPOSIXErrorDomain" carrying the errno value.
  static std::unique_ptr<LoopbackRedirectListener> start(ErrorRef* error);
  static std::unique_ptr<LoopbackRedirectListener> start(const std::string& path, ErrorRef* error);
  ~LoopbackRedirectListener();

  LoopbackRedirectListener(const LoopbackRedirectListener&) = delete;
  LoopbackRedirectListener& operator=(const LoopbackRedirectListener&) = delete;

  // "http://127.0.0.1:<port><path>".
  const Url& redirectUrl() const;

  // Waits up to `timeout` for the redirect, from the browser or
  // deliverRedirect(), and completes the sign-in with the client's
  // signInWithWebAuthorizationResponse. Returns the granted scopes, or
  // nothing with `error` (when given) set to
  // - the client's error, exactly as that call reports it;
  // - "NSURLErrorDomain" -1001 when the time runs out first; the listener
  //   goes on listening, and a later wait still gets the redirect;
  // - "NSURLErrorDomain" -999 once cancel() was called;
  // - client error 1 ("Invalid operation") when this listener's redirect
  //   was taken already.
  std::optional<Scopes> waitForSignIn(VelmorAuthorizationClient& client,
                                      std::chrono::milliseconds timeout, ErrorRef* error);

  // A redirect that reached the application some other way: pasted by a
  // user whose browser runs on another machine, say. It counts as the
  // browser's would, whichever comes first; later ones are ignored.
  void deliverRedirect(const Url& redirect);

  // Ends the current wait and every later one with -999, and tells a
  // browser still held that the application stopped waiting.
  void cancel();

 private:
  class VELMOR_NO_EXPORT Impl;
  VELMOR_NO_EXPORT explicit LoopbackRedirectListener(std::unique_ptr<Impl> impl);

  std::unique_ptr<Impl> impl_;
};

}  // namespace velmor

#endif  // VELMOR_LOOPBACK_REDIRECT_LISTENER_H_
