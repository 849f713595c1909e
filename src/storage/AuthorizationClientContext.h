// The line that tells the authorization server which machine and which user
// a registered client runs for.
#ifndef VELMOR_STORAGE_AUTHORIZATION_CLIENT_CONTEXT_H_
#define VELMOR_STORAGE_AUTHORIZATION_CLIENT_CONTEXT_H_

#include <optional>
#include <string>

#include "velmor/Error.h"
#include "velmor/Value.h"

namespace velmor {

// Builds the client context from SystemIdentity::defaultIdentity(), asked
// afresh at every call, and remembers the last line sent in
// "AuthorizationClientContext.plist" in the application's data directory
// (DirectoryUtility) so that a renamed machine or another user can be
// noticed. Holds no state; callable from any thread, though two processes
// remembering at once may both report a change.
class AuthorizationClientContext final {
 public:
  static constexpr char kFileName[] = "AuthorizationClientContext.plist";
  static constexpr char kContextKey[] = "Context";

  AuthorizationClientContext() = default;

  // "DeviceName", "Model" and "User", each present when the system knows it.
  Dictionary properties() const;

  // Device Name: "<name>" | Model: "<model>" | User: "<user>", with ":" and
  // "|" removed from the values and each cut to 100 UTF-16 units. The name
  // is cut before it is cleaned, the model and user after. An unknown value
  // reads (null).
  std::string description() const;

  static std::optional<std::string> hardwareModel();

  // The current line. `*changed` (when given) becomes true when the line
  // differs from the remembered one, or none could be read, and the new
  // line was then written (a failed write is not reported and counts as a
  // change). When finding the directory sets an error, or `*error` already
  // holds one on entry, the file is left alone and nothing counts as
  // changed; without an error location, directory failures are noticed
  // all the same.
  static std::string generateAndSaveIfNeeded(bool* changed, ErrorRef* error);
};

}  // namespace velmor

#endif  // VELMOR_STORAGE_AUTHORIZATION_CLIENT_CONTEXT_H_
