// The entry line of the client's sign-in and code-exchange calls.
#ifndef VELMOR_CLIENT_SIGN_IN_LOG_LINE_H_
#define VELMOR_CLIENT_SIGN_IN_LOG_LINE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "support/Format.h"
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor {

// These calls carry a secret — a password, an authorization code or the
// redirect URL that holds one — and build their own line instead of using
// logMethod. The logger is asked once, at construction, whether the
// sensitive level is loggable: if so the secret shows in clear and the line
// goes out at that level; otherwise it is starred and the line goes out at
// the info level. A line is written only when that level passes the
// threshold. One object per call, on the calling thread.
class SignInLogLine final {
 public:
  SignInLogLine();

  bool showsSecrets() const { return showsSecrets_; }
  std::int64_t logLevel() const;

  // The password as the line shows it: in clear, "***", or "" when absent.
  std::optional<std::string> password(const std::optional<std::string>& password) const;
  // A code or redirect URL: in clear, "**...**", or "" when absent.
  std::optional<std::string> secret(const std::optional<std::string>& secret) const;

  template <typename... Args>
  void write(std::string_view format, const Args&... args) const {
    VelmorAuthorizationLogger& logger = VelmorAuthorizationLogger::sharedLogger();
    if (!logger.isLoggable(logLevel())) return;
    logger.log(stringWithFormat(format, args...), logLevel());
  }

 private:
  std::optional<std::string> starred(const std::optional<std::string>& value,
                                     const char* stars) const;

  const bool showsSecrets_;
};

}  // namespace velmor

#endif  // VELMOR_CLIENT_SIGN_IN_LOG_LINE_H_
