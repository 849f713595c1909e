#include "transport/HttpUserAgent.h"

#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <optional>
#include <string>

#include "velmor/ApplicationInfo.h"
#include "velmor/VelmorAuthorizationLibraryVersion.h"

namespace velmor {
namespace {

std::string agentWith(const std::string& applicationPart) {
  struct utsname names {};
  EXPECT_EQ(::uname(&names), 0);
  return "com.velmor.Authorization/" + VelmorAuthorizationLibraryVersion::version() + "; " +
         applicationPart + "; " + names.sysname + "/" + names.release;
}

TEST(HttpUserAgentTest, NamesLibraryApplicationAndSystem) {
  struct Case {
    std::optional<ApplicationInfo> info;
    std::string applicationPart;
  } cases[] = {
      {std::nullopt, "UnitTest/?"},
      {ApplicationInfo{"com.example.notes", "2.4", "notes"}, "com.example.notes/2.4"},
      {ApplicationInfo{"com.example.notes", "", "notes"}, "com.example.notes/(null)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.applicationPart);
    ApplicationInfo::setCurrent(c.info);
    EXPECT_EQ(HttpUserAgent::generateUserAgentText(), agentWith(c.applicationPart));
  }
  ApplicationInfo::setCurrent(std::nullopt);
}

TEST(HttpUserAgentTest, SharedTextIsMadeOnceAndKept) {
  // No test leaves an application set, so the shared text was made in a
  // unit-test host whenever it was first asked for.
  EXPECT_EQ(HttpUserAgent::text(), agentWith("UnitTest/?"));
  ApplicationInfo::setCurrent(ApplicationInfo{"com.example.notes", "2.4", "notes"});
  EXPECT_EQ(HttpUserAgent::text(), agentWith("UnitTest/?"));
  ApplicationInfo::setCurrent(std::nullopt);
}

}  // namespace
}  // namespace velmor
