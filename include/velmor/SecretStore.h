// Where the library keeps its secrets: the user's secret store, keyed by a
// service and an account name, answering with the keychain's status codes.
#ifndef VELMOR_SECRET_STORE_H_
#define VELMOR_SECRET_STORE_H_

#include <cstdint>
#include <memory>
#include <string>

#include "velmor/Data.h"
#include "velmor/Export.h"

namespace velmor {

// Status codes of secret-store operations. Besides these, implementations
// pass on other keychain statuses (for example -36 for an I/O error).
enum SecretStoreStatus : std::int32_t {
  kSecretStoreSuccess = 0,
  kSecretStoreParameterError = -50,            // a name or the data cannot be stored
  kSecretStoreIoError = -36,                   // reading or writing failed
  kSecretStoreNotAvailable = -25291,           // no secret store answers (or it hung)
  kSecretStoreDuplicateItem = -25299,          // add: an item with these names exists
  kSecretStoreItemNotFound = -25300,           // find, update, remove: no such item
  kSecretStoreInteractionNotAllowed = -25308,  // the item exists but stays locked
};

// One item per (service, account) pair holding a block of bytes. Every call
// is synchronous and safe to make from any thread; implementations never
// block without bound (a store that does not answer gives
// kSecretStoreNotAvailable).
class VELMOR_EXPORT SecretStore {
 public:
  virtual ~SecretStore();

  // kSecretStoreSuccess and the item's bytes in `data` (which may be null to
  // test for the item only), or a status.
  virtual std::int32_t find(const std::string& service, const std::string& account, Data* data) = 0;
  // Adds a new item; kSecretStoreDuplicateItem when one exists already.
  virtual std::int32_t add(const std::string& service, const std::string& account,
                           const Data& data) = 0;
  // Replaces an item's bytes; kSecretStoreItemNotFound when it is missing.
  virtual std::int32_t update(const std::string& service, const std::string& account,
                              const Data& data) = 0;
  // Removes an item; kSecretStoreItemNotFound when it is missing.
  virtual std::int32_t remove(const std::string& service, const std::string& account) = 0;

  // The store the library uses. Chosen on first use unless set: the
  // environment's VELMOR_SECRET_STORE ("secret-service", "file" or "memory",
  // with VELMOR_SECRET_STORE_DIR for the file store's directory), else the
  // Secret Service when a session bus answers, else the file store. The
  // choice is logged once at info level.
  static std::shared_ptr<SecretStore> defaultStore();
  // Replaces the default; nullptr returns to the automatic choice.
  static void setDefault(std::shared_ptr<SecretStore> store);
};

// Forwards every call to another store; subclass it to change one call
// (to inject a failure, count calls, ...).
class VELMOR_EXPORT SecretStoreWrapper : public SecretStore {
 public:
  explicit SecretStoreWrapper(std::shared_ptr<SecretStore> target) : target_(std::move(target)) {}

  std::int32_t find(const std::string& service, const std::string& account, Data* data) override {
    return target_->find(service, account, data);
  }
  std::int32_t add(const std::string& service, const std::string& account,
                   const Data& data) override {
    return target_->add(service, account, data);
  }
  std::int32_t update(const std::string& service, const std::string& account,
                      const Data& data) override {
    return target_->update(service, account, data);
  }
  std::int32_t remove(const std::string& service, const std::string& account) override {
    return target_->remove(service, account);
  }

  const std::shared_ptr<SecretStore>& target() const { return target_; }

 private:
  std::shared_ptr<SecretStore> target_;
};

}  // namespace velmor

#endif  // VELMOR_SECRET_STORE_H_
