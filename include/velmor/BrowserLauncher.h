// Opens a web page in the user's browser.
#ifndef VELMOR_BROWSER_LAUNCHER_H_
#define VELMOR_BROWSER_LAUNCHER_H_

#include "velmor/Error.h"
#include "velmor/Export.h"
#include "velmor/Url.h"

namespace velmor {

// For applications that show the web sign-in page in the user's own browser
// rather than a browser view of their own (see LoopbackRedirectListener).
// Stateless; any thread.
class VELMOR_EXPORT BrowserLauncher final {
 public:
  BrowserLauncher() = delete;

  // Runs "xdg-open <url>", the desktop's choice of browser, found on PATH
  // and started directly: no shell stands in between, so nothing in the URL
  // is ever read as a command. It runs in a session of its own (an
  // interrupted application does not take the browser with it), with
  // standard input and output on /dev/null and standard error shared, where
  // xdg-open says why it found no browser. Returns once it has started,
  // without waiting for it, since it may last as long as the browser does;
  // it is reaped in the background.
  //
  // False, with `error` set when given, for a URL that is not http or https
  // ("NSURLErrorDomain" -1002, nothing started) and when xdg-open cannot be
  // started ("NSPOSIXErrorDomain" with the errno value: ENOENT when it is
  // not installed). That it started does not mean a browser showed the
  // page: over SSH, say, there may be none.
  static bool openUrl(const Url& url, ErrorRef* error);
};

}  // namespace velmor

#endif  // VELMOR_BROWSER_LAUNCHER_H_
