// The library's one logging channel. The library writes nowhere by itself:
// every message that passes the threshold goes to the application's delegate.
#ifndef VELMOR_VELMOR_AUTHORIZATION_LOGGER_H_
#define VELMOR_VELMOR_AUTHORIZATION_LOGGER_H_

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "velmor/Export.h"

namespace velmor {

class VelmorAuthorizationLogger;

// Receives log messages. Called on whatever thread logged: the application's
// own threads, the library's queue threads and its timer thread, possibly
// several at once. Implementations must be thread-safe.
class VELMOR_EXPORT VelmorAuthorizationLoggerDelegate {
 public:
  virtual ~VelmorAuthorizationLoggerDelegate() = default;

  // `message` is "<LABEL>\t<text>" with LABEL one of "ERROR" (level 1),
  // "INFO" (3), "SENSITIVE" (5) or "UNKNOWN". The default does nothing.
  virtual void velmorAuthorizationLoggerLog(VelmorAuthorizationLogger& logger,
                                            const std::string& message, std::int64_t logLevel) {
    (void)logger;
    (void)message;
    (void)logLevel;
  }
};

// One argument of a logged method call, with its type tag:
//   "@"  an object, shown by its description ("(null)" when absent);
//   "^@", "^I", "^Q"  a pointer to an object or an unsigned 32/64-bit
//        integer (an out-parameter), shown as "0x" and hexadecimal;
//   "I", "Q"  an unsigned integer, shown as a signed 64-bit decimal;
//   "B"  a boolean, shown as YES or NO;
//   "c"  a yes/no character, shown as its number (1 or 0);
//   "@?" a completion callback, shown by its description.
// Any other tag makes `logMethod` throw.
struct VELMOR_EXPORT LogArgument {
  std::string typeTag;
  std::optional<std::string> text;  // "@", "@?"
  std::uint64_t number = 0;         // "I", "Q", "B", "c"
  const void* pointer = nullptr;    // "^@", "^I", "^Q"

  static LogArgument object(std::optional<std::string> description);
  static LogArgument pointerTo(std::string typeTag, const void* pointer);
  static LogArgument unsignedInteger(std::uint64_t value);
  static LogArgument boolean(bool value);
  static LogArgument yesNo(signed char value);
  static LogArgument callback(bool isSet);
};

// The process-wide logger. Its threshold starts at 0, so nothing is written
// until the application raises it; a message of level L is written when
// logLevel() >= L. Threshold and delegate may be changed at any time from any
// thread; the change applies to the next message.
class VELMOR_EXPORT VelmorAuthorizationLogger final {
 public:
  static constexpr std::int64_t kLevelError = 1;
  static constexpr std::int64_t kLevelInfo = 3;
  static constexpr std::int64_t kLevelSensitive = 5;

  // The single instance, made on first use and never destroyed.
  static VelmorAuthorizationLogger& sharedLogger();

  VelmorAuthorizationLogger(const VelmorAuthorizationLogger&) = delete;
  VelmorAuthorizationLogger& operator=(const VelmorAuthorizationLogger&) = delete;

  bool isLoggable(std::int64_t logLevel) const;
  void log(std::string_view message, std::int64_t logLevel);

  // Logs a method call at level 3 as "-[Class first: 'a' second: 'b']":
  // the name is split on ":" and each argument follows its keyword. The
  // arguments are not looked at unless level 3 is loggable.
  // Throws GenericException("Unexpected parameter type") for an unknown
  // type tag, after writing "Unknown type: '<tag>' in '<name>'" to standard
  // error: that is a programming error in the caller.
  void logMethod(std::string_view methodName, const std::vector<LogArgument>& arguments);

  std::int64_t logLevel() const { return logLevel_.load(std::memory_order_relaxed); }
  void setLogLevel(std::int64_t logLevel) { logLevel_.store(logLevel, std::memory_order_relaxed); }

  // Not owned: clear it before the delegate goes away.
  VelmorAuthorizationLoggerDelegate* delegate() const { return delegate_.load(); }
  void setDelegate(VelmorAuthorizationLoggerDelegate* delegate) { delegate_.store(delegate); }

 private:
  VelmorAuthorizationLogger() = default;

  std::atomic<std::int64_t> logLevel_{0};
  std::atomic<VelmorAuthorizationLoggerDelegate*> delegate_{nullptr};
};

}  // namespace velmor

#endif  // VELMOR_VELMOR_AUTHORIZATION_LOGGER_H_
