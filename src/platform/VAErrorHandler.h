// Where internal failures that have no caller to return them to are
// reported: a credential record that could not be saved or read, a failed
// passcode-store operation, an insecure server URL.
#ifndef VELMOR_PLATFORM_VA_ERROR_HANDLER_H_
#define VELMOR_PLATFORM_VA_ERROR_HANDLER_H_

#include <cstdint>
#include <string>

#include "velmor/Error.h"
#include "velmor/Exception.h"

namespace velmor {

// Turns a failure into one line of text and signals it. The line always goes
// to the shared logger at the error level (1). While a debugger is attached
// it also goes to the console when the logger has no delegate, and to the
// application's DebugNotice handler under the title "Error".
//
// Stateless; callable from any thread. Never throws and never fails: a
// failing logger delegate, console or notice handler is ignored, and the
// caller carries on as it would have without the report.
class VAErrorHandler final {
 public:
  VAErrorHandler() = delete;

  // "Error: '<status>'".
  static void handleOSError(std::int32_t status) noexcept;
  // "Error: <status>, '<keychain message>' in <call>".
  static void handleKeychainServiceError(const std::string& call, std::int32_t status) noexcept;
  // The error's description, "(null)" when it has none.
  static void handleError(const Error& error) noexcept;
  // "Exception name: '<name>' reason: '<reason>'".
  static void handleException(const Exception& exception) noexcept;
  static void signalError(const std::string& text) noexcept;
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_VA_ERROR_HANDLER_H_
