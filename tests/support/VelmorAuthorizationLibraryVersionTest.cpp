#include "velmor/VelmorAuthorizationLibraryVersion.h"

#include <gtest/gtest.h>

#include <cstring>

namespace velmor {
namespace {

TEST(VelmorAuthorizationLibraryVersion, ReportsMarketingVersionAndBuild) {
  EXPECT_EQ(VelmorAuthorizationLibraryVersion::version(), "1.1.4 (13)");
  EXPECT_EQ(VelmorAuthorizationVersionNumber, 13.0);
  const char* banner = reinterpret_cast<const char*>(VelmorAuthorizationVersionString);
  EXPECT_STREQ(banner, "@(#)PROGRAM:VelmorAuthorization  PROJECT:velmor-authorization-13\n");
}

}  // namespace
}  // namespace velmor
