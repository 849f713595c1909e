// A secret on its way into a log line.
#ifndef VELMOR_SUPPORT_LOG_SECRET_H_
#define VELMOR_SUPPORT_LOG_SECRET_H_

#include <optional>
#include <string>
#include <variant>

#include "velmor/Data.h"
#include "velmor/Url.h"
#include "velmor/Value.h"

namespace velmor {

// The one place that decides what a log line shows for a secret argument:
// the secret itself only while the sensitive level (5) is loggable,
// otherwise its kind's stars. The value is turned into text only when it is
// shown, so a starred line (or one not written at all) makes no copy of it.
//
// Refers to the caller's value, which must outlive it: make it in the
// argument list of the call that logs. Cheap to make; thread-safe.
class LogSecret final {
 public:
  // The kinds, with what stands in their place below the sensitive level.
  enum class Kind {
    kEncryptionKey,      // "***"
    kPassword,           // "***"
    kPasscode,           // "***", also for no passcode
    kAuthorizationCode,  // "**...**"
    kCodeVerifier,       // "**...**": it redeems the code
    kRedirectUrl,        // "**...**": it carries the code
    kToken,              // "***"
    kApplicationObject,  // "<redacted>"
  };

  LogSecret(Kind kind, const std::string& text) : kind_(kind), value_(&text) {}
  LogSecret(Kind kind, const std::optional<std::string>& text) : kind_(kind), value_(&text) {}
  // Shown in clear as "<01020304 05>".
  LogSecret(Kind kind, const std::optional<Data>& bytes) : kind_(kind), value_(&bytes) {}
  LogSecret(Kind kind, const std::optional<Url>& url) : kind_(kind), value_(&url) {}
  LogSecret(Kind kind, const Value& object) : kind_(kind), value_(&object) {}

  // Whether lines show secrets in clear now. A line asks once and passes
  // the answer to every secret it shows, so that all agree.
  static bool shownInClear();

  // With `inClear`, the value's text (nothing for an absent value, which a
  // line prints as "(null)"); otherwise the kind's stars, or "" for an
  // absent password, key, code, URL or token.
  std::optional<std::string> text(bool inClear) const;

 private:
  std::optional<std::string> clearText() const;
  bool isPresent() const;

  Kind kind_;
  std::variant<const std::string*, const std::optional<std::string>*, const std::optional<Data>*,
               const std::optional<Url>*, const Value*>
      value_;
};

}  // namespace velmor

#endif  // VELMOR_SUPPORT_LOG_SECRET_H_
