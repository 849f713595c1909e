#include "velmor/SecretStore.h"

#include <mutex>
#include <utility>

#include "velmor/MemorySecretStore.h"

namespace velmor {

namespace {

std::mutex defaultMutex;
std::shared_ptr<SecretStore> chosenStore;  // guarded by defaultMutex

std::shared_ptr<SecretStore> automaticChoice() { return std::make_shared<MemorySecretStore>(); }

}  // namespace

SecretStore::~SecretStore() = default;

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
