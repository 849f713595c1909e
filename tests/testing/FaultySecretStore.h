// A secret store that forwards to another and fails chosen calls on demand.
#ifndef VELMOR_TESTS_TESTING_FAULTY_SECRET_STORE_H_
#define VELMOR_TESTS_TESTING_FAULTY_SECRET_STORE_H_

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "velmor/MemorySecretStore.h"
#include "velmor/SecretStore.h"

namespace velmor::test {

// Over a MemorySecretStore by default. Each fault switch holds the status
// that call answers (0 = forward as usual); calls are counted. The item
// calls share the switches and counters of the name-based ones (findItem
// with find, ...). With conditionFault set, condition() answers that status
// with kConditionFaultReason. A hook, when set, runs on the calling thread
// before each call is forwarded (or failed), so that a test can make
// another thread act at exactly that point.
class FaultySecretStore final : public SecretStoreWrapper {
 public:
  enum class Call { kFind, kAdd, kUpdate, kRemove, kLockItem };
  using Hook = std::function<void(Call)>;

  explicit FaultySecretStore(
      std::shared_ptr<SecretStore> target = std::make_shared<MemorySecretStore>())
      : SecretStoreWrapper(std::move(target)) {}

  std::atomic<std::int32_t> findFault{0};
  std::atomic<std::int32_t> addFault{0};
  std::atomic<std::int32_t> updateFault{0};
  std::atomic<std::int32_t> removeFault{0};
  std::atomic<std::int32_t> lockFault{0};
  std::atomic<std::int32_t> conditionFault{0};
  std::atomic<int> finds{0}, adds{0}, updates{0}, removes{0}, locks{0}, conditions{0};

  static constexpr char kConditionFaultReason[] = "The test keyring is locked.";

  void setHook(Hook hook) {
    std::lock_guard<std::mutex> guard(hookMutex_);
    hook_ = std::move(hook);
  }

  std::int32_t find(const std::string& service, const std::string& account, Data* data) override {
    ++finds;
    runHook(Call::kFind);
    return findFault ? findFault.load() : SecretStoreWrapper::find(service, account, data);
  }
  std::int32_t add(const std::string& service, const std::string& account,
                   const Data& data) override {
    ++adds;
    runHook(Call::kAdd);
    return addFault ? addFault.load() : SecretStoreWrapper::add(service, account, data);
  }
  std::int32_t update(const std::string& service, const std::string& account,
                      const Data& data) override {
    ++updates;
    runHook(Call::kUpdate);
    return updateFault ? updateFault.load() : SecretStoreWrapper::update(service, account, data);
  }
  std::int32_t remove(const std::string& service, const std::string& account) override {
    ++removes;
    runHook(Call::kRemove);
    return removeFault ? removeFault.load() : SecretStoreWrapper::remove(service, account);
  }

  std::int32_t findItem(const std::string& service, const std::string& account, Data* data,
                        std::unique_ptr<SecretStoreItem>* item) override {
    ++finds;
    runHook(Call::kFind);
    return findFault ? findFault.load()
                     : SecretStoreWrapper::findItem(service, account, data, item);
  }
  std::int32_t updateItem(SecretStoreItem& item, const Data& data) override {
    ++updates;
    runHook(Call::kUpdate);
    return updateFault ? updateFault.load() : SecretStoreWrapper::updateItem(item, data);
  }
  std::int32_t removeItem(SecretStoreItem& item) override {
    ++removes;
    runHook(Call::kRemove);
    return removeFault ? removeFault.load() : SecretStoreWrapper::removeItem(item);
  }
  SecretStoreCondition condition() override {
    ++conditions;
    if (conditionFault) return {conditionFault.load(), kConditionFaultReason};
    return SecretStoreWrapper::condition();
  }
  std::int32_t lockItem(const std::string& service, const std::string& account,
                        std::chrono::milliseconds timeout, SecretStoreLock* lock) override {
    ++locks;
    runHook(Call::kLockItem);
    return lockFault ? lockFault.load()
                     : SecretStoreWrapper::lockItem(service, account, timeout, lock);
  }

 private:
  void runHook(Call call) {
    Hook hook;
    {
      std::lock_guard<std::mutex> guard(hookMutex_);
      hook = hook_;
    }
    if (hook) hook(call);
  }

  std::mutex hookMutex_;
  Hook hook_;
};

}  // namespace velmor::test

#endif  // VELMOR_TESTS_TESTING_FAULTY_SECRET_STORE_H_
