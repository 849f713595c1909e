// A secret store that keeps its items in this process's memory only.
#ifndef VELMOR_MEMORY_SECRET_STORE_H_
#define VELMOR_MEMORY_SECRET_STORE_H_

#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "velmor/Export.h"
#include "velmor/SecretStore.h"

namespace velmor {

// For tests and for processes that must leave nothing behind. Thread-safe.
// Nothing survives the process.
class VELMOR_EXPORT MemorySecretStore final : public SecretStore {
 public:
  std::int32_t find(const std::string& service, const std::string& account, Data* data) override;
  std::int32_t add(const std::string& service, const std::string& account,
                   const Data& data) override;
  std::int32_t update(const std::string& service, const std::string& account,
                      const Data& data) override;
  std::int32_t remove(const std::string& service, const std::string& account) override;
  // Among the threads of this process, as the items themselves.
  std::int32_t lockItem(const std::string& service, const std::string& account,
                        std::chrono::milliseconds timeout, SecretStoreLock* lock) override;

  // Always usable; the description is "memory".
  SecretStoreCondition condition() override;
  std::string description() const override;

  std::size_t itemCount() const;

 private:
  using Key = std::pair<std::string, std::string>;

  mutable std::mutex mutex_;
  std::map<Key, Data> items_;  // guarded by mutex_
};

}  // namespace velmor

#endif  // VELMOR_MEMORY_SECRET_STORE_H_
