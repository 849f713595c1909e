#include "transport/HttpUserAgent.h"

#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <optional>
#include <string>

#include "velmor/ApplicationInfo.h"
#include "velmor/VelmorAuthorizationLibraryVersion.h"

namespace velmor {
namespace {

// Leaves the process as a unit-test host again, whatever the test set.
class ScopedApplicationInfo final {
 public:
  explicit ScopedApplicationInfo(std::optional<ApplicationInfo> info) {
    ApplicationInfo::setCurrent(std::move(info));
  }
  ~ScopedApplicationInfo() { ApplicationInfo::setCurrent(std::nullopt); }
  ScopedApplicationInfo(const ScopedApplicationInfo&) = delete;
  ScopedApplicationInfo& operator=(const ScopedApplicationInfo&) = delete;
};

std::string systemPart() {
  struct utsname names {};
  EXPECT_EQ(::uname(&names), 0);
  return std::string(names.sysname) + "/" + names.release;
}

std::string agentWith(const std::string& applicationPart) {
  return "com.velmor.Authorization/" + VelmorAuthorizationLibraryVersion::version() + "; " +
         applicationPart + "; " + systemPart();
}

TEST(HttpUserAgentTest, NamesLibraryApplicationAndSystem) {
  struct Case {
    const char* name;
    std::optional<ApplicationInfo> info;
    std::string applicationPart;
  } cases[] = {
      {"unit-test host", std::nullopt, "UnitTest/?"},
      {"named application", ApplicationInfo{"com.example.notes", "2.4", "notes"},
       "com.example.notes/2.4"},
      {"no version", ApplicationInfo{"com.example.notes", "", "notes"}, "com.example.notes/(null)"},
      {"no identifier", ApplicationInfo{"", "2.4", "notes"}, "UnitTest/?"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ScopedApplicationInfo scope(c.info);
    EXPECT_EQ(HttpUserAgent::generateUserAgentText(), agentWith(c.applicationPart));
  }
}

TEST(HttpUserAgentTest, SharedTextIsMadeOnceAndKept) {
  // No test leaves an application set, so the shared text was made in a
  // unit-test host whenever it was first asked for.
  const std::string first = HttpUserAgent::text();
  ScopedApplicationInfo scope(ApplicationInfo{"com.example.notes", "2.4", "notes"});
  EXPECT_EQ(HttpUserAgent::text(), first);
  EXPECT_EQ(first, agentWith("UnitTest/?"));
  EXPECT_EQ(&HttpUserAgent::text(), &HttpUserAgent::text());
}

}  // namespace
}  // namespace velmor
