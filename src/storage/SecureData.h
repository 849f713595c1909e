// The credential record: everything the library remembers between runs for
// one application identity, kept encrypted in one secret-store item.
#ifndef VELMOR_STORAGE_SECURE_DATA_H_
#define VELMOR_STORAGE_SECURE_DATA_H_

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "storage/UtcDateTimeFormatter.h"
#include "velmor/Data.h"
#include "velmor/Value.h"

namespace velmor {

// Client id and secret, user name, and the access and refresh tokens with
// their validity periods, as one dictionary of texts in the item named
// "Velmor ID (<appToken>-<slot>)" / "<host>-<appToken>-<slot>" of
// SecretStore::defaultStore().
//
// The item is the only copy: every getter reads and decrypts the whole
// record, every setter reads it, changes one entry and rewrites it whole.
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
// - secret-store failures of writes and deletes are logged at error level,
//   failed lookups are treated as no record at all.
// Exceptions other than velmor::Exception (std::bad_alloc) pass through.
// Nothing secret is ever logged.
//
// Not thread-safe and holds no lock: a setter is a read-modify-write of the
// whole item, so callers must not write one identity from two threads at
// once. The key is wiped from memory when replaced and on destruction.
class SecureData final {
 public:
  using Date = std::chrono::system_clock::time_point;

  // Touches no storage. Without a key the record is stored unencrypted.
  SecureData(std::string authorizationServerHost, std::string appToken,
             std::optional<Data> aesEncryptionKey, std::int64_t authorizedIdentitySlot);
  ~SecureData();

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
  const std::optional<Data>& aesEncryptionKey() const { return aesEncryptionKey_; }
  // Wipes the key it replaces.
  void setAesEncryptionKey(std::optional<Data> aesEncryptionKey);
  std::int64_t authorizedIdentitySlot() const { return authorizedIdentitySlot_; }
  void setAuthorizedIdentitySlot(std::int64_t slot) { authorizedIdentitySlot_ = slot; }
  const UtcDateTimeFormatter& utcDateTimeFormatter() const { return utcDateTimeFormatter_; }
  // Handed to the store's add and update, which ignore it; 0 by default.
  std::int64_t keychainItemAccessLevel() const { return keychainItemAccessLevel_; }
  void setKeychainItemAccessLevel(std::int64_t level) { keychainItemAccessLevel_ = level; }

 private:
  std::optional<Dictionary> readRecord(const Data& archive) const;
  std::optional<Data> archiveRecord(const Dictionary& dictionary) const;
  void writeItem(const Data& archive);
  void saveDate(const std::optional<Date>& date, const std::string& key);
  std::optional<Date> retrieveDateForKey(const std::string& key);

  std::string authorizationServerHost_;
  std::string appToken_;
  std::optional<Data> aesEncryptionKey_;
  std::int64_t authorizedIdentitySlot_;
  UtcDateTimeFormatter utcDateTimeFormatter_;
  std::int64_t keychainItemAccessLevel_ = 0;
};

}  // namespace velmor

#endif  // VELMOR_STORAGE_SECURE_DATA_H_
