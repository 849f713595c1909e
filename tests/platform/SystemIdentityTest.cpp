#include "platform/SystemIdentity.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/LinuxSystemIdentity.h"
#include "platform/SystemIdentityWrapper.h"
#include "testing/FakeSystemIdentity.h"
#include "testing/TemporaryDirectory.h"

namespace velmor {
namespace {

using std::nullopt;
using Optional = std::optional<std::string>;

TEST(SystemIdentityTest, SetDefaultReturnsThePreviousAndNullRestoresTheSystem) {
  test::FakeSystemIdentity first;
  test::FakeSystemIdentity second;
  EXPECT_EQ(&SystemIdentity::defaultIdentity(), &SystemIdentity::system());
  EXPECT_EQ(SystemIdentity::setDefault(&first), nullptr);
  EXPECT_EQ(SystemIdentity::setDefault(&second), &first);
  EXPECT_EQ(&SystemIdentity::defaultIdentity(), &second);
  EXPECT_EQ(SystemIdentity::setDefault(nullptr), &second);
  EXPECT_EQ(&SystemIdentity::defaultIdentity(), &SystemIdentity::system());
}

class RenamedMachine final : public SystemIdentityWrapper {
 public:
  using SystemIdentityWrapper::SystemIdentityWrapper;
  Optional deviceName() override { return "renamed"; }
};

TEST(SystemIdentityTest, WrapperForwardsWhatItDoesNotOverride) {
  test::FakeSystemIdentity fake;
  fake.setDeviceName("original");
  fake.setHardwareModel("model");
  fake.setUserFullName("Anna Example");
  fake.setHomeDirectory("/home/anna");
  fake.setEnvironmentVariable("LANG", "de_DE.UTF-8");
  RenamedMachine wrapper(fake);
  EXPECT_EQ(wrapper.deviceName(), "renamed");
  EXPECT_EQ(wrapper.hardwareModel(), "model");
  EXPECT_EQ(wrapper.userFullName(), "Anna Example");
  EXPECT_EQ(wrapper.homeDirectory(), "/home/anna");
  EXPECT_EQ(wrapper.environmentVariable("LANG"), "de_DE.UTF-8");
  EXPECT_EQ(wrapper.environmentVariable("LC_ALL"), nullopt);
}

TEST(LinuxSystemIdentityTest, ReadsThePrettyHostnameAsTheShellWould) {
  struct Case {
    const char* contents;
    Optional expected;
  } cases[] = {
      {"PRETTY_HOSTNAME=\"Anna's Laptop\"\n", "Anna's Laptop"},
      {"# written by hostnamectl\nICON_NAME=computer-laptop\nPRETTY_HOSTNAME=Build\\ Box\n",
       "Build Box"},
      {"PRETTY_HOSTNAME='single \"quoted\" \\n'", "single \"quoted\" \\n"},
      {"PRETTY_HOSTNAME=\"esc \\\"aped\\\" \\\\ \\n\"", "esc \"aped\" \\ \\n"},
      {"  PRETTY_HOSTNAME = spaced  \r\n", "spaced"},
      {"PRETTY_HOSTNAME=first\nPRETTY_HOSTNAME=second\n", "second"},
      {"PRETTY_HOSTNAME=\"Café ☕\"", "Café ☕"},
      {"PRETTY_HOSTNAME=\"\"\n", nullopt},
      {"PRETTY_HOSTNAME=\n", nullopt},
      {"XPRETTY_HOSTNAME=a\nPRETTY_HOSTNAME_2=b\n;PRETTY_HOSTNAME=c\n", nullopt},
      {"", nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.contents);
    EXPECT_EQ(LinuxSystemIdentity::prettyHostnameFromMachineInfo(c.contents), c.expected);
  }
}

TEST(LinuxSystemIdentityTest, TakesTheNameFromTheGecosField) {
  struct Case {
    const char* gecos;
    Optional expected;
  } cases[] = {
      {"Anna Example,Room 4,555-0100,,", "Anna Example"},
      {"Anna Example", "Anna Example"},
      {",Room 4", nullopt},
      {"", nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.gecos);
    EXPECT_EQ(LinuxSystemIdentity::fullNameFromGecos(c.gecos), c.expected);
  }
}

std::string systemHostName() {
  char name[256] = {};
  gethostname(name, sizeof name - 1);
  return name;
}

std::string systemMachineType() {
  utsname info{};
  uname(&info);
  return info.machine;
}

TEST(LinuxSystemIdentityTest, FallsBackWhenTheFilesSayNothing) {
  test::TemporaryDirectory directory;
  const std::string machineInfo = directory.pathOf("machine-info");
  const std::string productName = directory.pathOf("product_name");

  LinuxSystemIdentity identity(machineInfo, productName);
  EXPECT_EQ(identity.deviceName(), systemHostName());
  EXPECT_EQ(identity.hardwareModel(), systemMachineType());

  directory.writeFile("machine-info", "PRETTY_HOSTNAME=\"Anna's Laptop\"\n");
  directory.writeFile("product_name", "  20XW0055GE \n");
  EXPECT_EQ(identity.deviceName(), "Anna's Laptop");
  EXPECT_EQ(identity.hardwareModel(), "20XW0055GE");

  directory.writeFile("machine-info", "ICON_NAME=computer\n");
  directory.writeFile("product_name", " \n");
  EXPECT_EQ(identity.deviceName(), systemHostName());
  EXPECT_EQ(identity.hardwareModel(), systemMachineType());
}

TEST(LinuxSystemIdentityTest, TellsAnEmptyVariableFromAMissingOne) {
  LinuxSystemIdentity identity;
  ::setenv("VELMOR_IDENTITY_TEST", "", 1);
  EXPECT_EQ(identity.environmentVariable("VELMOR_IDENTITY_TEST"), "");
  ::unsetenv("VELMOR_IDENTITY_TEST");
  EXPECT_EQ(identity.environmentVariable("VELMOR_IDENTITY_TEST"), nullopt);
  EXPECT_TRUE(identity.homeDirectory().has_value());
}

}  // namespace
}  // namespace velmor
