#include "storage/AuthorizationClientContext.h"

#include <filesystem>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "platform/FileSystem.h"
#include "platform/PropertyList.h"
#include "testing/FakeSystemIdentity.h"
#include "testing/ScopedSystemIdentity.h"
#include "testing/TemporaryDirectory.h"

namespace velmor {
namespace {

using Optional = std::optional<std::string>;

std::string repeated(char c, std::size_t count) { return std::string(count, c); }

std::string line(const std::string& name, const std::string& model, const std::string& user) {
  return "Device Name: \"" + name + "\" | Model: \"" + model + "\" | User: \"" + user + "\"";
}

class AuthorizationClientContextTest : public ::testing::Test {
 protected:
  AuthorizationClientContextTest() {
    identity_.setEnvironmentVariable("XDG_DATA_HOME", temporary_.path());
    identity_.setDeviceName("Anna's Laptop");
    identity_.setHardwareModel("20XW0055GE");
    identity_.setUserFullName("Anna Example");
  }

  std::string contextFile() const {
    return temporary_.pathOf("UnitTestApp/AuthorizationClientContext.plist");
  }

  std::string remember(bool* changed) {
    ErrorRef error;
    std::string context = AuthorizationClientContext::generateAndSaveIfNeeded(changed, &error);
    EXPECT_FALSE(error);
    return context;
  }

  test::TemporaryDirectory temporary_;
  test::FakeSystemIdentity identity_;
  test::ScopedSystemIdentity scope_{identity_};
};

TEST_F(AuthorizationClientContextTest, CleansEachFieldInItsOwnOrder) {
  const std::string b99 = repeated('b', 99);
  const std::string m100 = repeated('m', 100);
  struct Case {
    const char* name;
    Optional device, model, user;
    std::string expected;
  } cases[] = {
      {"short values keep their spaces", "Anna: Work | Home", "X1:Carbon", "Anna | Example",
       line("Anna Work  Home", "X1Carbon", "Anna  Example")},
      // 99 letters and two colons: cut to 100, then cleaned to 99.
      {"name cut before cleaning", ":" + b99 + ":", "m", "u", line(b99, "m", "u")},
      {"name with a bar in its first 100", repeated('b', 50) + "|" + repeated('b', 69), "m", "u",
       line(b99, "m", "u")},
      {"model cleaned before cutting", "d", repeated('m', 50) + "|" + repeated('m', 69), "u",
       line("d", m100, "u")},
      {"user cleaned before cutting", "d", "m", ":" + repeated('u', 100) + "|",
       line("d", "m", repeated('u', 100))},
      {"unknown values", std::nullopt, std::nullopt, std::nullopt,
       line("(null)", "(null)", "(null)")},
      // Cutting counts UTF-16 units; half a surrogate pair becomes U+FFFD.
      {"cut through a surrogate pair", repeated('d', 99) + "\xF0\x9F\x98\x80z",
       repeated('m', 98) + "\xF0\x9F\x98\x80z", "Zoë",
       line(repeated('d', 99) + "\xEF\xBF\xBD", repeated('m', 98) + "\xF0\x9F\x98\x80", "Zoë")},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    identity_.setDeviceName(c.device);
    identity_.setHardwareModel(c.model);
    identity_.setUserFullName(c.user);
    EXPECT_EQ(AuthorizationClientContext().description(), c.expected);
  }
}

TEST_F(AuthorizationClientContextTest, PropertiesHoldWhatTheSystemKnows) {
  EXPECT_EQ(AuthorizationClientContext().properties(), (Dictionary{{"DeviceName", "Anna's Laptop"},
                                                                   {"Model", "20XW0055GE"},
                                                                   {"User", "Anna Example"}}));
  EXPECT_EQ(AuthorizationClientContext::hardwareModel(), "20XW0055GE");
  identity_.setDeviceName(std::nullopt);
  identity_.setHardwareModel(std::nullopt);
  EXPECT_EQ(AuthorizationClientContext().properties(), (Dictionary{{"User", "Anna Example"}}));
  EXPECT_EQ(AuthorizationClientContext::hardwareModel(), std::nullopt);
}

TEST_F(AuthorizationClientContextTest, RemembersTheLastLineInAnXmlPropertyList) {
  const std::string first = line("Anna's Laptop", "20XW0055GE", "Anna Example");
  bool changed = false;
  EXPECT_EQ(remember(&changed), first);
  EXPECT_TRUE(changed);
  EXPECT_EQ(remember(&changed), first);
  EXPECT_FALSE(changed);
  std::optional<Data> bytes = FileSystem::readFile(contextFile(), 4096);
  ASSERT_TRUE(bytes);
  EXPECT_EQ(std::string(bytes->begin(), bytes->begin() + 5), "<?xml");
  EXPECT_EQ(PropertyList::parse(*bytes), Value(Dictionary{{"Context", first}}));
  // Only the file itself: no temporary file is left behind.
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(temporary_.pathOf("UnitTestApp")),
                          std::filesystem::directory_iterator()),
            1);

  identity_.setDeviceName("Anna's Desktop");
  EXPECT_EQ(remember(&changed), line("Anna's Desktop", "20XW0055GE", "Anna Example"));
  EXPECT_TRUE(changed);
  // Any property-list form is read.
  const Data binary = PropertyList::binaryFromEntries({{"Context", first}});
  temporary_.writeFile("UnitTestApp/AuthorizationClientContext.plist",
                       std::string(binary.begin(), binary.end()));
  identity_.setDeviceName("Anna's Laptop");
  remember(&changed);
  EXPECT_FALSE(changed);
}

TEST_F(AuthorizationClientContextTest, AnUnreadableFileCountsAsChanged) {
  const std::string context = remember(nullptr);
  struct Case {
    const char* name;
    std::string contents;
  } cases[] = {
      {"not a property list", "garbage"},
      {"another line", "<plist><dict><key>Context</key><string>old</string></dict></plist>"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    temporary_.writeFile("UnitTestApp/AuthorizationClientContext.plist", c.contents);
    bool changed = false;
    EXPECT_EQ(remember(&changed), context);
    EXPECT_TRUE(changed);
  }
  // A file that can be neither read nor replaced reports a change every time.
  std::filesystem::remove(contextFile());
  std::filesystem::create_directory(contextFile());
  for (int call = 0; call < 2; ++call) {
    bool changed = false;
    remember(&changed);
    EXPECT_TRUE(changed);
  }
}

TEST_F(AuthorizationClientContextTest, LeavesTheFileAloneWhenTheErrorVariableHoldsAnError) {
  // The caller's own earlier error counts as well.
  ErrorRef earlier = std::make_shared<Error>("earlier", 7);
  ErrorRef error = earlier;
  bool changed = true;
  EXPECT_EQ(AuthorizationClientContext::generateAndSaveIfNeeded(&changed, &error),
            line("Anna's Laptop", "20XW0055GE", "Anna Example"));
  EXPECT_FALSE(changed);
  EXPECT_EQ(error, earlier);
  EXPECT_FALSE(std::filesystem::exists(contextFile()));

  // A directory that cannot be made, with and without an error location.
  identity_.setEnvironmentVariable("XDG_DATA_HOME", temporary_.writeFile("file", "x"));
  error = nullptr;
  changed = true;
  AuthorizationClientContext::generateAndSaveIfNeeded(&changed, &error);
  EXPECT_FALSE(changed);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), "NSPOSIXErrorDomain");
  changed = true;
  AuthorizationClientContext::generateAndSaveIfNeeded(&changed, nullptr);
  EXPECT_FALSE(changed);
}

}  // namespace
}  // namespace velmor
