#include "storage/KeychainItem.h"

#include <gtest/gtest.h>

#include "testing/FaultySecretStore.h"
#include "testing/ScopedSecretStore.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor {
namespace {

class KeychainItemTest : public ::testing::Test {
 protected:
  std::shared_ptr<test::FaultySecretStore> store_ = std::make_shared<test::FaultySecretStore>();
  test::ScopedSecretStore scope_{store_};
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

  EXPECT_EQ(KeychainItem::addWithServiceName("S", "A", Data{1}, 0, &error), nullptr);
  expectKeychainError(error, "SecKeychainAddGenericPassword", -25299);

  EXPECT_EQ(found->updateData(Data{1, 2}, 0), nullptr);
  EXPECT_EQ(found->itemData(), (Data{1, 2}));
  EXPECT_EQ(KeychainItem::findByServiceName("S", "A", &error)->data(), (Data{1, 2}));

  EXPECT_EQ(found->deleteItem(), nullptr);
  EXPECT_EQ(found->deleteItem(), nullptr);  // already gone counts as deleted
  expectKeychainError(found->updateData(Data{3}, 0), "SecKeychainFindGenericPassword", -25300);
  EXPECT_EQ(found->itemData(), (Data{1, 2}));
  EXPECT_EQ(KeychainItem::deleteKeychainItemWithServiceName("S", "A"), nullptr);
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
  // Deleting by names drops a failed search but reports a failed delete.
  expectKeychainError(KeychainItem::deleteKeychainItemWithServiceName("S", "A"),
                      "SecKeychainItemDelete", -61);
  store_->findFault = -25291;
  EXPECT_EQ(KeychainItem::deleteKeychainItemWithServiceName("S", "A"), nullptr);
  expectKeychainError(item->deleteItem(), "SecKeychainFindGenericPassword", -25291);
}

}  // namespace
}  // namespace velmor
