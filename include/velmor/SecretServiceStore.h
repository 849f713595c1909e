// The desktop's Secret Service (GNOME Keyring, KWallet) as a secret store.
#ifndef VELMOR_SECRET_SERVICE_STORE_H_
#define VELMOR_SECRET_SERVICE_STORE_H_

#include <chrono>
#include <memory>
#include <string>

#include "velmor/Export.h"
#include "velmor/SecretStore.h"

namespace velmor {

// Items live in the default collection with the attributes "service",
// "account", "encoding" = "base64" and "xdg:schema" =
// "com.velmor.authorization.Item": the bytes are stored as Base64 text,
// which every Secret Service implementation keeps intact. The label reads
// "<service> (<account>)". Items other tools made under the same names
// without an "encoding" attribute hold raw bytes and are read and written
// so.
//
// The Secret Service neither refuses duplicates nor tells a locked item from
// a missing one, so every call first searches all items with the two names,
// locked ones included, and answers the keychain's statuses from what it
// finds, as the file store does:
//
//   the names hold                  find     add        update   remove
//   nothing                         -25300   writes     -25300   -25300
//   an item that reads              0        -25299     writes   deletes
//   only items that do not decode   -36      replaces   -36      deletes
//   only locked items               -25308   -25308     -25308   -25308
//
// "Do not decode": Base64 that is not, or an "encoding" this library does
// not know (written by another tool or a later version); such an item never
// blocks the names. update and remove act on every item with the names
// (other tools may have made more than one), and refuse with -25308 if any
// of them is locked. add also answers -25308 when the default collection is
// locked or missing. Other answers, for every call:
// kSecretStoreParameterError (-50) for a name that is not UTF-8 or holds a
// NUL; kSecretStoreNotAvailable (-25291) when no session bus or Secret
// Service answers within the deadline; -36 for other failures the service
// reports. Nothing ever prompts the user or unlocks a collection.
//
// Connection: one per store object, made on first use and kept: a private
// connection to the bus DBUS_SESSION_BUS_ADDRESS names (unset, or asking
// for an autolaunched bus, answers -25291 at once, so no X11 bus is ever
// launched), and an encrypted session with the Secret Service on it
// ("dh-ietf1024-sha256-aes128-cbc-pkcs7"; "plain" only with a service that
// offers nothing else). The connection is never GIO's shared one, so a bus
// that goes away never ends the process. When the daemon or the bus went
// away (the daemon was restarted, the bus closed the connection), a call
// makes a new connection once and tries again, within its deadline.
//
// Every call ends within the deadline, reconnecting included: the D-Bus
// calls run on a private main context of the store, on the calling thread,
// and are cancelled when the deadline passes, so no call stays pending and
// no thread of ours is left behind. A Secret Service that hangs costs each
// call one deadline. Calls may come from any thread; one store object
// serves them one at a time.
//
// findItem hands out a handle on the items it read, so that updateItem and
// removeItem change them without a new search; if they went away or were
// replaced meanwhile (or the connection was made anew), those calls act by
// name as update and remove do.
//
// Built without Secret Service support (VELMOR_WITH_SECRET_SERVICE=OFF), every
// call answers -25291 and isAvailable() is false.
class VELMOR_EXPORT SecretServiceStore final : public SecretStore {
 public:
  // `deadline` bounds each call as a whole.
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

  std::int32_t findItem(const std::string& service, const std::string& account, Data* data,
                        std::unique_ptr<SecretStoreItem>* item) override;
  std::int32_t updateItem(SecretStoreItem& item, const Data& data) override;
  std::int32_t removeItem(SecretStoreItem& item) override;

  // Usable when the default collection is unlocked. Otherwise
  // kSecretStoreInteractionNotAllowed with a sentence naming the locked
  // keyring (or saying there is no default one), or kSecretStoreNotAvailable
  // saying which of the bus and the service did not answer.
  SecretStoreCondition condition() override;
  // "Secret Service (default collection)".
  std::string description() const override;

 private:
  class VELMOR_NO_EXPORT Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace velmor

#endif  // VELMOR_SECRET_SERVICE_STORE_H_
