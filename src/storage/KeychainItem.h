// One item of the user's secret store, the library's only door to it.
#ifndef VELMOR_STORAGE_KEYCHAIN_ITEM_H_
#define VELMOR_STORAGE_KEYCHAIN_ITEM_H_

#include <cstdint>
#include <memory>
#include <string>

#include "velmor/Data.h"
#include "velmor/Error.h"
#include "velmor/SecretStore.h"

namespace velmor {

// A generic-password item identified by a service and an account name,
// with its data as last read or written, kept in SecretStore::defaultStore().
// Failures come back as VelmorAuthorizationErrors in the client domain whose
// code is the store's status and whose text names the keychain call that
// failed ("SecKeychainFindGenericPassword", "SecKeychainAddGenericPassword",
// "SecKeychainItemModifyContent", "SecKeychainItemDelete"); nothing throws.
//
// An item keeps the store's handle on what it found or added, so updating
// or deleting it costs no second search; the store still acts by name when
// the item was replaced meanwhile. A store that answers "locked"
// (kSecretStoreInteractionNotAllowed) gets its condition logged at level 1,
// once until it next answers normally.
//
// Instances share no state; the store serialises the calls.
class KeychainItem final {
 public:
  KeychainItem(std::shared_ptr<SecretStore> store, std::unique_ptr<SecretStoreItem> handle,
               Data itemData);

  // The item with a copy of its data, or nullptr. A missing item is not an
  // error: `*error` is left untouched, so callers can tell absence from
  // failure by the error alone.
  static std::shared_ptr<KeychainItem> findByServiceName(const std::string& serviceName,
                                                         const std::string& accountName,
                                                         ErrorRef* error);
  // Adds a new item; fails (duplicate-item status -25299) when one exists.
  // The access level is accepted and ignored.
  static std::shared_ptr<KeychainItem> addWithServiceName(const std::string& serviceName,
                                                          const std::string& accountName,
                                                          const Data& data,
                                                          std::int64_t accessLevel,
                                                          ErrorRef* error);
  // Deletes whatever lies under the names. When the search fails (a damaged
  // item, a locked store) the store is still asked to remove it, and its
  // refusal is the error; only a missing item is silently nothing.
  static ErrorRef deleteKeychainItemWithServiceName(const std::string& serviceName,
                                                    const std::string& accountName);

  // Replaces the stored data; an item that is gone is an error
  // ("SecKeychainFindGenericPassword", -25300).
  ErrorRef updateData(const Data& data, std::int64_t accessLevel);
  // Deletes the item; an item that is already gone counts as deleted.
  ErrorRef deleteItem();

  const std::string& serviceName() const { return handle_->service(); }
  const std::string& accountName() const { return handle_->account(); }
  const Data& itemData() const { return itemData_; }
  const Data& data() const { return itemData_; }

 private:
  std::shared_ptr<SecretStore> store_;
  std::unique_ptr<SecretStoreItem> handle_;
  Data itemData_;
};

}  // namespace velmor

#endif  // VELMOR_STORAGE_KEYCHAIN_ITEM_H_
