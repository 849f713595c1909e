// The credential record: everything the library remembers between runs for
// one application identity, kept encrypted in one secret-store item.
#ifndef VELMOR_STORAGE_SECURE_DATA_H_
#define VELMOR_STORAGE_SECURE_DATA_H_

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/Mutex.h"
#include "storage/CredentialRecord.h"
#include "storage/KeychainItem.h"
#include "storage/UtcDateTimeFormatter.h"
#include "velmor/Data.h"
#include "velmor/Error.h"
#include "velmor/SecretStore.h"
#include "velmor/Value.h"

namespace velmor {

// Client id and secret, user name, and the access and refresh tokens with
// their validity periods, as one dictionary of texts in the item named
// "Velmor ID (<appToken>-<slot>)" / "<host>-<appToken>-<slot>" of
// SecretStore::defaultStore().
//
// The item is the only copy: every getter reads and decrypts the whole
// record; every setter reads it once, changes one entry and writes it once.
// With a key the record is an archive {Version 1, Encrypted YES, IV, HMAC,
// EncryptedData} whose EncryptedData is AES-CBC of an inner archive
// {DataDictionary} under a fresh IV per save and whose HMAC is HMAC-SHA-256
// of that inner archive, both under the same key. Without a key it is
// {Version 1, Encrypted NO, DataDictionary}.
//
// Failures are never returned:
// - a record that cannot be read (wrong key, tampering, damaged bytes, a
//   missing field) is reported to VAErrorHandler and deleted, so credentials
//   and tokens are gone and the client must register and sign in again; a
//   record of another Version is ignored but kept;
// - a failed encryption goes to VAErrorHandler and nothing is written;
// - secret-store failures of writes and deletes, and a record lock that
//   could not be had in time, are logged at error level; failed lookups are
//   treated as no record at all.
// Exceptions other than velmor::Exception (std::bad_alloc) pass through.
// Nothing secret is ever logged.
//
// Thread-safe, and safe beside other processes using the same record: every
// read-modify-write (each setter and delete, the key change, deleteAll)
// holds the record's lock (SecretStore::lockItem) from its read to its
// write, so no change of another thread or process is lost. Reads take no
// lock: the store replaces the item whole. snapshot() answers several
// questions from one read. The key is held as an immutable snapshot: a
// reader keeps the key it started with while a key change swaps in the new
// one, and a key's bytes are wiped when its last holder lets go. A read that
// fails because a key change or another writer got in between reads again
// instead of deleting the record.
class SecureData final {
 public:
  using Date = CredentialRecord::Date;
  // The record key, immutable; null means no key.
  using Key = std::shared_ptr<const Data>;

  // How long a write waits for the record's lock by default: longer than a
  // refresh may hold it (one exchange of at most 60 seconds and its writes).
  static constexpr std::chrono::milliseconds kDefaultLockTimeout{std::chrono::seconds(75)};

  // Touches no storage. Without a key the record is stored unencrypted.
  SecureData(std::string authorizationServerHost, std::string appToken,
             std::optional<Data> aesEncryptionKey, std::int64_t authorizedIdentitySlot);

  SecureData(const SecureData&) = delete;
  SecureData& operator=(const SecureData&) = delete;

  // The record's entries. Setting nothing removes the entry (and still
  // rewrites the record); deleting from an absent record writes nothing.
  void setClientId(std::optional<std::string> clientId);
  std::optional<std::string> clientId();
  void deleteClientId();
  bool hasClientId();

  void setClientSecret(std::optional<std::string> clientSecret);
  std::optional<std::string> clientSecret();
  void deleteClientSecret();
  bool hasClientSecret();

  void setUsername(std::optional<std::string> username);
  std::optional<std::string> username();
  void deleteUsername();

  void setAccessToken(std::optional<std::string> accessToken);
  std::optional<std::string> accessToken();
  void deleteAccessToken();
  bool hasAccessToken();

  // Dates are stored to the whole second; a stored text that does not parse
  // reads as nothing.
  void setAccessTokenValidStartDateTime(std::optional<Date> date);
  std::optional<Date> accessTokenValidStartDateTime();
  void deleteAccessTokenValidStartDateTime();

  void setAccessTokenValidEndDateTime(std::optional<Date> date);
  std::optional<Date> accessTokenValidEndDateTime();
  void deleteAccessTokenValidEndDateTime();

  void setRefreshToken(std::optional<std::string> refreshToken);
  std::optional<std::string> refreshToken();
  void deleteRefreshToken();
  bool hasRefreshToken();

  void setRefreshTokenValidStartDateTime(std::optional<Date> date);
  std::optional<Date> refreshTokenValidStartDateTime();
  void deleteRefreshTokenValidStartDateTime();

  void setRefreshTokenValidEndDateTime(std::optional<Date> date);
  std::optional<Date> refreshTokenValidEndDateTime();
  void deleteRefreshTokenValidEndDateTime();

  // The whole record as one read finds it.
  CredentialRecord snapshot();

  // Several entries in one read-modify-write: the access token and its two
  // dates, or those and the refresh token and its two dates. Nothing is
  // written when there is no record. deleteTokenEntries, a sign-out's,
  // forgets the tokens even when the lock cannot be had in time (after
  // logging that): a sign-out must not depend on another process letting go.
  void deleteAccessTokenEntries();
  void deleteTokenEntries();
  // deleteTokenEntries, but only while the stored refresh token is
  // `refreshToken` (absent matching absent): true when they were deleted,
  // false when another token was stored meanwhile and is left alone.
  bool deleteTokenEntriesIfRefreshTokenIs(const std::optional<std::string>& refreshToken);

  // Takes this record's lock for a sequence of reads and writes that must
  // not interleave with another's (a refresh holds it from reading the
  // refresh token until the answer is stored). The record's own writes take
  // it again inside, which the lock allows. A keychain error naming
  // "lockItem" when it cannot be had in time.
  ErrorRef lockRecord(SecretStoreLock* lock) const;

  // The item's names, from the current properties.
  std::string keychainItemServiceName() const;
  std::string keychainItemServiceAccount() const;

  // The item's bytes; nothing when there is no item or the lookup failed.
  std::optional<Data> retrieveDataForExistingKeychainItem() const;

  // One entry of the record; a null value removes the key.
  void saveValue(std::optional<std::string> value, const std::string& key);
  std::optional<std::string> retrieveValueForKey(const std::string& key);
  void deleteValueForKey(const std::string& key);

  // The whole record.
  void saveDataDictionary(const Dictionary& dictionary);
  std::optional<Dictionary> retrieveDataDictionary();

  // Re-encrypts the record under `aesEncryptionKey` (nothing: unencrypted
  // from now on). The key changes in every case; a record the old key cannot
  // read is deleted and nothing is written.
  void changeAesEncryptionKey(std::optional<Data> aesEncryptionKey);
  // Removes the item; logs "Deleted keychain item." also when there was none.
  void deleteAll();

  const std::string& authorizationServerHost() const { return authorizationServerHost_; }
  void setAuthorizationServerHost(std::string host) { authorizationServerHost_ = std::move(host); }
  const std::string& appToken() const { return appToken_; }
  void setAppToken(std::string appToken) { appToken_ = std::move(appToken); }
  Key aesEncryptionKey() const EXCLUDES(keyMutex_);
  // Swaps the key; the one it replaces is wiped once no reader holds it.
  void setAesEncryptionKey(std::optional<Data> aesEncryptionKey) EXCLUDES(keyMutex_);
  std::int64_t authorizedIdentitySlot() const { return authorizedIdentitySlot_; }
  void setAuthorizedIdentitySlot(std::int64_t slot) { authorizedIdentitySlot_ = slot; }
  const UtcDateTimeFormatter& utcDateTimeFormatter() const { return utcDateTimeFormatter_; }
  // Handed to the store's add and update, which ignore it; 0 by default.
  std::int64_t keychainItemAccessLevel() const { return keychainItemAccessLevel_; }
  void setKeychainItemAccessLevel(std::int64_t level) { keychainItemAccessLevel_ = level; }
  // How long writes wait for the record's lock before giving up.
  std::chrono::milliseconds lockTimeout() const { return lockTimeout_.load(); }
  void setLockTimeout(std::chrono::milliseconds timeout) { lockTimeout_.store(timeout); }

 private:
  // The item as one read found it, and what it held.
  struct Reading {
    std::shared_ptr<KeychainItem> item;
    std::optional<Dictionary> dictionary;
  };
  // Receives the record's entries (nothing when absent or unreadable) and
  // says whether to write them back.
  using Change = std::function<bool(std::optional<Dictionary>& dictionary)>;

  Reading read();
  // Whether a change goes ahead when the lock cannot be had in time.
  enum class WithoutLock { kSkip, kWrite };

  // Deletes `keys` in one read-modify-write when the record exists and meets
  // `condition`; whether it did.
  bool deleteValuesWhere(const std::vector<std::string>& keys,
                         const std::function<bool(const CredentialRecord&)>& condition,
                         WithoutLock withoutLock = WithoutLock::kSkip);
  bool changedSince(const Key& key, const Data& archive) const;
  void modify(const Change& change, WithoutLock withoutLock = WithoutLock::kSkip);
  std::optional<Dictionary> readRecord(const Data& archive, const Key& key) const;
  std::optional<Data> archiveRecord(const Dictionary& dictionary, const Key& key) const;
  void writeItem(const std::shared_ptr<KeychainItem>& existing, const Data& archive);
  void saveDate(const std::optional<Date>& date, const std::string& key);
  std::shared_ptr<KeychainItem> findItem() const;

  std::string authorizationServerHost_;
  std::string appToken_;
  mutable Mutex keyMutex_;
  Key aesEncryptionKey_ GUARDED_BY(keyMutex_);
  std::int64_t authorizedIdentitySlot_;
  UtcDateTimeFormatter utcDateTimeFormatter_;
  std::int64_t keychainItemAccessLevel_ = 0;
  std::atomic<std::chrono::milliseconds> lockTimeout_{kDefaultLockTimeout};
};

}  // namespace velmor

#endif  // VELMOR_STORAGE_SECURE_DATA_H_
