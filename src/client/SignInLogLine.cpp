#include "client/SignInLogLine.h"

namespace velmor {

SignInLogLine::SignInLogLine()
    : showsSecrets_(VelmorAuthorizationLogger::sharedLogger().isLoggable(
          VelmorAuthorizationLogger::kLevelSensitive)) {}

std::int64_t SignInLogLine::logLevel() const {
  return showsSecrets_ ? VelmorAuthorizationLogger::kLevelSensitive
                       : VelmorAuthorizationLogger::kLevelInfo;
}

std::optional<std::string> SignInLogLine::password(
    const std::optional<std::string>& password) const {
  return starred(password, "***");
}

std::optional<std::string> SignInLogLine::secret(const std::optional<std::string>& secret) const {
  return starred(secret, "**...**");
}

std::optional<std::string> SignInLogLine::starred(const std::optional<std::string>& value,
                                                  const char* stars) const {
  if (showsSecrets_) return value;
  return std::string(value ? stars : "");
}

}  // namespace velmor
