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

class DirectoryUtilityTest : public ::testing::Test {
 protected:
  ~DirectoryUtilityTest() override { ApplicationInfo::setCurrent(std::nullopt); }

  test::TemporaryDirectory temporary_;
  test::FakeSystemIdentity identity_;
  test::ScopedSystemIdentity scope_{identity_};
};

TEST_F(DirectoryUtilityTest, NamesTheApplicationsDirectoryInTheUsersDataDirectory) {
  const std::string home = temporary_.pathOf("home");
  const std::string data = temporary_.pathOf("data");
  struct Case {
    std::optional<std::string> dataHome;
    std::optional<ApplicationInfo> application;
    std::string expected;
  } cases[] = {
      {data, std::nullopt, data + "/UnitTestApp"},
      {data, ApplicationInfo{"com.example.notes", "2.4", "notes"}, data + "/notes"},
      {data, ApplicationInfo{"com.example.notes", "2.4", ""}, data + "/UnitTestApp"},
      {std::nullopt, std::nullopt, home + "/.local/share/UnitTestApp"},
      {"relative", std::nullopt, home + "/.local/share/UnitTestApp"},
  };
  identity_.setHomeDirectory(home);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.expected);
    identity_.setEnvironmentVariable("XDG_DATA_HOME", c.dataHome);
    ApplicationInfo::setCurrent(c.application);
    ErrorRef error;
    EXPECT_EQ(DirectoryUtility::applicationSupportDirectory(false, &error), c.expected);
    EXPECT_FALSE(error);
    // The user's data directory is made in any case, the application's only on request.
    EXPECT_TRUE(std::filesystem::is_directory(std::filesystem::path(c.expected).parent_path()));
    EXPECT_FALSE(std::filesystem::exists(c.expected));
  }

  const std::string made = DirectoryUtility::applicationSupportDirectory(true, nullptr);
  struct stat status {};
  ASSERT_EQ(stat(made.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0700u);
  ErrorRef error;
  DirectoryUtility::applicationSupportDirectory(true, &error);
  EXPECT_FALSE(error);  // an existing directory is no error
}

TEST_F(DirectoryUtilityTest, ReportsWhatStoodInTheWayAndStillAnswersThePath) {
  const std::string file = temporary_.writeFile("file", "x");
  temporary_.writeFile("UnitTestApp", "x");
  for (const std::string& dataHome : {file, temporary_.path()}) {
    SCOPED_TRACE(dataHome);
    identity_.setEnvironmentVariable("XDG_DATA_HOME", dataHome);
    ErrorRef error;
    EXPECT_EQ(DirectoryUtility::applicationSupportDirectory(true, &error),
              dataHome + "/UnitTestApp");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), "NSPOSIXErrorDomain");
    EXPECT_EQ(error->code(), ENOTDIR);
    EXPECT_EQ(*error->userInfo()->findString("NSFilePath"),
              dataHome == file ? file : dataHome + "/UnitTestApp");
    EXPECT_EQ(error->localizedDescription(),
              "The operation couldn’t be completed. Not a directory");
  }

  identity_.setEnvironmentVariable("XDG_DATA_HOME", std::nullopt);  // and no home either
  ErrorRef error;
  EXPECT_EQ(DirectoryUtility::applicationSupportDirectory(true, &error), "/UnitTestApp");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), ENOENT);
  EXPECT_FALSE(std::filesystem::exists("/UnitTestApp"));
}

}  // namespace
}  // namespace velmor
