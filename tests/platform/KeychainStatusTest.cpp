#include "platform/KeychainStatus.h"

#include <gtest/gtest.h>

namespace velmor {
namespace {

TEST(KeychainStatusTest, KnownAndUnknownStatuses) {
  struct Case {
    std::int32_t status;
    const char* message;
  };
  const Case cases[] = {
      {0, "No error."},
      {-25300, "The specified item could not be found in the keychain."},
      {-25299, "The specified item already exists in the keychain."},
      {-25293, "The user name or passphrase you entered is not correct."},
      {-34018, "A required entitlement isn't present."},
      {-1, "OSStatus -1"},
      {25300, "OSStatus 25300"},
      {INT32_MIN, "OSStatus -2147483648"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.status);
    EXPECT_EQ(KeychainStatus::errorMessage(c.status), c.message);
  }
}

}  // namespace
}  // namespace velmor
