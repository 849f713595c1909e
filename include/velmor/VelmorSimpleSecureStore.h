// A place in the user's secret store for one object of the application's
// own, optionally locked with a passcode the user chooses.
#ifndef VELMOR_VELMOR_SIMPLE_SECURE_STORE_H_
#define VELMOR_VELMOR_SIMPLE_SECURE_STORE_H_

#include <cstdint>
#include <optional>
#include <string>

#include "velmor/Data.h"
#include "velmor/Export.h"
#include "velmor/Value.h"

namespace velmor {

// Keeps one Value (typically a Dictionary) in the secret-store item named by
// a service and an account (SecretStore::defaultStore()). Without a passcode
// the value is stored as it is; with one, it is encrypted (AES-256-CBC) under
// a key derived from the passcode (PBKDF2-HMAC-SHA-256 with a random salt and
// a round count calibrated to about 300 ms on the machine that set it), and
// the store must be unlocked with the passcode before the value can be read
// or written. The passcode itself is never stored; an HMAC made with the
// derived key checks it. The key lives only in this object's memory while it
// is unlocked and is wiped when the store is locked, deleted or destroyed.
//
// States: no store or unprotected (always unlocked), protected and locked,
// protected and unlocked. A new object always starts locked.
//
// Failures are answered by result: false or nothing, with no other report
// for operations refused because the store is locked. Secret-store errors
// and damaged records go to the library's error funnel (logged at level 1);
// a saved value that can no longer be decoded deletes the whole item. A
// save into a keyring that is locked still answers true (nothing was
// refused by this object), so ask SecretStore::defaultStore()->condition()
// before saving something the user must not lose; the error log names the
// locked keyring too.
// Key derivation failing inside the crypto library, which only a broken
// installation causes, throws GenericException.
//
// Every public operation logs its call at level 3 through the shared
// logger; passcodes show as "***" and the saved value as "<redacted>"
// unless level 5 is loggable.
//
// Passcodes are UTF-8 text; lengths count UTF-16 units. Checking a passcode
// (checkPasscode, unlock) takes about as long as setting it did (~300 ms),
// on purpose: it slows down guessing.
//
// Threads: no locks. Use one object from one thread at a time. Two objects
// (or processes) writing the same item can lose each other's changes.
class VELMOR_EXPORT VelmorSimpleSecureStore final {
 public:
  // What kind of passcode the user chose, so the application can show the
  // right keypad.
  static constexpr std::int64_t kPasscodeInputTypeNone = 0;        // no passcode
  static constexpr std::int64_t kPasscodeInputTypeFourDigits = 1;  // exactly four digits
  static constexpr std::int64_t kPasscodeInputTypeDigits = 2;      // other digits only, or empty
  static constexpr std::int64_t kPasscodeInputTypeText = 3;        // anything else

  // Remembers the names; touches no storage.
  VelmorSimpleSecureStore(std::string keychainServiceName, std::string serviceAccount);
  ~VelmorSimpleSecureStore();

  // The object holds key material: it is neither copied nor moved.
  VelmorSimpleSecureStore(const VelmorSimpleSecureStore&) = delete;
  VelmorSimpleSecureStore& operator=(const VelmorSimpleSecureStore&) = delete;

  const std::string& keychainItemServiceName() const { return keychainItemServiceName_; }
  const std::string& keychainItemServiceAccount() const { return keychainItemServiceAccount_; }

  // Whether the item can be found; a failing secret store counts as absent.
  bool storeExists();
  // Deletes the item and locks; always true.
  bool deleteStore();
  // True while unlocked with a passcode, or when the stored record has one.
  bool isPasscodeProtected();
  // True while unlocked with a passcode, or when there is none.
  bool isUnlocked();
  // One of the kPasscodeInputType values; kPasscodeInputTypeNone without a
  // passcode.
  std::int64_t passcodeInputType();

  // Whether `passcode` is right; the store stays as it was.
  bool checkPasscode(const std::string& passcode);
  // True when unlocked afterwards. A store without a passcode answers
  // false here, although isUnlocked() is true.
  bool unlock(const std::string& passcode);
  // Forgets the key; always true.
  bool lock();
  // Sets a new passcode (an empty one included) under a new salt, round
  // count and key, or with nothing removes the protection; a saved value is
  // carried over. False, changing nothing, while the store is locked.
  bool changePasscode(const std::optional<std::string>& passcode);

  // Replaces the saved value. False while locked or when encryption fails
  // (nothing is written then). Failures of the secret store itself are
  // reported to the error funnel only. A null Value loads as nothing.
  bool saveObject(const Value& object);
  // The saved value; nothing while locked, when none was saved, or when it
  // cannot be decrypted or decoded.
  std::optional<Value> loadObject();

 private:
  bool validatePasscode(const std::string& passcode, Data* encryptionKey);
  std::optional<Dictionary> retrieveDataDictionary();
  std::optional<Data> retrieveDataForExistingKeychainItem();
  void saveDataDictionary(const Dictionary& dictionary);
  void deleteExistingKeychainItem();
  void holdKey(Data key);
  void forgetKey();

  std::string keychainItemServiceName_;
  std::string keychainItemServiceAccount_;
  std::optional<Data> aesEncryptionKey_;  // held only while unlocked with a passcode
};

}  // namespace velmor

#endif  // VELMOR_VELMOR_SIMPLE_SECURE_STORE_H_
