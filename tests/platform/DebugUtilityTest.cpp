#include "platform/DebugUtility.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace velmor {
namespace {

TEST(DebugUtilityTest, TheTestRunnerIsNotTraced) {
  EXPECT_FALSE(DebugUtility::isDebuggerAttached());
}

TEST(DebugUtilityTest, ReadsTheTracerPidLine) {
  const std::string path = ::testing::TempDir() + "velmor-status-" + std::to_string(::getpid());
  const std::pair<const char*, bool> cases[] = {
      {"Name:\tapp\nState:\tS (sleeping)\nTracerPid:\t4242\nUid:\t1000\n", true},
      {"Name:\tapp\nTracerPid:\t0\n", false},
      {"Name:\tapp\nUid:\t1000\n", false},
      {"XTracerPid:\t12\n", false},
  };
  for (const auto& [contents, attached] : cases) {
    SCOPED_TRACE(contents);
    std::ofstream(path) << contents;
    EXPECT_EQ(DebugUtility::isDebuggerAttached(path), attached);
  }
  std::remove(path.c_str());
  EXPECT_FALSE(DebugUtility::isDebuggerAttached(path));
  EXPECT_FALSE(DebugUtility::isDebuggerAttached(::testing::TempDir()));
}

}  // namespace
}  // namespace velmor
