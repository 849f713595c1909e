#include "platform/ProcessEnvironment.h"

#include <gtest/gtest.h>

#include "platform/ProcessEnvironmentWrapper.h"
#include "testing/FakeProcessEnvironment.h"
#include "testing/ScopedProcessEnvironment.h"

namespace velmor {
namespace {

using test::FakeProcessEnvironment;
using test::ScopedProcessEnvironment;

TEST(ProcessEnvironmentTest, SetDefaultReturnsThePreviousAndNullRestoresTheSystem) {
  FakeProcessEnvironment first;
  FakeProcessEnvironment second;
  EXPECT_EQ(&ProcessEnvironment::defaultEnvironment(), &ProcessEnvironment::system());
  EXPECT_EQ(ProcessEnvironment::setDefault(&first), nullptr);
  EXPECT_EQ(ProcessEnvironment::setDefault(&second), &first);
  EXPECT_EQ(&ProcessEnvironment::defaultEnvironment(), &second);
  EXPECT_EQ(ProcessEnvironment::setDefault(nullptr), &second);
  EXPECT_EQ(&ProcessEnvironment::defaultEnvironment(), &ProcessEnvironment::system());
}

TEST(ProcessEnvironmentTest, ScopedInstallRestoresOnExit) {
  FakeProcessEnvironment outer;
  FakeProcessEnvironment inner;
  ScopedProcessEnvironment outerScope(outer);
  {
    ScopedProcessEnvironment innerScope(inner);
    EXPECT_EQ(&ProcessEnvironment::defaultEnvironment(), &inner);
  }
  EXPECT_EQ(&ProcessEnvironment::defaultEnvironment(), &outer);
}

// Replaces only the debugger test, as a test that needs a real console would.
class AlwaysTraced final : public ProcessEnvironmentWrapper {
 public:
  using ProcessEnvironmentWrapper::ProcessEnvironmentWrapper;
  bool isDebuggerAttached() override { return true; }
};

TEST(ProcessEnvironmentTest, WrapperForwardsWhatItDoesNotOverride) {
  FakeProcessEnvironment fake;
  AlwaysTraced wrapper(fake);
  EXPECT_TRUE(wrapper.isDebuggerAttached());
  EXPECT_EQ(fake.debuggerQueries(), 0u);
  wrapper.writeToConsole("line\n");
  EXPECT_EQ(fake.console(), "line\n");

  ProcessEnvironmentWrapper plain(fake);
  fake.setDebuggerAttached(true);
  EXPECT_TRUE(plain.isDebuggerAttached());
  EXPECT_EQ(fake.debuggerQueries(), 1u);
}

TEST(ProcessEnvironmentTest, SystemEnvironmentIsNotTracedUnderTheTestRunner) {
  EXPECT_FALSE(ProcessEnvironment::system().isDebuggerAttached());
}

}  // namespace
}  // namespace velmor
