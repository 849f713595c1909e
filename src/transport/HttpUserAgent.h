// The "User-Agent" text of every request the library sends to the
// authorization server.
#ifndef VELMOR_TRANSPORT_HTTP_USER_AGENT_H_
#define VELMOR_TRANSPORT_HTTP_USER_AGENT_H_

#include <string>
#include <utility>

namespace velmor {

// "com.velmor.Authorization/<library version>; <application id>/<application
// version>; <OS name>/<OS release>", for example
// "com.velmor.Authorization/1.1.4 (13); com.example.notes/2.4; Linux/6.1.0".
// Without ApplicationInfo, or with an empty identifier (a unit-test host),
// the application part is "UnitTest/?"; an empty version reads "(null)".
//
// One shared instance, made on first use and read-only afterwards, so the
// text is fixed for the life of the process: set ApplicationInfo before the
// first request. Safe on any thread.
class HttpUserAgent final {
 public:
  // The shared text.
  static const std::string& text();
  // The text as it would be made now, without touching the shared one.
  static std::string generateUserAgentText();

  // An agent with a text of the caller's; the library uses only the shared one.
  explicit HttpUserAgent(std::string userAgentText) : userAgentText_(std::move(userAgentText)) {}

  const std::string& userAgentText() const { return userAgentText_; }

 private:
  static const HttpUserAgent& sharedUserAgent();

  std::string userAgentText_;
};

}  // namespace velmor

#endif  // VELMOR_TRANSPORT_HTTP_USER_AGENT_H_
