#include "support/VAErrorHandler.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "testing/FakeProcessEnvironment.h"
#include "testing/ScopedProcessEnvironment.h"
#include "velmor/DebugNotice.h"
#include "velmor/VelmorAuthorizationError.h"
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor {
namespace {

using Entry = std::pair<std::string, std::int64_t>;
using Notice = std::pair<std::string, std::string>;

class RecordingDelegate final : public VelmorAuthorizationLoggerDelegate {
 public:
  void velmorAuthorizationLoggerLog(VelmorAuthorizationLogger&, const std::string& message,
                                    std::int64_t logLevel) override {
    if (throwing) throw std::runtime_error("delegate failed");
    entries.emplace_back(message, logLevel);
  }
  std::vector<Entry> entries;
  bool throwing = false;
};

class VAErrorHandlerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    DebugNotice::setHandler([this](const std::string& title, const std::string& message) {
      if (noticeThrows_) throw std::runtime_error("handler failed");
      notices_.emplace_back(title, message);
    });
  }
  void TearDown() override {
    logger_.setLogLevel(savedLevel_);
    logger_.setDelegate(savedDelegate_);
    DebugNotice::setHandler(nullptr);
  }

  void useLogger(std::int64_t level, VelmorAuthorizationLoggerDelegate* delegate) {
    logger_.setLogLevel(level);
    logger_.setDelegate(delegate);
  }

  VelmorAuthorizationLogger& logger_ = VelmorAuthorizationLogger::sharedLogger();
  const std::int64_t savedLevel_ = logger_.logLevel();
  VelmorAuthorizationLoggerDelegate* const savedDelegate_ = logger_.delegate();
  test::FakeProcessEnvironment environment_;
  test::ScopedProcessEnvironment scope_{environment_};
  RecordingDelegate delegate_;
  std::vector<Notice> notices_;
  bool noticeThrows_ = false;
};

TEST_F(VAErrorHandlerTest, WithoutDebuggerItOnlyLogsAtTheErrorLevel) {
  useLogger(0, &delegate_);
  VAErrorHandler::signalError("lost");
  EXPECT_TRUE(delegate_.entries.empty());

  useLogger(1, &delegate_);
  VAErrorHandler::signalError("saved nothing");
  EXPECT_EQ(delegate_.entries, (std::vector<Entry>{{"ERROR\tsaved nothing", 1}}));
  EXPECT_EQ(environment_.console(), "");
  EXPECT_TRUE(notices_.empty());
}

TEST_F(VAErrorHandlerTest, DebuggerWithoutDelegateUsesConsoleAndNotice) {
  environment_.setDebuggerAttached(true);
  useLogger(5, nullptr);
  VAErrorHandler::signalError("Insecure URL provided as parameter");
  EXPECT_EQ(environment_.console(), "Insecure URL provided as parameter\n");
  EXPECT_EQ(notices_, (std::vector<Notice>{{"Error", "Insecure URL provided as parameter"}}));

  DebugNotice::setHandler(nullptr);
  VAErrorHandler::signalError("second");
  EXPECT_EQ(environment_.console(), "Insecure URL provided as parameter\nsecond\n");
  EXPECT_EQ(notices_.size(), 1u);
}

TEST_F(VAErrorHandlerTest, DebuggerWithDelegateLogsThroughTheLoggerThreshold) {
  environment_.setDebuggerAttached(true);
  useLogger(1, &delegate_);
  VAErrorHandler::signalError("first");
  // The threshold still holds: a logger kept at 0 receives nothing.
  useLogger(0, &delegate_);
  VAErrorHandler::signalError("second");

  EXPECT_EQ(delegate_.entries, (std::vector<Entry>{{"ERROR\tfirst", 1}}));
  EXPECT_EQ(environment_.console(), "");
  EXPECT_EQ(notices_, (std::vector<Notice>{{"Error", "first"}, {"Error", "second"}}));
}

TEST_F(VAErrorHandlerTest, EachKindOfFailureHasItsText) {
  useLogger(1, &delegate_);
  struct Case {
    std::function<void()> report;
    const char* text;
  };
  const Case cases[] = {
      {[] { VAErrorHandler::handleException(RangeException("bad index")); },
       "ERROR\tException name: 'NSRangeException' reason: 'bad index'"},
      {[] { VAErrorHandler::handleOSError(-50); }, "ERROR\tError: '-50'"},
      {[] { VAErrorHandler::handleKeychainServiceError("SecKeychainItemDelete", -25300); },
       "ERROR\tError: -25300, 'The specified item could not be found in the keychain.' in "
       "SecKeychainItemDelete"},
      {[] {
         VAErrorHandler::handleError(
             VelmorAuthorizationError(AuthorizationClientErrorDomain, 2, std::nullopt));
       },
       "ERROR\tInsecure URL provided as parameter"},
      {[] {
         VAErrorHandler::handleError(
             VelmorAuthorizationError(AuthorizationClientErrorDomain, 4, std::nullopt));
       },
       "ERROR\t(null)"},
      {[] { VAErrorHandler::handleError(Error("Missing Salt", -1)); },
       "ERROR\tError Domain=Missing Salt Code=-1 \"The operation couldn’t be completed. (Missing "
       "Salt error -1.)\""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    delegate_.entries.clear();
    c.report();
    EXPECT_EQ(delegate_.entries, (std::vector<Entry>{{c.text, 1}}));
  }
}

TEST_F(VAErrorHandlerTest, FailingOutletsAreContained) {
  useLogger(1, &delegate_);
  delegate_.throwing = true;
  noticeThrows_ = true;
  environment_.setThrowing(true);
  // A debugger test that fails counts as no debugger: only the logger is tried.
  EXPECT_NO_THROW(VAErrorHandler::signalError("a"));
  EXPECT_EQ(environment_.debuggerQueries(), 1u);

  environment_.setThrowing(false);
  environment_.setDebuggerAttached(true);
  useLogger(1, nullptr);
  EXPECT_NO_THROW(VAErrorHandler::handleOSError(-4));

  environment_.setConsoleBroken(true);
  noticeThrows_ = false;
  VAErrorHandler::signalError("b");
  EXPECT_EQ(environment_.droppedWrites(), 1u);
  // A broken console does not keep the notice from being shown.
  EXPECT_EQ(notices_, (std::vector<Notice>{{"Error", "b"}}));
}

}  // namespace
}  // namespace velmor
