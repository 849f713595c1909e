// Opens a URL in the user's browser.
#ifndef VELMOR_TOOLS_VELMOR_AUTH_BROWSER_LAUNCHER_H_
#define VELMOR_TOOLS_VELMOR_AUTH_BROWSER_LAUNCHER_H_

#include <string>

namespace velmor::tool {

class BrowserLauncher final {
 public:
  BrowserLauncher() = delete;

  // Starts `xdg-open URL` (no shell in between) and returns without waiting
  // for it, since it may last as long as the browser does. False when it
  // cannot be started.
  static bool open(const std::string& url);
};

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_BROWSER_LAUNCHER_H_
