// What the demo uses instead of a person at a browser: it loads the sign-in
// page, fills in the form, submits it and follows the redirect.
#ifndef VELMOR_TOOLS_VELMOR_AUTH_DEMO_BROWSER_H_
#define VELMOR_TOOLS_VELMOR_AUTH_DEMO_BROWSER_H_

#include <string>
#include <utility>

#include "velmor/Value.h"

namespace velmor::tool {

// Speaks through HttpClient::defaultClient(). Used from one thread.
class DemoBrowser final {
 public:
  DemoBrowser(std::string username, std::string password)
      : username_(std::move(username)), password_(std::move(password)) {}

  // Signs in on the page at `signInUrl`; remembers what happened.
  void signIn(const std::string& signInUrl);

  // "form posted, redirected to 127.0.0.1:<port>" or what went wrong.
  const std::string& report() const { return report_; }

  // The hidden fields of the page's form, HTML entities decoded.
  static Dictionary hiddenFields(const std::string& html);

 private:
  std::string username_;
  std::string password_;
  std::string report_;
};

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_DEMO_BROWSER_H_
