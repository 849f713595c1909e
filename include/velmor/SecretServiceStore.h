// The desktop's Secret Service (GNOME Keyring, KWallet) as a secret store.
#ifndef VELMOR_SECRET_SERVICE_STORE_H_
#define VELMOR_SECRET_SERVICE_STORE_H_

#include <chrono>
#include <memory>
#include <string>

#include "velmor/Export.h"
#include "velmor/SecretStore.h"

namespace velmor {

// Items live in the default collection under the library's schema
// "com.velmor.authorization.Item" with the attributes "service", "account"
// and "encoding" = "base64": the bytes are stored as Base64 text, which
// every Secret Service implementation keeps intact. The label reads
// "<service> (<account>)".
//
// The Secret Service neither refuses duplicates nor tells a locked item from
// a missing one, so every call first searches all items with the two names,
// locked ones included, and answers the keychain's statuses from that:
// - find: the first unlocked item's bytes; kSecretStoreItemNotFound (-25300)
//   when there is no item, kSecretStoreInteractionNotAllowed (-25308) when
//   every one stays locked, kSecretStoreIoError (-36) when its secret does
//   not decode.
// - add: kSecretStoreDuplicateItem (-25299) when any item exists, locked or
//   not; -25308 when the default collection is locked or missing.
// - update, remove: act on every item with the names (other tools may have
//   made more than one); -25300 when there is none, -25308 when any stays
//   locked. An item that exists but cannot be removed is a failure, never
//   "already gone". Items made by other tools without the "encoding"
//   attribute hold raw bytes: find reads them as they are and update writes
//   them so.
// - every call: kSecretStoreParameterError (-50) for a name that is not
//   UTF-8 or holds a NUL; kSecretStoreNotAvailable (-25291) when no session
//   bus or Secret Service answers within the deadline; -36 for other
//   failures the Secret Service reports.
// Nothing ever prompts the user or unlocks a collection.
//
// The session bus is the one DBUS_SESSION_BUS_ADDRESS names; when it is
// unset (or asks for an autolaunched bus) every call answers -25291 at once,
// so no X11 bus is ever launched. Each call makes its own Secret Service
// objects on GIO's session-bus connection and ends within the deadline: the
// D-Bus calls run asynchronously on a private main context of the calling
// thread and are cancelled when the deadline passes, so no call stays
// pending and no thread of ours is left behind. A Secret Service that hangs
// costs each call one deadline. Calls may come from any thread at once.
//
// Built without libsecret (VELMOR_WITH_LIBSECRET=OFF), every call answers
// -25291 and isAvailable() is false.
class VELMOR_EXPORT SecretServiceStore final : public SecretStore {
 public:
  // `deadline` bounds each of the four calls as a whole.
  explicit SecretServiceStore(std::chrono::milliseconds deadline = std::chrono::seconds(5));
  ~SecretServiceStore() override;

  // Whether DBUS_SESSION_BUS_ADDRESS names a bus that answers within the
  // deadline and org.freedesktop.secrets has an owner there or can be
  // started. Does not ask the Secret Service itself.
  static bool isAvailable(std::chrono::milliseconds deadline = std::chrono::seconds(2));

  std::int32_t find(const std::string& service, const std::string& account, Data* data) override;
  std::int32_t add(const std::string& service, const std::string& account,
                   const Data& data) override;
  std::int32_t update(const std::string& service, const std::string& account,
                      const Data& data) override;
  std::int32_t remove(const std::string& service, const std::string& account) override;

 private:
  class VELMOR_NO_EXPORT Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace velmor

#endif  // VELMOR_SECRET_SERVICE_STORE_H_
