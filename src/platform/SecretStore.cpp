#include "velmor/SecretStore.h"

#include <chrono>
#include <cstdlib>
#include <mutex>
#include <string>
#include <utility>

#include "platform/IdentityLock.h"
#include "support/Format.h"
#if VELMOR_HAVE_SECRET_SERVICE
#include "platform/SecretServiceConnection.h"
#endif
#include "velmor/FileSecretStore.h"
#include "velmor/MemorySecretStore.h"
#include "velmor/SecretServiceStore.h"
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor {

namespace {

std::mutex defaultMutex;
std::shared_ptr<SecretStore> chosenStore;  // guarded by defaultMutex

#if VELMOR_HAVE_SECRET_SERVICE
using Availability = SecretServiceConnection::Availability;

Availability secretServiceAvailability() {
  return SecretServiceConnection::probe(std::chrono::seconds(2));
}
#else
enum class Availability { kNoSessionBus, kNoSecretService, kAvailable };

Availability secretServiceAvailability() { return Availability::kNoSessionBus; }
#endif

std::string environmentText(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

std::shared_ptr<FileSecretStore> fileStore() {
  std::string directory = environmentText("VELMOR_SECRET_STORE_DIR");
  if (directory.empty()) directory = FileSecretStore::defaultDirectory();
  return std::make_shared<FileSecretStore>(directory);
}

// The environment decides first, so that a user can point any application
// at another store; then the desktop's Secret Service if it answers.
std::shared_ptr<SecretStore> automaticChoice() {
  VelmorAuthorizationLogger& logger = VelmorAuthorizationLogger::sharedLogger();
  const std::string requested = environmentText("VELMOR_SECRET_STORE");
  if (requested == "memory") {
    logger.log("Secret store: memory (VELMOR_SECRET_STORE)", VelmorAuthorizationLogger::kLevelInfo);
    return std::make_shared<MemorySecretStore>();
  }
  if (requested == "secret-service") {
    logger.log("Secret store: Secret Service (VELMOR_SECRET_STORE)",
               VelmorAuthorizationLogger::kLevelInfo);
    return std::make_shared<SecretServiceStore>();
  }
  if (requested == "file") {
    auto store = fileStore();
    logger.log(
        stringWithFormat("Secret store: files in '%@' (VELMOR_SECRET_STORE)", store->directory()),
        VelmorAuthorizationLogger::kLevelInfo);
    return store;
  }
  if (!requested.empty()) {
    logger.log(stringWithFormat("Unknown VELMOR_SECRET_STORE '%@'; choosing by what is available",
                                requested),
               VelmorAuthorizationLogger::kLevelError);
  }
  switch (secretServiceAvailability()) {
    case Availability::kAvailable:
      logger.log("Secret store: Secret Service", VelmorAuthorizationLogger::kLevelInfo);
      return std::make_shared<SecretServiceStore>();
    case Availability::kNoSecretService: {
      // A desktop session without a keyring: other processes of the same user
      // (with a keyring, or started differently) may be using another store
      // for the same identity, so this deserves more than an info line.
      auto store = fileStore();
      logger.log(stringWithFormat("Secret store: files in '%@': a session bus exists but no Secret "
                                  "Service answers on it (set VELMOR_SECRET_STORE=file to choose "
                                  "files on purpose)",
                                  store->directory()),
                 VelmorAuthorizationLogger::kLevelError);
      return store;
    }
    case Availability::kNoSessionBus:
      break;
  }
  auto store = fileStore();
  logger.log(stringWithFormat("Secret store: files in '%@' (no session bus)", store->directory()),
             VelmorAuthorizationLogger::kLevelInfo);
  return store;
}

}  // namespace

SecretStoreItem::~SecretStoreItem() = default;

SecretStore::~SecretStore() = default;

std::int32_t SecretStore::lockItem(const std::string& service, const std::string& account,
                                   std::chrono::milliseconds timeout, SecretStoreLock* lock) {
  const std::string directory = IdentityLock::runtimeDirectory();
  if (directory.empty()) return kSecretStoreIoError;
  return IdentityLock::lockFile(directory, IdentityLock::fileNameFor(service, account), timeout,
                                lock);
}

std::int32_t SecretStore::findItem(const std::string& service, const std::string& account,
                                   Data* data, std::unique_ptr<SecretStoreItem>* item) {
  const std::int32_t status = find(service, account, data);
  if (status == kSecretStoreSuccess && item) {
    *item = std::make_unique<SecretStoreItem>(service, account);
  }
  return status;
}

std::int32_t SecretStore::updateItem(SecretStoreItem& item, const Data& data) {
  return update(item.service(), item.account(), data);
}

std::int32_t SecretStore::removeItem(SecretStoreItem& item) {
  return remove(item.service(), item.account());
}

SecretStoreCondition SecretStore::condition() {
  return {kSecretStoreSuccess, "The application's own secret store tells nothing of its state."};
}

std::string SecretStore::description() const { return "the application's own secret store"; }

std::shared_ptr<SecretStore> SecretStore::defaultStore() {
  std::lock_guard<std::mutex> lock(defaultMutex);
  if (!chosenStore) chosenStore = automaticChoice();
  return chosenStore;
}

void SecretStore::setDefault(std::shared_ptr<SecretStore> store) {
  std::lock_guard<std::mutex> lock(defaultMutex);
  chosenStore = std::move(store);
}

}  // namespace velmor
