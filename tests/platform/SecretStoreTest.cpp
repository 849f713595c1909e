#include "velmor/SecretStore.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "testing/RecordingLoggerDelegate.h"
#include "testing/TemporaryDirectory.h"
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
      {nullptr, "INFO\tSecret store: files in '/tmp/velmor-selection-test' (no session bus)", true},
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

// Stores without handles of their own act by name, so an item replaced
// since it was found is still the one changed.
TEST(SecretStoreItem, StoresWithoutHandlesActByName) {
  MemorySecretStore store;
  ASSERT_EQ(store.add("S", "A", Data{1}), 0);
  std::unique_ptr<SecretStoreItem> item;
  Data found;
  ASSERT_EQ(store.findItem("S", "A", &found, &item), 0);
  ASSERT_TRUE(item);
  EXPECT_EQ(item->service() + "/" + item->account(), "S/A");
  EXPECT_EQ(found, Data{1});

  ASSERT_EQ(store.remove("S", "A"), 0);
  ASSERT_EQ(store.add("S", "A", Data{2}), 0);
  EXPECT_EQ(store.updateItem(*item, Data{3}), 0);
  EXPECT_EQ(store.find("S", "A", &found), 0);
  EXPECT_EQ(found, Data{3});
  EXPECT_EQ(store.removeItem(*item), 0);
  EXPECT_EQ(store.updateItem(*item, Data{4}), -25300);
  EXPECT_EQ(store.removeItem(*item), -25300);

  std::unique_ptr<SecretStoreItem> missing;
  EXPECT_EQ(store.findItem("S", "A", nullptr, &missing), -25300);
  EXPECT_FALSE(missing);
}

TEST(SecretStoreCondition, EachStoreSaysWhetherItCanBeUsedAndWhereItIs) {
  test::TemporaryDirectory home;
  const std::string notADirectory = home.writeFile("file", "x");
  const std::string shared = home.pathOf("shared");
  ASSERT_EQ(::mkdir(shared.c_str(), 0700), 0);
  ASSERT_EQ(::chmod(shared.c_str(), 0777), 0);
  const struct {
    const char* what;
    std::shared_ptr<SecretStore> store;
    std::int32_t status;
    std::string reason;
    std::string description;
  } cases[] = {
      {"memory", std::make_shared<MemorySecretStore>(), 0,
       "Items are kept in this process's memory only and are gone when it ends.", "memory"},
      {"files, directory still to be made",
       std::make_shared<FileSecretStore>(home.pathOf("a/b/keychain")), 0,
       "Items are kept in files in '" + home.pathOf("a/b/keychain") + "'.",
       "files in '" + home.pathOf("a/b/keychain") + "'"},
      {"files under a regular file", std::make_shared<FileSecretStore>(notADirectory + "/keychain"),
       -36, "The file store's directory '" + notADirectory + "/keychain' cannot be written.",
       "files in '" + notADirectory + "/keychain'"},
      {"files without a directory", std::make_shared<FileSecretStore>(""), -25291,
       "No home directory was found, so the file store has nowhere to keep items.", "files in ''"},
      {"files others may write to", std::make_shared<FileSecretStore>(shared), -61,
       "The file store's directory '" + shared +
           "' belongs to another user or others may write to it, so nothing in it can be trusted.",
       "files in '" + shared + "'"},
      {"files at a relative path", std::make_shared<FileSecretStore>("keychain"), -50,
       "The file store's directory 'keychain' is not an absolute path.", "files in 'keychain'"},
      {"wrapped", std::make_shared<SecretStoreWrapper>(std::make_shared<MemorySecretStore>()), 0,
       "Items are kept in this process's memory only and are gone when it ends.", "memory"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const SecretStoreCondition condition = c.store->condition();
    EXPECT_EQ(condition.status, c.status);
    EXPECT_EQ(condition.usable(), c.status == 0);
    EXPECT_EQ(condition.reason, c.reason);
    EXPECT_EQ(c.store->description(), c.description);
  }
}

}  // namespace
}  // namespace velmor
