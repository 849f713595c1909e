// Runs against a real gnome-keyring daemon or a bus without one; each suite
// needs the scenario its ctest case sets up (tests/platform/CMakeLists.txt).
#include "velmor/SecretServiceStore.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <libsecret/secret.h>

#include "platform/GLibHandle.h"
#include "testing/BusMonitor.h"
#include "testing/RecordingLoggerDelegate.h"
#include "testing/SecretServiceDaemon.h"
#include "testing/UnresponsiveDBusName.h"

namespace velmor {
namespace {

inline void freeItemList(GList* list) { g_list_free_full(list, g_object_unref); }
inline void unrefSecretValue(SecretValue* value) { secret_value_unref(value); }
using ItemListHandle = GLibHandle<GList, freeItemList>;
using SecretValueHandle = GLibHandle<SecretValue, unrefSecretValue>;

using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

constexpr char kService[] = "Velmor ID (test-1)";
constexpr auto kPromptly = seconds(10);  // generous: only a hang fails it

// Outside its harness a keyring suite would write to the user's own keyring,
// so a suite skips when no scenario is named and fails under a wrong one.
class ScenarioTest : public ::testing::Test {
 protected:
  explicit ScenarioTest(std::string scenario) : scenario_(std::move(scenario)) {}
  void SetUp() override {
    const char* running = std::getenv("VELMOR_SECRET_SERVICE_SCENARIO");
    if (!running) GTEST_SKIP() << "runs under ctest, which sets up its Secret Service";
    ASSERT_EQ(running, scenario_);
  }

 private:
  std::string scenario_;
};

struct Step {
  const char* what;
  std::function<std::int32_t()> call;
  std::int32_t status;
};

void expectSteps(const std::vector<Step>& steps) {
  for (const Step& step : steps) {
    SCOPED_TRACE(step.what);
    auto start = Clock::now();
    EXPECT_EQ(step.call(), step.status);
    EXPECT_LT(Clock::now() - start, kPromptly);
  }
}

std::vector<Step> everyCallAnswering(SecretStore& store, std::int32_t status) {
  return {{"find", [&] { return store.find(kService, "a", nullptr); }, status},
          {"add", [&] { return store.add(kService, "a", Data{1}); }, status},
          {"update", [&] { return store.update(kService, "a", Data{2}); }, status},
          {"remove", [&] { return store.remove(kService, "a"); }, status}};
}

// Another client of the same Secret Service, through libsecret's own API.
const SecretSchema* schemaNamed(const char* name) {
  static std::map<std::string, SecretSchema> schemas;
  SecretSchema& schema = schemas[name];
  schema.name = name;
  schema.attributes[0] = {"service", SECRET_SCHEMA_ATTRIBUTE_STRING};
  schema.attributes[1] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
  schema.attributes[2] = {"encoding", SECRET_SCHEMA_ATTRIBUTE_STRING};
  return &schema;
}
const SecretSchema* librarySchema() { return schemaNamed("com.velmor.authorization.Item"); }
const SecretSchema* otherToolSchema() { return schemaNamed("org.example.OtherTool"); }

void storeDirectly(const SecretSchema* schema, const std::string& account,
                   const std::string& secret, const char* encoding = nullptr) {
  HashTableHandle attributes(
      secret_attributes_build(schema, "service", kService, "account", account.c_str(),
                              encoding ? "encoding" : nullptr, encoding, nullptr));
  SecretValueHandle value(secret_value_new(secret.data(), static_cast<gssize>(secret.size()),
                                           "application/octet-stream"));
  ErrorHandle error;
  ASSERT_TRUE(secret_service_store_sync(nullptr, schema, attributes.get(),
                                        SECRET_COLLECTION_DEFAULT, "made elsewhere", value.get(),
                                        nullptr, error.out()))
      << error.get()->message;
}

struct StoredItem {
  std::string label;
  std::map<std::string, std::string> attributes;
  std::string secret;
};

// Every item with the names, ordered by schema name.
std::vector<StoredItem> storedItems(const std::string& account) {
  HashTableHandle attributes(secret_attributes_build(otherToolSchema(), "service", kService,
                                                     "account", account.c_str(), nullptr));
  auto flags = static_cast<SecretSearchFlags>(SECRET_SEARCH_ALL | SECRET_SEARCH_LOAD_SECRETS);
  ItemListHandle items(
      secret_service_search_sync(nullptr, nullptr, attributes.get(), flags, nullptr, nullptr));
  std::vector<StoredItem> stored;
  for (GList* node = items.get(); node; node = node->next) {
    auto* item = static_cast<SecretItem*>(node->data);
    StoredItem& entry = stored.emplace_back();
    gchar* label = secret_item_get_label(item);
    entry.label = label;
    g_free(label);
    HashTableHandle table(secret_item_get_attributes(item));
    GHashTableIter at;
    gpointer key = nullptr, value = nullptr;
    g_hash_table_iter_init(&at, table.get());
    while (g_hash_table_iter_next(&at, &key, &value)) {
      entry.attributes[static_cast<char*>(key)] = static_cast<char*>(value);
    }
    SecretValueHandle secret(secret_item_get_secret(item));
    gsize length = 0;
    const gchar* bytes = secret_value_get(secret.get(), &length);
    entry.secret.assign(bytes, length);
  }
  std::sort(stored.begin(), stored.end(), [](const StoredItem& a, const StoredItem& b) {
    return a.attributes.at("xdg:schema") < b.attributes.at("xdg:schema");
  });
  return stored;
}

Data bytesOf(const std::string& text) { return Data(text.begin(), text.end()); }

class SecretServiceStoreTest : public ScenarioTest {
 protected:
  SecretServiceStoreTest() : ScenarioTest("keyring") {}
  SecretServiceStore store_;
};

TEST_F(SecretServiceStoreTest, AnswersTheKeychainStatuses) {
  Data found;
  expectSteps({
      {"find before add", [&] { return store_.find(kService, "a", &found); }, -25300},
      {"update before add", [&] { return store_.update(kService, "a", Data{1}); }, -25300},
      {"remove before add", [&] { return store_.remove(kService, "a"); }, -25300},
      {"add",
       [&] {
         return store_.add(kService, "a", Data{1, 2});
       },
       0},
      {"add again", [&] { return store_.add(kService, "a", Data{3}); }, -25299},
      {"add another account", [&] { return store_.add(kService, "b", Data{4}); }, 0},
      {"find without data", [&] { return store_.find(kService, "a", nullptr); }, 0},
      {"update",
       [&] {
         return store_.update(kService, "a", Data{5, 6});
       },
       0},
      {"find", [&] { return store_.find(kService, "a", &found); }, 0},
      {"remove", [&] { return store_.remove(kService, "a"); }, 0},
      {"find after remove", [&] { return store_.find(kService, "a", &found); }, -25300},
      {"remove again", [&] { return store_.remove(kService, "a"); }, -25300},
      {"other account kept", [&] { return store_.find(kService, "b", nullptr); }, 0},
  });
  EXPECT_EQ(found, (Data{5, 6}));
  EXPECT_TRUE(SecretServiceStore::isAvailable());
}

TEST_F(SecretServiceStoreTest, KeepsEveryByteAsBase64Text) {
  Data everyByte(256);
  for (std::size_t i = 0; i < everyByte.size(); ++i) everyByte[i] = static_cast<std::uint8_t>(i);
  const struct {
    const char* what;
    Data data;
  } cases[] = {
      {"NULs", Data{0, 0, 0}},
      {"empty", Data{}},
      {"every byte", everyByte},
      {"64 KiB", Data(65536, 0xA5)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    ASSERT_EQ(store_.add(kService, c.what, c.data), 0);
    Data found{9};
    ASSERT_EQ(store_.find(kService, c.what, &found), 0);
    EXPECT_EQ(found, c.data);
    Data reversed(c.data.rbegin(), c.data.rend());
    ASSERT_EQ(store_.update(kService, c.what, reversed), 0);
    ASSERT_EQ(store_.find(kService, c.what, &found), 0);
    EXPECT_EQ(found, reversed);
  }
  std::vector<StoredItem> stored = storedItems("NULs");
  ASSERT_EQ(stored.size(), 1u);
  EXPECT_EQ(stored[0].label, "Velmor ID (test-1) (NULs)");
  EXPECT_EQ(stored[0].secret, "AAAA");
  EXPECT_EQ(stored[0].attributes,
            (std::map<std::string, std::string>{{"service", kService},
                                                {"account", "NULs"},
                                                {"encoding", "base64"},
                                                {"xdg:schema", "com.velmor.authorization.Item"}}));
  EXPECT_EQ(storedItems("empty").at(0).secret, "");
}

TEST_F(SecretServiceStoreTest, ActsOnItemsOtherToolsMade) {
  const std::string raw("raw\0bytes", 9);
  storeDirectly(otherToolSchema(), "shared", raw);
  Data found;
  EXPECT_EQ(store_.find(kService, "shared", &found), 0);
  EXPECT_EQ(found, bytesOf(raw));  // no "encoding": taken as it is
  EXPECT_EQ(store_.add(kService, "shared", Data{1}), -25299);

  ASSERT_EQ(store_.remove(kService, "shared"), 0);
  ASSERT_EQ(store_.add(kService, "shared", Data{1}), 0);
  storeDirectly(otherToolSchema(), "shared", raw);
  ASSERT_EQ(storedItems("shared").size(), 2u);
  EXPECT_EQ(store_.add(kService, "shared", Data{2}), -25299);

  EXPECT_EQ(store_.update(kService, "shared", bytesOf("new")), 0);
  std::vector<StoredItem> stored = storedItems("shared");
  ASSERT_EQ(stored.size(), 2u);
  EXPECT_EQ(stored[0].secret, "bmV3");  // ours, as Base64
  EXPECT_EQ(stored[1].secret, "new");   // the other tool's, raw as it was
  EXPECT_EQ(store_.find(kService, "shared", &found), 0);
  EXPECT_EQ(found, bytesOf("new"));

  EXPECT_EQ(store_.remove(kService, "shared"), 0);
  EXPECT_TRUE(storedItems("shared").empty());
  EXPECT_EQ(store_.find(kService, "shared", nullptr), -25300);
}

// An item whose secret does not decode (edited by hand, written by another
// tool or a later version) answers -36 to reads, yet never blocks the names:
// add replaces it and remove deletes it.
TEST_F(SecretServiceStoreTest, ItemsThatDoNotDecodeNeverBlockTheNames) {
  const struct {
    const char* account;
    std::string secret;
    const char* encoding;
  } cases[] = {
      {"not Base64", "not Base64!", "base64"},
      {"NUL inside", std::string("QUJD\0QUJD", 9), "base64"},
      {"unknown encoding", "414243", "hex"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.account);
    storeDirectly(librarySchema(), c.account, c.secret, c.encoding);
    Data found{7};
    EXPECT_EQ(store_.find(kService, c.account, &found), -36);
    EXPECT_EQ(found, Data{7});
    EXPECT_EQ(store_.update(kService, c.account, Data{1}), -36);

    EXPECT_EQ(store_.add(kService, c.account, Data{2}), 0);
    std::vector<StoredItem> stored = storedItems(c.account);
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(stored[0].attributes.at("encoding"), "base64");
    EXPECT_EQ(store_.find(kService, c.account, &found), 0);
    EXPECT_EQ(found, Data{2});

    ASSERT_EQ(store_.remove(kService, c.account), 0);
    storeDirectly(librarySchema(), c.account, c.secret, c.encoding);
    EXPECT_EQ(store_.remove(kService, c.account), 0);
    EXPECT_TRUE(storedItems(c.account).empty());
  }
}

TEST_F(SecretServiceStoreTest, RefusesNamesTheBusCannotCarry) {
  for (const std::string& bad : {std::string("caf\xe9"), std::string("a\0b", 3)}) {
    for (const auto& [service, account] : {std::pair{bad, std::string("a")}, {kService, bad}}) {
      SCOPED_TRACE(service + "/" + account);
      EXPECT_EQ(store_.find(service, account, nullptr), -50);
      EXPECT_EQ(store_.add(service, account, Data{1}), -50);
      EXPECT_EQ(store_.update(service, account, Data{1}), -50);
      EXPECT_EQ(store_.remove(service, account), -50);
    }
  }
}

TEST_F(SecretServiceStoreTest, ServesManyThreadsAtOnce) {
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (std::uint8_t t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      std::string account = "thread " + std::to_string(t);
      Data found;
      if (store_.add(kService, account, Data{t}) != 0 ||
          store_.find(kService, account, &found) != 0 || found != Data{t} ||
          store_.remove(kService, account) != 0) {
        ++failures;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures, 0);
}

// One connection and one session serve every call of a store: a lookup
// costs what a bare libsecret lookup costs (a search and a read of the
// secrets, with the attributes asked for alongside).
TEST_F(SecretServiceStoreTest, KeepsOneSessionAndSearchesOncePerCall) {
  test::BusMonitor monitor;
  ASSERT_TRUE(monitor.watching());
  ASSERT_EQ(store_.add(kService, "session", Data{1}), 0);
  Data found;
  for (int i = 0; i < 5; ++i) ASSERT_EQ(store_.find(kService, "session", &found), 0);
  EXPECT_EQ(monitor.calls(), (std::map<std::string, int>{{"OpenSession", 1},
                                                         {"SearchItems", 6},
                                                         {"GetSecrets", 5},
                                                         {"Get", 5},
                                                         {"CreateItem", 1}}));
}

TEST_F(SecretServiceStoreTest, ChangesWhatItFoundWithoutSearchingAgain) {
  ASSERT_EQ(store_.add(kService, "handle", Data{1}), 0);
  std::unique_ptr<SecretStoreItem> item;
  Data found;
  ASSERT_EQ(store_.findItem(kService, "handle", &found, &item), 0);
  ASSERT_TRUE(item);
  EXPECT_EQ(found, Data{1});

  test::BusMonitor monitor;
  ASSERT_TRUE(monitor.watching());
  EXPECT_EQ(store_.updateItem(*item, Data{2}), 0);
  EXPECT_EQ(monitor.calls(), (std::map<std::string, int>{{"SetSecret", 1}}));
  EXPECT_EQ(store_.find(kService, "handle", &found), 0);
  EXPECT_EQ(found, Data{2});

  // Replaced by another tool meanwhile: the item now under the names is the
  // one changed, as an update by name would.
  ASSERT_EQ(store_.remove(kService, "handle"), 0);
  storeDirectly(otherToolSchema(), "handle", "raw");
  EXPECT_EQ(store_.updateItem(*item, Data{3}), 0);
  EXPECT_EQ(storedItems("handle").at(0).secret, std::string(1, '\3'));

  monitor.reset();
  ASSERT_EQ(store_.findItem(kService, "handle", nullptr, &item), 0);
  EXPECT_EQ(store_.removeItem(*item), 0);
  EXPECT_EQ(monitor.calls(),
            (std::map<std::string, int>{
                {"SearchItems", 1}, {"GetSecrets", 1}, {"Get", 1}, {"Delete", 1}}));
  EXPECT_EQ(store_.updateItem(*item, Data{4}), -25300);
  EXPECT_EQ(store_.removeItem(*item), -25300);
}

TEST_F(SecretServiceStoreTest, ReconnectsWhenTheDaemonWasRestarted) {
  ASSERT_EQ(store_.add(kService, "restart", Data{1}), 0);
  std::unique_ptr<SecretStoreItem> item;
  ASSERT_EQ(store_.findItem(kService, "restart", nullptr, &item), 0);
  test::SecretServiceDaemon daemon;
  ASSERT_TRUE(daemon.kill());
  ASSERT_TRUE(daemon.start());

  Data found;
  expectSteps({
      {"find", [&] { return store_.find(kService, "restart", &found); }, 0},
      {"update what was found before", [&] { return store_.updateItem(*item, Data{2}); }, 0},
      {"add", [&] { return store_.add(kService, "restart 2", Data{3}); }, 0},
  });
  EXPECT_EQ(store_.find(kService, "restart", &found), 0);
  EXPECT_EQ(found, Data{2});

  ASSERT_TRUE(daemon.kill());
  ASSERT_TRUE(daemon.start());
  EXPECT_EQ(store_.remove(kService, "restart 2"), 0);
}

TEST_F(SecretServiceStoreTest, SaysWhereItIsAndThatItCanBeUsed) {
  EXPECT_EQ(store_.description(), "Secret Service (default collection)");
  const SecretStoreCondition condition = store_.condition();
  EXPECT_EQ(condition.status, 0);
  EXPECT_EQ(condition.reason, "The Secret Service's default keyring \"Login\" is unlocked.");
}

class LockedCollectionTest : public ScenarioTest {
 protected:
  LockedCollectionTest() : ScenarioTest("locked") {}
};

TEST_F(LockedCollectionTest, TellsLockedItemsFromMissingOnes) {
  SecretServiceStore store(seconds(5));
  ASSERT_EQ(store.add(kService, "a", Data{1}), 0);
  ErrorHandle error;
  ObjectHandle<SecretService> service(
      secret_service_get_sync(SECRET_SERVICE_NONE, nullptr, error.out()));
  ObjectHandle<SecretCollection> collection(secret_collection_for_alias_sync(
      service.get(), SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE, nullptr, error.out()));
  ASSERT_TRUE(collection);
  GList objects{collection.get(), nullptr, nullptr};
  ASSERT_EQ(secret_service_lock_sync(service.get(), &objects, nullptr, nullptr, error.out()), 1);

  Data found{7};
  expectSteps({
      {"find", [&] { return store.find(kService, "a", &found); }, -25308},
      {"find without data", [&] { return store.find(kService, "a", nullptr); }, -25308},
      {"add existing", [&] { return store.add(kService, "a", Data{2}); }, -25308},
      {"add new", [&] { return store.add(kService, "b", Data{2}); }, -25308},
      {"update", [&] { return store.update(kService, "a", Data{2}); }, -25308},
      {"remove", [&] { return store.remove(kService, "a"); }, -25308},
      {"find missing", [&] { return store.find(kService, "b", nullptr); }, -25300},
  });
  EXPECT_EQ(found, Data{7});
  const SecretStoreCondition condition = store.condition();
  EXPECT_EQ(condition.status, -25308);
  EXPECT_EQ(condition.reason,
            "The Secret Service's default keyring \"Login\" is locked, so nothing can be read "
            "from it or saved in it; unlock it (for example in the desktop's password manager, "
            "Seahorse) and try again.");
}

class MissingCollectionTest : public ScenarioTest {
 protected:
  MissingCollectionTest() : ScenarioTest("no-keyring") {}
};

TEST_F(MissingCollectionTest, NothingCanBeAddedAndTheConditionSaysWhy) {
  SecretServiceStore store(seconds(5));
  expectSteps({
      {"find", [&] { return store.find(kService, "a", nullptr); }, -25300},
      {"add", [&] { return store.add(kService, "a", Data{1}); }, -25308},
  });
  const SecretStoreCondition condition = store.condition();
  EXPECT_EQ(condition.status, -25308);
  EXPECT_EQ(condition.reason,
            "The Secret Service has no default keyring, so nothing can be saved in it; create one "
            "(for example in the desktop's password manager, Seahorse) and try again.");
}

class NoSecretServiceTest : public ScenarioTest {
 protected:
  NoSecretServiceTest() : ScenarioTest("no-service") {}
};

TEST_F(NoSecretServiceTest, EveryCallAnswersNotAvailable) {
  SecretServiceStore store(seconds(2));
  expectSteps(everyCallAnswering(store, -25291));
  EXPECT_FALSE(SecretServiceStore::isAvailable());
  const SecretStoreCondition condition = store.condition();
  EXPECT_EQ(condition.status, -25291);
  EXPECT_EQ(condition.reason, "No Secret Service answers on the session bus.");
}

// A desktop bus without a keyring: files are used, and said so where errors go.
TEST_F(NoSecretServiceTest, TheFallBackToFilesIsLoggedAsAnError) {
  test::RecordingLoggerDelegate log;
  test::ScopedLogger logger(1, &log);
  ::unsetenv("VELMOR_SECRET_STORE");
  ::setenv("VELMOR_SECRET_STORE_DIR", "/tmp/velmor-fallback-test", 1);
  SecretStore::setDefault(nullptr);
  EXPECT_EQ(SecretStore::defaultStore()->description(), "files in '/tmp/velmor-fallback-test'");
  SecretStore::defaultStore();
  SecretStore::setDefault(nullptr);
  ::unsetenv("VELMOR_SECRET_STORE_DIR");
  EXPECT_EQ(log.messages(),
            std::vector<std::string>{"ERROR\tSecret store: files in '/tmp/velmor-fallback-test': a "
                                     "session bus exists but no Secret Service answers on it (set "
                                     "VELMOR_SECRET_STORE=file to choose files on purpose)"});
}

class HungSecretServiceTest : public ScenarioTest {
 protected:
  HungSecretServiceTest() : ScenarioTest("hung") {}
};

TEST_F(HungSecretServiceTest, EveryCallAnswersNotAvailableAfterTheDeadline) {
  test::UnresponsiveDBusName hung("org.freedesktop.secrets");
  ASSERT_TRUE(hung.owned());
  SecretServiceStore store(milliseconds(500));
  expectSteps(everyCallAnswering(store, -25291));
  EXPECT_TRUE(SecretServiceStore::isAvailable(milliseconds(500)));  // the name has an owner
  EXPECT_EQ(store.condition().reason, "The Secret Service did not answer in time.");
}

class BusKilledTest : public ScenarioTest {
 protected:
  BusKilledTest() : ScenarioTest("bus-killed") {}
};

// The bus going away must neither end the process (GIO's shared connection
// would raise SIGTERM) nor leave the call waiting for its deadline.
TEST_F(BusKilledTest, ACallInFlightAnswersNotAvailableAndTheProcessLives) {
  test::UnresponsiveDBusName hung("org.freedesktop.secrets");
  ASSERT_TRUE(hung.owned());
  SecretServiceStore store(std::chrono::minutes(10));
  auto start = Clock::now();
  auto pending = std::async(std::launch::async, [&] { return store.find(kService, "a", nullptr); });
  ASSERT_TRUE(hung.waitForCall(kPromptly));
  ASSERT_TRUE(test::SecretServiceDaemon().killBus());
  ASSERT_EQ(pending.wait_for(kPromptly), std::future_status::ready);
  EXPECT_EQ(pending.get(), -25291);
  EXPECT_LT(Clock::now() - start, kPromptly);
  expectSteps(everyCallAnswering(store, -25291));
  EXPECT_EQ(store.condition().reason,
            "The session bus does not answer, so no Secret Service can be reached.");
}

class NoSessionBusTest : public ScenarioTest {
 protected:
  NoSessionBusTest() : ScenarioTest("no-bus") {}
};

TEST_F(NoSessionBusTest, EveryCallAnswersNotAvailableAtOnce) {
  // A deadline far beyond kPromptly: answering in time proves nothing waited.
  SecretServiceStore store(std::chrono::minutes(10));
  for (const char* address : {static_cast<const char*>(nullptr), "", "autolaunch:"}) {
    SCOPED_TRACE(address ? address : "unset");
    if (address) {
      setenv("DBUS_SESSION_BUS_ADDRESS", address, 1);
    } else {
      unsetenv("DBUS_SESSION_BUS_ADDRESS");
    }
    expectSteps(everyCallAnswering(store, -25291));
    EXPECT_FALSE(SecretServiceStore::isAvailable(std::chrono::minutes(10)));
    EXPECT_EQ(store.condition().reason,
              "No session bus is known to this process (DBUS_SESSION_BUS_ADDRESS is not set), so "
              "no Secret Service can be reached.");
  }
}

}  // namespace
}  // namespace velmor
