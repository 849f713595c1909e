#include "platform/DebugUtility.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <string>

namespace velmor {
namespace {

class DebugUtilityTest : public ::testing::Test {
 protected:
  void TearDown() override { std::remove(path_.c_str()); }

  const std::string& statusFile(const std::string& contents) {
    std::ofstream(path_) << contents;
    return path_;
  }

  std::string path_ = ::testing::TempDir() + "velmor-status-" + std::to_string(::getpid());
};

TEST_F(DebugUtilityTest, TheTestRunnerIsNotTraced) {
  EXPECT_FALSE(DebugUtility::isDebuggerAttached());
}

TEST_F(DebugUtilityTest, ReadsTracerPidLine) {
  struct Case {
    const char* contents;
    bool attached;
  };
  const Case cases[] = {
      {"Name:\tapp\nState:\tS (sleeping)\nTracerPid:\t4242\nUid:\t1000\n", true},
      {"Name:\tapp\nTracerPid:\t0\n", false},
      {"TracerPid:\t1", true},
      {"Name:\tapp\nUid:\t1000\n", false},
      {"TracerPid:\tgdb\n", false},
      {"XTracerPid:\t12\n", false},
      {"", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.contents);
    EXPECT_EQ(DebugUtility::isDebuggerAttached(statusFile(c.contents)), c.attached);
  }
}

TEST_F(DebugUtilityTest, UnreadableFileAnswersFalse) {
  EXPECT_FALSE(DebugUtility::isDebuggerAttached(path_ + "-missing"));
  EXPECT_FALSE(DebugUtility::isDebuggerAttached(::testing::TempDir()));
}

}  // namespace
}  // namespace velmor
