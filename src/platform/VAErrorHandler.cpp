#include "platform/VAErrorHandler.h"

#include <utility>

#include "platform/ProcessEnvironment.h"
#include "support/Format.h"
#include "support/KeychainStatus.h"
#include "velmor/DebugNotice.h"
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor {

namespace {

// Each outlet is tried on its own, so that one failing (a throwing logger
// delegate, say) does not silence the others.
template <typename Action>
void contained(Action&& action) noexcept {
  try {
    std::forward<Action>(action)();
  } catch (...) {
  }
}

void signalFormatted(auto&& makeText) noexcept {
  contained([&] { VAErrorHandler::signalError(makeText()); });
}

}  // namespace

void VAErrorHandler::handleOSError(std::int32_t status) noexcept {
  signalFormatted([&] { return stringWithFormat("Error: '%ld'", status); });
}

void VAErrorHandler::handleKeychainServiceError(const std::string& call,
                                                std::int32_t status) noexcept {
  signalFormatted([&] {
    return stringWithFormat("Error: %ld, '%@' in %@", status, KeychainStatus::errorMessage(status),
                            call);
  });
}

void VAErrorHandler::handleError(const Error& error) noexcept {
  signalFormatted([&] { return stringWithFormat("%@", error.description()); });
}

void VAErrorHandler::handleException(const Exception& exception) noexcept {
  signalFormatted([&] {
    return stringWithFormat("Exception name: '%@' reason: '%@'", exception.name(),
                            exception.reason());
  });
}

void VAErrorHandler::signalError(const std::string& text) noexcept {
  VelmorAuthorizationLogger& logger = VelmorAuthorizationLogger::sharedLogger();
  ProcessEnvironment& environment = ProcessEnvironment::defaultEnvironment();
  bool attached = false;
  contained([&] { attached = environment.isDebuggerAttached(); });
  // Through the logger in both cases, so its threshold holds: an
  // application that keeps the logger at 0 gets nothing, errors included.
  // Only a developer with a debugger and no logger delegate gets the console.
  if (!attached || logger.delegate() != nullptr) {
    contained([&] { logger.log(text, VelmorAuthorizationLogger::kLevelError); });
  } else {
    contained([&] { environment.writeToConsole(stringWithFormat("%@\n", text)); });
  }
  if (attached) contained([&] { DebugNotice::show("Error", text); });
}

}  // namespace velmor
