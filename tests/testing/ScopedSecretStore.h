// Installs a secret store as the library's default for one test.
#ifndef VELMOR_TESTS_TESTING_SCOPED_SECRET_STORE_H_
#define VELMOR_TESTS_TESTING_SCOPED_SECRET_STORE_H_

#include <memory>
#include <utility>

#include "velmor/SecretStore.h"

namespace velmor::test {

class ScopedSecretStore final {
 public:
  explicit ScopedSecretStore(std::shared_ptr<SecretStore> store) {
    SecretStore::setDefault(std::move(store));
  }
  ~ScopedSecretStore() { SecretStore::setDefault(nullptr); }
  ScopedSecretStore(const ScopedSecretStore&) = delete;
  ScopedSecretStore& operator=(const ScopedSecretStore&) = delete;
};

}  // namespace velmor::test

#endif  // VELMOR_TESTS_TESTING_SCOPED_SECRET_STORE_H_
