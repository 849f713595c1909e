#include "storage/KeychainItem.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/StoredSecretItem.h"
#include "testing/FaultySecretStore.h"
#include "testing/RecordingLoggerDelegate.h"
#include "testing/ScopedSecretStore.h"
#include "testing/TemporaryDirectory.h"
#include "velmor/FileSecretStore.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor {
namespace {

using Lines = std::vector<std::string>;

class KeychainItemTest : public ::testing::Test {
 protected:
  std::shared_ptr<test::FaultySecretStore> store_ = std::make_shared<test::FaultySecretStore>();
  test::ScopedSecretStore scope_{store_};
  test::RecordingLoggerDelegate log_;
  test::ScopedLogger loggerScope_{1, &log_};
};

void expectKeychainError(const ErrorRef& error, const char* call, std::int64_t status) {
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), AuthorizationClientErrorDomain);
  EXPECT_EQ(error->code(), status);
  std::string description = error->description().value_or("");
  EXPECT_NE(description.find(std::string(" in ") + call), std::string::npos) << description;
}

TEST_F(KeychainItemTest, FindTellsAbsenceFromFailure) {
  ErrorRef error = std::make_shared<Error>("earlier", 1);
  ErrorRef earlier = error;
  EXPECT_EQ(KeychainItem::findByServiceName("S", "A", &error), nullptr);
  EXPECT_EQ(error, earlier);  // absence leaves the error alone

  store_->findFault = kSecretStoreNotAvailable;
  EXPECT_EQ(KeychainItem::findByServiceName("S", "A", &error), nullptr);
  expectKeychainError(error, "SecKeychainFindGenericPassword", -25291);
}

TEST_F(KeychainItemTest, AddsFindsUpdatesAndDeletes) {
  ErrorRef error;
  auto added = KeychainItem::addWithServiceName("S", "A", Data{}, 0, &error);
  ASSERT_TRUE(added);
  EXPECT_FALSE(error);
  auto found = KeychainItem::findByServiceName("S", "A", &error);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->data(), Data{});  // empty data is data, not absence
  EXPECT_EQ(found->serviceName() + "/" + found->accountName(), "S/A");

  EXPECT_EQ(KeychainItem::addWithServiceName("S", "A", Data{1}, 0, &error), nullptr);
  expectKeychainError(error, "SecKeychainAddGenericPassword", -25299);

  EXPECT_EQ(found->updateData(Data{1, 2}, 0), nullptr);
  EXPECT_EQ(found->itemData(), (Data{1, 2}));
  EXPECT_EQ(KeychainItem::findByServiceName("S", "A", &error)->data(), (Data{1, 2}));
  EXPECT_EQ(added->updateData(Data{3}, 0), nullptr);  // an added item is found by name
  EXPECT_EQ(KeychainItem::findByServiceName("S", "A", &error)->data(), Data{3});

  EXPECT_EQ(found->deleteItem(), nullptr);
  EXPECT_EQ(found->deleteItem(), nullptr);  // already gone counts as deleted
  expectKeychainError(found->updateData(Data{4}, 0), "SecKeychainFindGenericPassword", -25300);
  EXPECT_EQ(found->itemData(), (Data{1, 2}));
  EXPECT_EQ(KeychainItem::deleteKeychainItemWithServiceName("S", "A"), nullptr);
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(KeychainItemTest, ChangesWhatTheFindFoundWithoutSearchingAgain) {
  ASSERT_EQ(store_->target()->add("S", "A", Data{1}), 0);
  ErrorRef error;
  auto item = KeychainItem::findByServiceName("S", "A", &error);
  ASSERT_TRUE(item);
  ASSERT_EQ(item->updateData(Data{2}, 0), nullptr);
  ASSERT_EQ(item->deleteItem(), nullptr);
  EXPECT_EQ(store_->finds, 1);
  EXPECT_EQ(store_->updates, 1);
  EXPECT_EQ(store_->removes, 1);
}

TEST_F(KeychainItemTest, ReportsWhichCallFailed) {
  ErrorRef error;
  auto item = KeychainItem::addWithServiceName("S", "A", Data{1}, 0, &error);
  ASSERT_TRUE(item);
  store_->updateFault = -36;
  expectKeychainError(item->updateData(Data{2}, 0), "SecKeychainItemModifyContent", -36);
  EXPECT_EQ(item->itemData(), Data{1});
  store_->removeFault = -61;
  expectKeychainError(item->deleteItem(), "SecKeychainItemDelete", -61);
  expectKeychainError(KeychainItem::deleteKeychainItemWithServiceName("S", "A"),
                      "SecKeychainItemDelete", -61);
}

// A search that fails no longer hides the item from deletion: the store is
// asked to remove it anyway, and only its refusal is an error.
TEST_F(KeychainItemTest, DeleteByNamesRemovesWhatTheSearchCannotRead) {
  const struct {
    const char* what;
    std::int32_t findFault;
    std::int32_t removeFault;
    std::int32_t errorStatus;  // 0: no error
    bool removed;
  } cases[] = {
      {"item that does not decode", -36, 0, 0, true},
      {"locked store", -25308, -25308, -25308, false},
      {"no store answering", -25291, -25291, -25291, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    ASSERT_EQ(store_->target()->add("S", "A", Data{1}), 0);
    store_->findFault = c.findFault;
    store_->removeFault = c.removeFault;
    ErrorRef error = KeychainItem::deleteKeychainItemWithServiceName("S", "A");
    store_->findFault = store_->removeFault = 0;
    if (c.errorStatus) {
      expectKeychainError(error, "SecKeychainItemDelete", c.errorStatus);
    } else {
      EXPECT_FALSE(error);
    }
    EXPECT_EQ(store_->target()->find("S", "A", nullptr), c.removed ? -25300 : 0);
    store_->target()->remove("S", "A");
  }
}

TEST_F(KeychainItemTest, DeleteByNamesRemovesADamagedFile) {
  test::TemporaryDirectory directory;
  auto files = std::make_shared<FileSecretStore>(directory.path());
  test::ScopedSecretStore scope(files);
  ASSERT_EQ(files->add("S", "A", Data{1}), 0);
  directory.writeFile(StoredSecretItem::fileNameFor("S", "A"), "not a property list");
  ErrorRef error;
  ASSERT_EQ(KeychainItem::findByServiceName("S", "A", &error), nullptr);
  expectKeychainError(error, "SecKeychainFindGenericPassword", -36);

  EXPECT_EQ(KeychainItem::deleteKeychainItemWithServiceName("S", "A"), nullptr);
  EXPECT_FALSE(std::filesystem::exists(directory.pathOf(StoredSecretItem::fileNameFor("S", "A"))));
}

TEST_F(KeychainItemTest, SaysOnceWhyALockedStoreRefuses) {
  const std::string line = std::string("ERROR\t") + test::FaultySecretStore::kConditionFaultReason;
  ErrorRef error;
  store_->findFault = store_->addFault = store_->conditionFault = -25308;
  KeychainItem::findByServiceName("S", "A", &error);
  KeychainItem::addWithServiceName("S", "A", Data{1}, 0, &error);
  KeychainItem::findByServiceName("S", "A", &error);
  EXPECT_EQ(log_.messages(), Lines{line});
  EXPECT_EQ(store_->conditions, 1);

  // Answering normally in between makes the next refusal worth a line again.
  store_->findFault = store_->addFault = 0;
  KeychainItem::findByServiceName("S", "A", &error);
  EXPECT_EQ(log_.messages(), Lines{line});
  ASSERT_TRUE(KeychainItem::addWithServiceName("S", "A", Data{1}, 0, &error));
  store_->findFault = -25308;
  KeychainItem::findByServiceName("S", "A", &error);
  EXPECT_EQ(log_.messages(), (Lines{line, line}));

  // A store that is usable by the time it is asked has nothing to explain.
  store_->findFault = 0;
  KeychainItem::findByServiceName("S", "A", &error);
  store_->findFault = -25308;
  store_->conditionFault = 0;
  KeychainItem::findByServiceName("S", "A", &error);
  EXPECT_EQ(log_.messages(), (Lines{line, line}));
}

}  // namespace
}  // namespace velmor
