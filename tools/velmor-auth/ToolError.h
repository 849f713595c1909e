// Errors the tool itself reports, beside the library's.
#ifndef VELMOR_TOOLS_VELMOR_AUTH_TOOL_ERROR_H_
#define VELMOR_TOOLS_VELMOR_AUTH_TOOL_ERROR_H_

#include <cstdint>
#include <string>

#include "velmor/Error.h"

namespace velmor::tool {

extern const char ToolErrorDomain[];  // "com.velmor.authorization.tool"

enum ToolErrorCode : std::int64_t {
  kToolErrorNotAuthorized = 1,   // no valid token to use
  kToolErrorRequestFailed = 2,   // a resource answered with an error status
  kToolErrorKeyFile = 3,         // the key file cannot be read or made
  kToolErrorWrongPasscode = 4,   // the store's passcode is wrong
  kToolErrorNothingSaved = 5,    // the store holds no value
  kToolErrorNotSaved = 6,        // the store did not take the value
  kToolErrorTimedOut = 7,        // no browser redirect in time
  kToolErrorServer = 8,          // the development server cannot start
  kToolErrorListener = 9,        // the redirect listener cannot start
  kToolErrorStoreUnusable = 10,  // the secret store cannot keep anything now
};

// A VelmorAuthorizationError in ToolErrorDomain whose description is `text`.
ErrorRef toolError(ToolErrorCode code, std::string text);

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_TOOL_ERROR_H_
