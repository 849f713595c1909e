#include "storage/KeychainItem.h"

#include <utility>

#include "platform/Mutex.h"
#include "velmor/VelmorAuthorizationError.h"
#include "velmor/VelmorAuthorizationLogger.h"

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

// The store last reported as locked. A locked keyring turns every write
// into a failure that is otherwise logged only as a status, so the user is
// told once, in the store's own words, what is wrong and what to do; again
// only after the store has answered normally in between.
Mutex lockedStoreMutex;
std::weak_ptr<SecretStore> reportedStore GUARDED_BY(lockedStoreMutex);

bool isReported(const std::shared_ptr<SecretStore>& store) REQUIRES(lockedStoreMutex) {
  return !reportedStore.owner_before(store) && !store.owner_before(reportedStore) &&
         !reportedStore.expired();
}

void noteAnswer(const std::shared_ptr<SecretStore>& store, std::int32_t status) {
  if (status == kSecretStoreSuccess) {
    MutexLock lock(lockedStoreMutex);
    if (isReported(store)) reportedStore.reset();
    return;
  }
  if (status != kSecretStoreInteractionNotAllowed) return;
  {
    MutexLock lock(lockedStoreMutex);
    if (isReported(store)) return;
    reportedStore = store;
  }
  // Asked outside the lock: it may take a round trip to the store.
  const SecretStoreCondition condition = store->condition();
  if (condition.usable()) return;  // unlocked meanwhile
  VelmorAuthorizationLogger::sharedLogger().log(condition.reason,
                                                VelmorAuthorizationLogger::kLevelError);
}

}  // namespace

KeychainItem::KeychainItem(std::shared_ptr<SecretStore> store,
                           std::unique_ptr<SecretStoreItem> handle, Data itemData)
    : store_(std::move(store)), handle_(std::move(handle)), itemData_(std::move(itemData)) {}

std::shared_ptr<KeychainItem> KeychainItem::findByServiceName(const std::string& serviceName,
                                                              const std::string& accountName,
                                                              ErrorRef* error) {
  std::shared_ptr<SecretStore> store = SecretStore::defaultStore();
  Data data;
  std::unique_ptr<SecretStoreItem> handle;
  const std::int32_t status = store->findItem(serviceName, accountName, &data, &handle);
  noteAnswer(store, status);
  if (status == kSecretStoreItemNotFound) return nullptr;
  if (status != kSecretStoreSuccess) {
    report(error, kFindCall, status);
    return nullptr;
  }
  return std::make_shared<KeychainItem>(std::move(store), std::move(handle), std::move(data));
}

std::shared_ptr<KeychainItem> KeychainItem::addWithServiceName(const std::string& serviceName,
                                                               const std::string& accountName,
                                                               const Data& data,
                                                               std::int64_t /*accessLevel*/,
                                                               ErrorRef* error) {
  std::shared_ptr<SecretStore> store = SecretStore::defaultStore();
  const std::int32_t status = store->add(serviceName, accountName, data);
  noteAnswer(store, status);
  if (status != kSecretStoreSuccess) {
    report(error, kAddCall, status);
    return nullptr;
  }
  // Later changes go by name: the store has shown nothing to hold on to.
  return std::make_shared<KeychainItem>(
      std::move(store), std::make_unique<SecretStoreItem>(serviceName, accountName), data);
}

ErrorRef KeychainItem::deleteKeychainItemWithServiceName(const std::string& serviceName,
                                                         const std::string& accountName) {
  ErrorRef ignored;
  if (std::shared_ptr<KeychainItem> item = findByServiceName(serviceName, accountName, &ignored)) {
    return item->deleteItem();
  }
  if (!ignored) return nullptr;  // nothing there
  // The search failed, yet something may lie under the names that the store
  // can still remove (an item whose bytes do not decode); if it cannot, its
  // answer says why, and the caller must not think the item is gone.
  std::shared_ptr<SecretStore> store = SecretStore::defaultStore();
  const std::int32_t status = store->remove(serviceName, accountName);
  noteAnswer(store, status);
  if (status == kSecretStoreSuccess || status == kSecretStoreItemNotFound) return nullptr;
  return keychainError(kDeleteCall, status);
}

ErrorRef KeychainItem::updateData(const Data& data, std::int64_t /*accessLevel*/) {
  const std::int32_t status = store_->updateItem(*handle_, data);
  noteAnswer(store_, status);
  // Gone since it was found: the search for it is what failed.
  if (status == kSecretStoreItemNotFound) return keychainError(kFindCall, status);
  if (status != kSecretStoreSuccess) return keychainError(kModifyCall, status);
  itemData_ = data;
  return nullptr;
}

ErrorRef KeychainItem::deleteItem() {
  const std::int32_t status = store_->removeItem(*handle_);
  noteAnswer(store_, status);
  if (status == kSecretStoreSuccess || status == kSecretStoreItemNotFound) return nullptr;
  return keychainError(kDeleteCall, status);
}

}  // namespace velmor
