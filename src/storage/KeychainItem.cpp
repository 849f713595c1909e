#include "storage/KeychainItem.h"

#include <utility>

#include "velmor/SecretStore.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor {

namespace {

constexpr char kFindCall[] = "SecKeychainFindGenericPassword";
constexpr char kAddCall[] = "SecKeychainAddGenericPassword";
constexpr char kModifyCall[] = "SecKeychainItemModifyContent";
constexpr char kDeleteCall[] = "SecKeychainItemDelete";

ErrorRef keychainError(const char* call, std::int32_t status) {
  return std::make_shared<VelmorAuthorizationError>(call, status);
}

void report(ErrorRef* error, const char* call, std::int32_t status) {
  if (error) *error = keychainError(call, status);
}

}  // namespace

KeychainItem::KeychainItem(std::string serviceName, std::string accountName, Data itemData)
    : serviceName_(std::move(serviceName)),
      accountName_(std::move(accountName)),
      itemData_(std::move(itemData)) {}

std::shared_ptr<KeychainItem> KeychainItem::findByServiceName(const std::string& serviceName,
                                                              const std::string& accountName,
                                                              ErrorRef* error) {
  Data data;
  std::int32_t status = SecretStore::defaultStore()->find(serviceName, accountName, &data);
  if (status == kSecretStoreItemNotFound) return nullptr;
  if (status != kSecretStoreSuccess) {
    report(error, kFindCall, status);
    return nullptr;
  }
  return std::make_shared<KeychainItem>(serviceName, accountName, std::move(data));
}

std::shared_ptr<KeychainItem> KeychainItem::addWithServiceName(const std::string& serviceName,
                                                               const std::string& accountName,
                                                               const Data& data,
                                                               std::int64_t /*accessLevel*/,
                                                               ErrorRef* error) {
  std::int32_t status = SecretStore::defaultStore()->add(serviceName, accountName, data);
  if (status != kSecretStoreSuccess) {
    report(error, kAddCall, status);
    return nullptr;
  }
  return std::make_shared<KeychainItem>(serviceName, accountName, data);
}

ErrorRef KeychainItem::deleteKeychainItemWithServiceName(const std::string& serviceName,
                                                         const std::string& accountName) {
  ErrorRef ignored;
  std::shared_ptr<KeychainItem> item = findByServiceName(serviceName, accountName, &ignored);
  return item ? item->deleteItem() : nullptr;
}

ErrorRef KeychainItem::updateData(const Data& data, std::int64_t /*accessLevel*/) {
  std::shared_ptr<SecretStore> store = SecretStore::defaultStore();
  // Found again each time, so an instance stays usable after the item was replaced.
  std::int32_t status = store->find(serviceName_, accountName_, nullptr);
  if (status != kSecretStoreSuccess) return keychainError(kFindCall, status);
  status = store->update(serviceName_, accountName_, data);
  if (status != kSecretStoreSuccess) return keychainError(kModifyCall, status);
  itemData_ = data;
  return nullptr;
}

ErrorRef KeychainItem::deleteItem() {
  std::shared_ptr<SecretStore> store = SecretStore::defaultStore();
  std::int32_t status = store->find(serviceName_, accountName_, nullptr);
  if (status == kSecretStoreItemNotFound) return nullptr;
  if (status != kSecretStoreSuccess) return keychainError(kFindCall, status);
  status = store->remove(serviceName_, accountName_);
  if (status == kSecretStoreSuccess || status == kSecretStoreItemNotFound) return nullptr;
  return keychainError(kDeleteCall, status);
}

}  // namespace velmor
