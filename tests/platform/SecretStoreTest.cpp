#include "velmor/SecretStore.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "testing/RecordingLoggerDelegate.h"
#include "velmor/FileSecretStore.h"
#include "velmor/MemorySecretStore.h"
#include "velmor/SecretServiceStore.h"

namespace velmor {
namespace {

// Sets (or unsets) an environment variable for the guard's lifetime.
class ScopedEnvironment final {
 public:
  ScopedEnvironment(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) saved_ = old;
    value ? ::setenv(name, value, 1) : ::unsetenv(name);
  }
  ~ScopedEnvironment() { saved_ ? ::setenv(name_, saved_->c_str(), 1) : ::unsetenv(name_); }

 private:
  const char* name_;
  std::optional<std::string> saved_;
};

class SecretStoreSelection : public ::testing::Test {
 protected:
  void SetUp() override { SecretStore::setDefault(nullptr); }
  void TearDown() override { SecretStore::setDefault(nullptr); }

  test::RecordingLoggerDelegate delegate_;
  test::ScopedLogger logger_{3, &delegate_};
  ScopedEnvironment directory_{"VELMOR_SECRET_STORE_DIR", "/tmp/velmor-selection-test"};
  // Without a session bus the Secret Service cannot be chosen.
  ScopedEnvironment bus_{"DBUS_SESSION_BUS_ADDRESS", nullptr};
};

TEST_F(SecretStoreSelection, FollowsTheEnvironmentAndLogsTheChoiceOnce) {
  struct Case {
    const char* requested;
    const char* expectedLog;
    bool expectFile;
  };
  const Case cases[] = {
      {"memory", "INFO\tSecret store: memory (VELMOR_SECRET_STORE)", false},
      {"file", "INFO\tSecret store: files in '/tmp/velmor-selection-test' (VELMOR_SECRET_STORE)",
       true},
      {nullptr,
       "INFO\tSecret store: files in '/tmp/velmor-selection-test' (no Secret Service answers)",
       true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.requested ? c.requested : "(unset)");
    SecretStore::setDefault(nullptr);
    test::RecordingLoggerDelegate delegate;
    test::ScopedLogger logger(3, &delegate);
    ScopedEnvironment requested("VELMOR_SECRET_STORE", c.requested);
    auto store = SecretStore::defaultStore();
    EXPECT_EQ(SecretStore::defaultStore(), store);  // chosen once
    EXPECT_EQ(delegate.messages(), std::vector<std::string>{c.expectedLog});
    if (c.expectFile) {
      auto file = std::dynamic_pointer_cast<FileSecretStore>(store);
      ASSERT_TRUE(file);
      EXPECT_EQ(file->directory(), "/tmp/velmor-selection-test");
    } else {
      EXPECT_TRUE(std::dynamic_pointer_cast<MemorySecretStore>(store));
    }
  }
}

TEST_F(SecretStoreSelection, CodeWinsAndAnUnknownRequestIsReported) {
  ScopedEnvironment requested("VELMOR_SECRET_STORE", "keychain");
  auto mine = std::make_shared<MemorySecretStore>();
  SecretStore::setDefault(mine);
  EXPECT_EQ(SecretStore::defaultStore(), mine);
  EXPECT_TRUE(delegate_.messages().empty());

  SecretStore::setDefault(nullptr);
  EXPECT_TRUE(std::dynamic_pointer_cast<FileSecretStore>(SecretStore::defaultStore()));
  ASSERT_FALSE(delegate_.messages().empty());
  EXPECT_EQ(delegate_.messages().front(),
            "ERROR\tUnknown VELMOR_SECRET_STORE 'keychain'; choosing by what is available");
}

}  // namespace
}  // namespace velmor
