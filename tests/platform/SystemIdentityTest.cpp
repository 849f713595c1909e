#include "platform/SystemIdentity.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/LinuxSystemIdentity.h"
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

TEST(LinuxSystemIdentityTest, ReadsThePrettyHostnameAsTheShellWould) {
  struct Case {
    const char* contents;
    Optional expected;
  } cases[] = {
      {"# hostnamectl\nICON_NAME=computer\nPRETTY_HOSTNAME=\"Anna's Laptop\"\n", "Anna's Laptop"},
      {"PRETTY_HOSTNAME=Build\\ Box  \r\n", "Build Box"},
      {"PRETTY_HOSTNAME='literal \"quotes\" \\n'", "literal \"quotes\" \\n"},
      {"PRETTY_HOSTNAME=\"esc \\\"aped\\\" \\\\ \\n\"", "esc \"aped\" \\ \\n"},
      {"PRETTY_HOSTNAME=first\nPRETTY_HOSTNAME=second\n", "second"},
      {"PRETTY_HOSTNAME=\"\"\n", nullopt},
      {"XPRETTY_HOSTNAME=a\nPRETTY_HOSTNAME_2=b\n;PRETTY_HOSTNAME=c\n", nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.contents);
    EXPECT_EQ(LinuxSystemIdentity::prettyHostnameFromMachineInfo(c.contents), c.expected);
  }
  EXPECT_EQ(LinuxSystemIdentity::fullNameFromGecos("Anna Example,Room 4,555-0100,,"),
            "Anna Example");
  EXPECT_EQ(LinuxSystemIdentity::fullNameFromGecos(",Room 4"), nullopt);
}

TEST(LinuxSystemIdentityTest, FallsBackWhenTheFilesSayNothing) {
  char host[256] = {};
  gethostname(host, sizeof host - 1);
  utsname system{};
  uname(&system);
  test::TemporaryDirectory directory;
  LinuxSystemIdentity identity(directory.pathOf("machine-info"), directory.pathOf("product"));
  EXPECT_EQ(identity.deviceName(), std::string(host));
  EXPECT_EQ(identity.hardwareModel(), std::string(system.machine));

  directory.writeFile("machine-info", "PRETTY_HOSTNAME=\"Anna's Laptop\"\n");
  directory.writeFile("product", "  20XW0055GE \n");
  EXPECT_EQ(identity.deviceName(), "Anna's Laptop");
  EXPECT_EQ(identity.hardwareModel(), "20XW0055GE");

  directory.writeFile("machine-info", "ICON_NAME=computer\n");
  directory.writeFile("product", " \n");
  EXPECT_EQ(identity.deviceName(), std::string(host));
  EXPECT_EQ(identity.hardwareModel(), std::string(system.machine));
}

}  // namespace
}  // namespace velmor
