#include "velmor/VelmorAuthorizationLogger.h"

#include <gtest/gtest.h>

#include "testing/RecordingLoggerDelegate.h"
#include "velmor/Exception.h"

namespace velmor {
namespace {

using test::RecordingLoggerDelegate;
using test::ScopedLogger;

TEST(VelmorAuthorizationLogger, WritesWhatPassesTheThresholdWithItsLabel) {
  struct Case {
    std::int64_t threshold;
    std::int64_t level;
    const char* expected;  // nullptr: dropped
  };
  const Case cases[] = {
      {0, 1, nullptr},
      {3, 5, nullptr},
      {3, 3, "INFO\tmessage"},
      {3, 1, "ERROR\tmessage"},
      {5, 5, "SENSITIVE\tmessage"},
      {4, 4, "UNKNOWN\tmessage"},
      {2, 2, "UNKNOWN\tmessage"},
      {-1, 0, nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.threshold << "/" << c.level);
    RecordingLoggerDelegate delegate;
    ScopedLogger scope(c.threshold, &delegate);
    VelmorAuthorizationLogger::sharedLogger().log("message", c.level);
    auto entries = delegate.entries();
    if (c.expected == nullptr) {
      EXPECT_TRUE(entries.empty());
    } else {
      ASSERT_EQ(entries.size(), 1u);
      EXPECT_EQ(entries[0].message, c.expected);
      EXPECT_EQ(entries[0].logLevel, c.level);
    }
  }
}

TEST(VelmorAuthorizationLogger, DropsMessagesWithoutADelegateOrItsOperation) {
  ScopedLogger noDelegate(5, nullptr);
  VelmorAuthorizationLogger::sharedLogger().log("nobody listens", 1);
  VelmorAuthorizationLoggerDelegate silent;  // does not implement the operation
  ScopedLogger scope(5, &silent);
  VelmorAuthorizationLogger::sharedLogger().log("still nobody", 1);
}

TEST(VelmorAuthorizationLogger, LogsMethodCallsByTypeTag) {
  int target = 0;
  const auto pointerText = [&] {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "0x%lx",
                  static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(&target)));
    return std::string(buffer);
  };
  struct Case {
    const char* name;
    std::vector<LogArgument> arguments;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"-[VelmorAuthorizationClient signOut:]",
       {LogArgument::object("token")},
       "-[VelmorAuthorizationClient signOut: 'token']"},
      {"-[Client a:b:]",
       {LogArgument::object("x"), LogArgument::object(std::nullopt)},
       "-[Client a: 'x' b: '(null)']"},
      {"-[Client status]", {}, "-[Client status]"},
      {"-[C flag:other:]",
       {LogArgument::boolean(true), LogArgument::boolean(false)},
       "-[C flag: 'YES' other: 'NO']"},
      {"-[C yes:no:]", {LogArgument::yesNo(1), LogArgument::yesNo(0)}, "-[C yes: '1' no: '0']"},
      {"-[C count:]", {LogArgument::unsignedInteger(~0ull)}, "-[C count: '-1']"},
      {"-[C out:]", {LogArgument::pointerTo("^@", &target)}, "-[C out: '" + pointerText() + "']"},
      {"-[C completion:]", {LogArgument::callback(false)}, "-[C completion: '(null)']"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    RecordingLoggerDelegate delegate;
    ScopedLogger scope(3, &delegate);
    VelmorAuthorizationLogger::sharedLogger().logMethod(c.name, c.arguments);
    ASSERT_EQ(delegate.messages(), std::vector<std::string>{"INFO\t" + c.expected});
  }
}

TEST(VelmorAuthorizationLogger, RefusesUnknownTypeTagsOnlyWhenLogging) {
  LogArgument signedInteger;
  signedInteger.typeTag = "q";
  {
    ScopedLogger quiet(1, nullptr);
    EXPECT_NO_THROW(
        VelmorAuthorizationLogger::sharedLogger().logMethod("-[C n:]", {signedInteger}));
  }
  ScopedLogger scope(3, nullptr);
  try {
    VelmorAuthorizationLogger::sharedLogger().logMethod("-[C n:]", {signedInteger});
    FAIL() << "expected an exception";
  } catch (const Exception& e) {
    EXPECT_EQ(e.name(), "NSGenericException");
    EXPECT_EQ(e.reason(), "Unexpected parameter type");
  }
}

}  // namespace
}  // namespace velmor
