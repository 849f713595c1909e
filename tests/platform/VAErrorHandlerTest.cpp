#include "platform/VAErrorHandler.h"

#include <gtest/gtest.h>

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

using Lines = std::vector<std::pair<std::string, std::string>>;

class VAErrorHandlerTest : public ::testing::Test, public VelmorAuthorizationLoggerDelegate {
 protected:
  void SetUp() override {
    DebugNotice::setHandler([this](const std::string& title, const std::string& message) {
      if (throwing_) throw std::runtime_error("handler failed");
      notices_.emplace_back(title, message);
    });
  }
  void TearDown() override {
    logger_.setLogLevel(savedLevel_);
    logger_.setDelegate(savedDelegate_);
    DebugNotice::setHandler(nullptr);
  }
  void velmorAuthorizationLoggerLog(VelmorAuthorizationLogger&, const std::string& message,
                                    std::int64_t logLevel) override {
    if (throwing_) throw std::runtime_error("delegate failed");
    logged_.emplace_back(std::to_string(logLevel), message);
  }
  void useLogger(std::int64_t level, bool withDelegate) {
    logger_.setLogLevel(level);
    logger_.setDelegate(withDelegate ? this : nullptr);
  }

  VelmorAuthorizationLogger& logger_ = VelmorAuthorizationLogger::sharedLogger();
  const std::int64_t savedLevel_ = logger_.logLevel();
  VelmorAuthorizationLoggerDelegate* const savedDelegate_ = logger_.delegate();
  test::FakeProcessEnvironment environment_;
  test::ScopedProcessEnvironment scope_{environment_};
  Lines logged_;
  Lines notices_;
  bool throwing_ = false;
};

TEST_F(VAErrorHandlerTest, WithoutDebuggerItOnlyLogsAtTheErrorLevel) {
  useLogger(0, true);
  VAErrorHandler::signalError("lost");
  useLogger(1, true);
  VAErrorHandler::handleException(RangeException("bad index"));
  EXPECT_EQ(logged_,
            (Lines{{"1", "ERROR\tException name: 'NSRangeException' reason: 'bad index'"}}));
  EXPECT_EQ(environment_.console(), "");
  EXPECT_TRUE(notices_.empty());
}

TEST_F(VAErrorHandlerTest, DebuggerWithoutDelegateUsesConsoleAndNotice) {
  environment_.setDebuggerAttached(true);
  useLogger(5, false);
  VAErrorHandler::handleError(VelmorAuthorizationError(AuthorizationClientErrorDomain, 2, {}));
  DebugNotice::setHandler(nullptr);
  VAErrorHandler::handleError(VelmorAuthorizationError(AuthorizationClientErrorDomain, 4, {}));
  EXPECT_EQ(environment_.console(), "Insecure URL provided as parameter\n(null)\n");
  EXPECT_EQ(notices_, (Lines{{"Error", "Insecure URL provided as parameter"}}));
}

// The delegate is reached through the logger, so its threshold holds even
// under a debugger; the notice is shown either way.
TEST_F(VAErrorHandlerTest, DebuggerWithDelegateLogsThroughTheThreshold) {
  environment_.setDebuggerAttached(true);
  useLogger(1, true);
  VAErrorHandler::handleKeychainServiceError("SecKeychainItemDelete", -25300);
  useLogger(0, true);
  VAErrorHandler::handleOSError(-50);
  const std::string keychainText =
      "Error: -25300, 'The specified item could not be found in the keychain.' in "
      "SecKeychainItemDelete";
  EXPECT_EQ(logged_, (Lines{{"1", "ERROR\t" + keychainText}}));
  EXPECT_EQ(environment_.console(), "");
  EXPECT_EQ(notices_, (Lines{{"Error", keychainText}, {"Error", "Error: '-50'"}}));
}

TEST_F(VAErrorHandlerTest, FailingOutletsAreContained) {
  useLogger(1, true);
  throwing_ = true;
  environment_.setThrowing(true);
  EXPECT_NO_THROW(VAErrorHandler::signalError("a"));
  EXPECT_EQ(environment_.debuggerQueries(), 1u);

  environment_.setThrowing(false);
  environment_.setDebuggerAttached(true);
  environment_.setConsoleBroken(true);
  useLogger(1, false);
  EXPECT_NO_THROW(VAErrorHandler::signalError("b"));
  throwing_ = false;
  VAErrorHandler::signalError("c");
  EXPECT_EQ(environment_.droppedWrites(), 2u);
  EXPECT_EQ(notices_, (Lines{{"Error", "c"}}));
}

}  // namespace
}  // namespace velmor
