#include "client/SignInLogLine.h"

namespace velmor {

SignInLogLine::SignInLogLine() : showsSecrets_(LogSecret::shownInClear()) {}

std::int64_t SignInLogLine::logLevel() const {
  return showsSecrets_ ? VelmorAuthorizationLogger::kLevelSensitive
                       : VelmorAuthorizationLogger::kLevelInfo;
}

}  // namespace velmor
