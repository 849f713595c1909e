// The library client the common options describe, for the client commands.
#ifndef VELMOR_TOOLS_VELMOR_AUTH_CLIENT_SESSION_H_
#define VELMOR_TOOLS_VELMOR_AUTH_CLIENT_SESSION_H_

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "CommandLine.h"
#include "OutputPrinter.h"
#include "velmor/Data.h"
#include "velmor/Url.h"
#include "velmor/VelmorAuthorizationClient.h"

namespace velmor::tool {

// Server URL from --server or VELMOR_SERVER, application token from
// --app-token, VELMOR_APP_TOKEN or the development server's default, the key
// from the key file (made on first use) and the slot from --slot.
class ClientSession final {
 public:
  using Date = std::chrono::system_clock::time_point;

  // A session, or nullptr after reporting why (exit status in `status`).
  static std::unique_ptr<ClientSession> open(const Invocation& invocation, OutputPrinter& out,
                                             int* status);
  ~ClientSession();

  VelmorAuthorizationClient& client() { return *client_; }
  const Url& serverUrl() const { return *serverUrl_; }

  // "state" and "stateName" members, and (with `withLine`) a line
  // "State: 3 (authorized)".
  void reportState(OutputPrinter& out, bool withLine = true);
  // "validUntil" {"accessToken", "refreshToken"} with UTC times (null when
  // absent), and a line for each.
  void reportValidity(OutputPrinter& out);

  // "activationRequired", "signInRequired", "authorized", "refreshRequired".
  static std::string stateName(AuthorizationState state);
  // "2024-05-01T12:00:00Z".
  static std::string utcText(Date date);

 private:
  ClientSession(Url serverUrl, std::string appToken, Data key, std::uint64_t slot);

  std::optional<Url> serverUrl_;
  std::unique_ptr<VelmorAuthorizationClient> client_;
};

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_CLIENT_SESSION_H_
