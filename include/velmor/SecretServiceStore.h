// The desktop's Secret Service (GNOME Keyring, KWallet) as a secret store.
#ifndef VELMOR_SECRET_SERVICE_STORE_H_
#define VELMOR_SECRET_SERVICE_STORE_H_

#include <chrono>
#include <memory>
#include <string>

#include "velmor/SecretStore.h"

namespace velmor {

// One item per (service, account) in the default collection, under the
// library's schema "com.velmor.authorization.Item" with the attributes
// "service" and "account"; the bytes are stored as Base64 text (attribute
// "encoding" = "base64") so that every Secret Service implementation keeps
// them. Answers the keychain's statuses: -25300 when no item exists, -25308
// when one exists but stays locked, -25299 from add when one exists, -25291
// when no session bus or Secret Service answers within the deadline. Never
// prompts and never starts an X11 session bus. Thread-safe.
class SecretServiceStore final : public SecretStore {
 public:
  explicit SecretServiceStore(std::chrono::milliseconds deadline = std::chrono::seconds(5));
  ~SecretServiceStore() override;

  // Whether a session bus is configured and a Secret Service answers on it.
  static bool isAvailable(std::chrono::milliseconds deadline = std::chrono::seconds(2));

  std::int32_t find(const std::string& service, const std::string& account, Data* data) override;
  std::int32_t add(const std::string& service, const std::string& account,
                   const Data& data) override;
  std::int32_t update(const std::string& service, const std::string& account,
                      const Data& data) override;
  std::int32_t remove(const std::string& service, const std::string& account) override;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace velmor

#endif  // VELMOR_SECRET_SERVICE_STORE_H_
