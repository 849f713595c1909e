#include "support/KeychainStatus.h"

#include <gtest/gtest.h>

namespace velmor {
namespace {

TEST(KeychainStatusTest, KnownAndUnknownStatuses) {
  const std::pair<std::int32_t, const char*> cases[] = {
      {0, "No error."},
      {-25300, "The specified item could not be found in the keychain."},
      {-25299, "The specified item already exists in the keychain."},
      {-25308, "The keyring is locked, or there is no default keyring."},
      {-34018, "A required entitlement isn't present."},
      {-1, "OSStatus -1"},
      {INT32_MIN, "OSStatus -2147483648"},
  };
  for (const auto& [status, message] : cases) {
    SCOPED_TRACE(status);
    EXPECT_EQ(KeychainStatus::errorMessage(status), message);
  }
}

}  // namespace
}  // namespace velmor
