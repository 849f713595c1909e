// Where the library keeps its secrets: the user's secret store, keyed by a
// service and an account name, answering with the keychain's status codes.
#ifndef VELMOR_SECRET_STORE_H_
#define VELMOR_SECRET_STORE_H_

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

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
  kSecretStoreInteractionNotAllowed = -25308,  // locked, or no collection to keep items in
};

// Whether a store can be used now, and why not (SecretStore::condition).
struct SecretStoreCondition {
  // kSecretStoreSuccess when the store can be used; otherwise the status its
  // calls answer (kSecretStoreInteractionNotAllowed for a locked or missing
  // keyring, kSecretStoreNotAvailable when nothing answers, ...).
  std::int32_t status = kSecretStoreSuccess;
  // One plain English sentence for people, naming the store and what to do
  // about it ("The Secret Service's default keyring \"Login\" is locked ...").
  std::string reason;

  bool usable() const { return status == kSecretStoreSuccess; }
};

// An item as SecretStore::findItem found it, so that updateItem and
// removeItem act on it without searching again. Stores that can keep a
// reference to an item derive their own kind; this base kind holds the names
// only, and the calls given one act by name. A plain value owned by the
// caller: it holds no connection and may outlive its store, after which it
// is merely useless.
class VELMOR_EXPORT SecretStoreItem {
 public:
  SecretStoreItem(std::string service, std::string account)
      : service_(std::move(service)), account_(std::move(account)) {}
  virtual ~SecretStoreItem();
  SecretStoreItem(const SecretStoreItem&) = delete;
  SecretStoreItem& operator=(const SecretStoreItem&) = delete;

  const std::string& service() const { return service_; }
  const std::string& account() const { return account_; }

 private:
  std::string service_;
  std::string account_;
};

// Status of lockItem when the item's lock stayed taken for the whole wait
// (the platform's POSIX "Operation timed out").
constexpr std::int32_t kSecretStoreTimedOut = 100060;

// Holds a store's lock on one item from SecretStore::lockItem until it is
// destroyed or unlock() is called, on whichever thread. Move-only; an
// empty one holds nothing.
class VELMOR_EXPORT SecretStoreLock final {
 public:
  // What a store keeps while the lock is held; destroying it lets go.
  class Holder {
   public:
    virtual ~Holder() = default;
  };

  SecretStoreLock() = default;
  explicit SecretStoreLock(std::unique_ptr<Holder> holder) : holder_(std::move(holder)) {}
  SecretStoreLock(SecretStoreLock&&) noexcept = default;
  SecretStoreLock& operator=(SecretStoreLock&&) noexcept = default;
  SecretStoreLock(const SecretStoreLock&) = delete;
  SecretStoreLock& operator=(const SecretStoreLock&) = delete;

  bool ownsLock() const { return holder_ != nullptr; }
  void unlock() { holder_.reset(); }

 private:
  std::unique_ptr<Holder> holder_;
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

  // Finding an item once and then changing it: findItem answers as find()
  // does and, on success, puts a handle on what it found in `*item` (when
  // given), for updateItem and removeItem. The defaults call find(),
  // update() and remove() with the names; stores that keep a connection
  // override them so that a read followed by a write costs one search, not
  // two.
  virtual std::int32_t findItem(const std::string& service, const std::string& account, Data* data,
                                std::unique_ptr<SecretStoreItem>* item);
  // Replaces the bytes of the item `item` stands for; kSecretStoreItemNotFound
  // when it is gone. An item that was replaced meanwhile under the same names
  // is updated, as update() would.
  virtual std::int32_t updateItem(SecretStoreItem& item, const Data& data);
  // Removes the item `item` stands for, as remove() would.
  virtual std::int32_t removeItem(SecretStoreItem& item);

  // Whether the store can be used now and, if not, why. May ask the store
  // (one round trip to a Secret Service), so call it when a user is about to
  // save something, not in a loop. The default answers "usable".
  virtual SecretStoreCondition condition();
  // What the store is and where it keeps its items, for people:
  // "Secret Service (default collection)", "files in '<directory>'",
  // "memory". The default says it is the application's own.
  virtual std::string description() const;

  // Takes the lock of the item (service, account), which every thread and
  // every process of the user honours, waiting at most `timeout` for its
  // holder to let go. kSecretStoreSuccess with the lock in `*lock`,
  // kSecretStoreTimedOut when the wait ran out, or another status when no
  // lock can be had (-36 when its file cannot be made or opened). The item
  // need not exist. A thread that holds the lock may take it again: the
  // holders nest, and the item is free once the thread's last one is gone.
  //
  // The lock is advisory: find, add, update and remove neither take it nor
  // wait for it. Those who read an item, change it and write it back take
  // it around the three, so that no change of another is lost.
  //
  // This default keeps one lock file per item, named by the hex SHA-256 of
  // service, NUL, account and ".lock", in the directory "velmor-authorization"
  // of the user's runtime directory: $XDG_RUNTIME_DIR when it is an absolute
  // path to a directory of the user's that nobody else may enter, else
  // /run/user/<uid> on the same terms (so that processes started without the
  // variable, by cron say, meet the desktop's), else
  // $XDG_DATA_HOME/velmor-authorization/locks (~/.local/share by default).
  // Directories are made with mode 0700, files with 0600. A directory that
  // belongs to someone else or that group or others may write to is refused
  // with -61 ("Write permissions error."), and one they may only read is
  // closed to them; a symbolic link in place of the directory or the lock
  // file is refused with -36. Lock files are never removed: they are empty, and
  // removing one could let two holders in at once.
  virtual std::int32_t lockItem(const std::string& service, const std::string& account,
                                std::chrono::milliseconds timeout, SecretStoreLock* lock);

  // The store the library uses. Chosen on first use unless set: the
  // environment's VELMOR_SECRET_STORE ("secret-service", "file" or "memory",
  // with VELMOR_SECRET_STORE_DIR for the file store's directory), else the
  // Secret Service when one answers on the session bus, else the file store.
  // The choice is logged once: at level 1 when a session bus exists but no
  // Secret Service answers on it (processes of one user may then be using
  // two different stores), at info level otherwise.
  static std::shared_ptr<SecretStore> defaultStore();
  // Replaces the default; nullptr returns to the automatic choice.
  static void setDefault(std::shared_ptr<SecretStore> store);
};

// Forwards every call to another store; subclass it to change one call
// (to inject a failure, count calls, ...). The library reads and writes
// items through findItem, updateItem and removeItem: a subclass that changes
// find, update or remove changes those alike.
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
  std::int32_t lockItem(const std::string& service, const std::string& account,
                        std::chrono::milliseconds timeout, SecretStoreLock* lock) override {
    return target_->lockItem(service, account, timeout, lock);
  }

  std::int32_t findItem(const std::string& service, const std::string& account, Data* data,
                        std::unique_ptr<SecretStoreItem>* item) override {
    return target_->findItem(service, account, data, item);
  }
  std::int32_t updateItem(SecretStoreItem& item, const Data& data) override {
    return target_->updateItem(item, data);
  }
  std::int32_t removeItem(SecretStoreItem& item) override { return target_->removeItem(item); }
  SecretStoreCondition condition() override { return target_->condition(); }
  std::string description() const override { return target_->description(); }

  const std::shared_ptr<SecretStore>& target() const { return target_; }

 private:
  std::shared_ptr<SecretStore> target_;
};

}  // namespace velmor

#endif  // VELMOR_SECRET_STORE_H_
