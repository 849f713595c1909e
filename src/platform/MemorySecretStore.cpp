#include "velmor/MemorySecretStore.h"

#include "platform/IdentityLock.h"
#include "support/Format.h"

namespace velmor {

std::int32_t MemorySecretStore::find(const std::string& service, const std::string& account,
                                     Data* data) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = items_.find({service, account});
  if (it == items_.end()) return kSecretStoreItemNotFound;
  if (data) *data = it->second;
  return kSecretStoreSuccess;
}

std::int32_t MemorySecretStore::add(const std::string& service, const std::string& account,
                                    const Data& data) {
  std::lock_guard<std::mutex> lock(mutex_);
  bool inserted = items_.emplace(Key{service, account}, data).second;
  return inserted ? kSecretStoreSuccess : kSecretStoreDuplicateItem;
}

std::int32_t MemorySecretStore::update(const std::string& service, const std::string& account,
                                       const Data& data) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = items_.find({service, account});
  if (it == items_.end()) return kSecretStoreItemNotFound;
  it->second = data;
  return kSecretStoreSuccess;
}

std::int32_t MemorySecretStore::remove(const std::string& service, const std::string& account) {
  std::lock_guard<std::mutex> lock(mutex_);
  return items_.erase({service, account}) ? kSecretStoreSuccess : kSecretStoreItemNotFound;
}

std::int32_t MemorySecretStore::lockItem(const std::string& service, const std::string& account,
                                         std::chrono::milliseconds timeout, SecretStoreLock* lock) {
  // Named by this store as well: another store's item of these names is
  // another item.
  return IdentityLock::lockInProcess(
      stringWithFormat("%p", static_cast<const void*>(this)) + '\0' + service + '\0' + account,
      timeout, lock);
}

SecretStoreCondition MemorySecretStore::condition() {
  return {kSecretStoreSuccess,
          "Items are kept in this process's memory only and are gone when it ends."};
}

std::string MemorySecretStore::description() const { return "memory"; }

std::size_t MemorySecretStore::itemCount() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return items_.size();
}

}  // namespace velmor
