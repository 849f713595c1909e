#include "platform/ProcessEnvironment.h"

#include <gtest/gtest.h>

#include "platform/ProcessEnvironmentWrapper.h"
#include "testing/FakeProcessEnvironment.h"

namespace velmor {
namespace {

TEST(ProcessEnvironmentTest, SetDefaultReturnsThePreviousAndNullRestoresTheSystem) {
  test::FakeProcessEnvironment first;
  test::FakeProcessEnvironment second;
  EXPECT_EQ(&ProcessEnvironment::defaultEnvironment(), &ProcessEnvironment::system());
  EXPECT_EQ(ProcessEnvironment::setDefault(&first), nullptr);
  EXPECT_EQ(ProcessEnvironment::setDefault(&second), &first);
  EXPECT_EQ(&ProcessEnvironment::defaultEnvironment(), &second);
  EXPECT_EQ(ProcessEnvironment::setDefault(nullptr), &second);
  EXPECT_EQ(&ProcessEnvironment::defaultEnvironment(), &ProcessEnvironment::system());
}

class AlwaysTraced final : public ProcessEnvironmentWrapper {
 public:
  using ProcessEnvironmentWrapper::ProcessEnvironmentWrapper;
  bool isDebuggerAttached() override { return true; }
};

TEST(ProcessEnvironmentTest, WrapperForwardsWhatItDoesNotOverride) {
  test::FakeProcessEnvironment fake;
  AlwaysTraced wrapper(fake);
  EXPECT_TRUE(wrapper.isDebuggerAttached());
  EXPECT_EQ(fake.debuggerQueries(), 0u);
  wrapper.writeToConsole("line\n");
  EXPECT_EQ(fake.console(), "line\n");
  EXPECT_FALSE(ProcessEnvironmentWrapper(fake).isDebuggerAttached());
  EXPECT_EQ(fake.debuggerQueries(), 1u);
}

}  // namespace
}  // namespace velmor
