// The entry line of the client's sign-in and code-exchange calls.
#ifndef VELMOR_CLIENT_SIGN_IN_LOG_LINE_H_
#define VELMOR_CLIENT_SIGN_IN_LOG_LINE_H_

#include <cstdint>
#include <string_view>

#include "client/ClientLogText.h"
#include "support/Format.h"
#include "support/LogSecret.h"
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor {

// These calls carry a secret — a password, an authorization code or the
// redirect URL that holds one — and build their own line instead of using
// logMethod. The logger is asked once, at construction, whether secrets are
// shown (LogSecret::shownInClear): if so the secret shows in clear and the
// line goes out at the sensitive level; otherwise it is starred and the line
// goes out at the info level. A line is written, and its arguments turned
// into text, only when that level passes the threshold. One object per
// call, on the calling thread.
class SignInLogLine final {
 public:
  SignInLogLine();

  bool showsSecrets() const { return showsSecrets_; }
  std::int64_t logLevel() const;

  // Fills `format` with the arguments: secrets as LogSecret shows them,
  // objects by their ClientLogText, anything else as it is.
  template <typename... Args>
  void write(std::string_view format, const Args&... args) const {
    VelmorAuthorizationLogger& logger = VelmorAuthorizationLogger::sharedLogger();
    if (!logger.isLoggable(logLevel())) return;
    logger.log(stringWithFormat(format, shown(args)...), logLevel());
  }

 private:
  template <typename T>
  auto shown(const T& value) const {
    if constexpr (std::is_same_v<T, LogSecret>) {
      return value.text(showsSecrets_);
    } else if constexpr (requires { ClientLogText::of(value); }) {
      return ClientLogText::of(value);
    } else {
      return FormatArg(value);
    }
  }

  const bool showsSecrets_;
};

}  // namespace velmor

#endif  // VELMOR_CLIENT_SIGN_IN_LOG_LINE_H_
