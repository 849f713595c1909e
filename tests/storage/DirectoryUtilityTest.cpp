#include "storage/DirectoryUtility.h"

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "testing/FakeSystemIdentity.h"
#include "testing/ScopedSystemIdentity.h"
#include "testing/TemporaryDirectory.h"
#include "velmor/ApplicationInfo.h"

namespace velmor {
namespace {

// Sets the application's identity for one test.
class ScopedApplicationInfo final {
 public:
  explicit ScopedApplicationInfo(std::optional<ApplicationInfo> info)
      : previous_(ApplicationInfo::current()) {
    ApplicationInfo::setCurrent(std::move(info));
  }
  ~ScopedApplicationInfo() { ApplicationInfo::setCurrent(previous_); }

 private:
  std::optional<ApplicationInfo> previous_;
};

class DirectoryUtilityTest : public ::testing::Test {
 protected:
  test::TemporaryDirectory temporary_;
  test::FakeSystemIdentity identity_;
  test::ScopedSystemIdentity scope_{identity_};
};

bool isDirectory(const std::string& path) { return std::filesystem::is_directory(path); }

TEST_F(DirectoryUtilityTest, NamesTheApplicationsDirectoryInTheUsersDataDirectory) {
  const std::string home = temporary_.pathOf("home");
  const std::string data = temporary_.pathOf("data");
  struct Case {
    const char* name;
    std::optional<std::string> dataHome;
    std::optional<ApplicationInfo> application;
    std::string expected;
  } cases[] = {
      {"unit-test host", data, std::nullopt, data + "/UnitTestApp"},
      {"named application", data, ApplicationInfo{"com.example.notes", "2.4", "notes"},
       data + "/notes"},
      {"empty executable name", data, ApplicationInfo{"com.example.notes", "2.4", ""},
       data + "/UnitTestApp"},
      {"no data home", std::nullopt, std::nullopt, home + "/.local/share/UnitTestApp"},
      {"relative data home is ignored", "data", std::nullopt, home + "/.local/share/UnitTestApp"},
      {"empty data home is ignored", "", std::nullopt, home + "/.local/share/UnitTestApp"},
  };
  identity_.setHomeDirectory(home);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    identity_.setEnvironmentVariable("XDG_DATA_HOME", c.dataHome);
    ScopedApplicationInfo application(c.application);
    ErrorRef error;
    EXPECT_EQ(DirectoryUtility::applicationSupportDirectory(false, &error), c.expected);
    EXPECT_FALSE(error);
    // The user's data directory is made in any case, the application's only on request.
    EXPECT_TRUE(isDirectory(std::filesystem::path(c.expected).parent_path()));
    EXPECT_FALSE(isDirectory(c.expected));
  }
}

TEST_F(DirectoryUtilityTest, CreatesTheApplicationsDirectoryPrivately) {
  identity_.setEnvironmentVariable("XDG_DATA_HOME", temporary_.pathOf("a/b"));
  ErrorRef error;
  const std::string path = DirectoryUtility::applicationSupportDirectory(true, &error);
  EXPECT_FALSE(error);
  EXPECT_EQ(path, temporary_.pathOf("a/b/UnitTestApp"));
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0700u);
  EXPECT_EQ(DirectoryUtility::applicationSupportDirectory(true, &error), path);
  EXPECT_FALSE(error);  // an existing directory is no error
}

TEST_F(DirectoryUtilityTest, ReportsWhatStoodInTheWayAndStillAnswersThePath) {
  const std::string file = temporary_.writeFile("file", "x");
  struct Case {
    const char* name;
    std::string dataHome;
    std::string failedPath;
  } cases[] = {
      {"data directory is a file", file, file},
      {"application directory is a file", temporary_.path(), temporary_.pathOf("UnitTestApp")},
  };
  temporary_.writeFile("UnitTestApp", "x");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    identity_.setEnvironmentVariable("XDG_DATA_HOME", c.dataHome);
    ErrorRef error;
    EXPECT_EQ(DirectoryUtility::applicationSupportDirectory(true, &error),
              c.dataHome + "/UnitTestApp");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), "NSPOSIXErrorDomain");
    EXPECT_EQ(error->code(), ENOTDIR);
    EXPECT_EQ(*error->userInfo()->findString("NSFilePath"), c.failedPath);
    EXPECT_EQ(error->localizedDescription(),
              "The operation couldn’t be completed. Not a directory");
  }
}

TEST_F(DirectoryUtilityTest, WithoutAHomeNothingIsCreated) {
  ErrorRef error;
  EXPECT_EQ(DirectoryUtility::applicationSupportDirectory(true, &error), "/UnitTestApp");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), "NSPOSIXErrorDomain");
  EXPECT_EQ(error->code(), ENOENT);
  EXPECT_EQ(DirectoryUtility::applicationSupportDirectory(true, nullptr), "/UnitTestApp");
  EXPECT_FALSE(std::filesystem::exists("/UnitTestApp"));
}

}  // namespace
}  // namespace velmor
