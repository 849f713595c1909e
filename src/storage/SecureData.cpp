#include "storage/SecureData.h"

#include <openssl/crypto.h>

#include <memory>

#include "platform/KeyedArchiver.h"
#include "platform/KeyedUnarchiver.h"
#include "platform/VAErrorHandler.h"
#include "storage/CryptoUtility.h"
#include "storage/KeychainItem.h"
#include "support/Format.h"
#include "velmor/Exception.h"
#include "velmor/VelmorAuthorizationError.h"
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor {
namespace {

using Record = CredentialRecord;

// The archives around them.
constexpr char kVersionKey[] = "Version";
constexpr char kEncryptedKey[] = "Encrypted";
constexpr char kIvKey[] = "IV";
constexpr char kHmacKey[] = "HMAC";
constexpr char kEncryptedDataKey[] = "EncryptedData";
constexpr char kDataDictionaryKey[] = "DataDictionary";
constexpr std::int32_t kRecordVersion = 1;
constexpr char kLockCall[] = "lockItem";
// A read that fails because a writer got in between tries again this often
// before it gives up (and then deletes nothing).
constexpr int kMaxRereads = 3;

// The key's bytes, wiped when the last snapshot of them goes.
struct WipedKey {
  explicit WipedKey(Data key) : bytes(std::move(key)) {}
  ~WipedKey() { cleanseData(bytes); }
  WipedKey(const WipedKey&) = delete;
  WipedKey& operator=(const WipedKey&) = delete;
  Data bytes;
};

SecureData::Key makeKey(std::optional<Data> bytes) {
  if (!bytes) return nullptr;
  auto owner = std::make_shared<WipedKey>(std::move(*bytes));
  return SecureData::Key(owner, &owner->bytes);
}

// Wipes plaintext when its scope ends, whichever way it ends.
class WipeOnExit final {
 public:
  explicit WipeOnExit(Data& data) : data_(data) {}
  ~WipeOnExit() { cleanseData(data_); }
  WipeOnExit(const WipeOnExit&) = delete;
  WipeOnExit& operator=(const WipeOnExit&) = delete;

 private:
  Data& data_;
};

// An empty block counts as missing: no save ever writes one.
Data requiredBytes(const KeyedUnarchiver& archive, const char* key, const char* reasonIfMissing) {
  std::optional<Data> bytes = archive.decodeBytesForKey(key);
  if (!bytes || bytes->empty()) throw InternalInconsistencyException(reasonIfMissing);
  return std::move(*bytes);
}

// Constant time, so that a forger learns nothing from how long a refusal takes.
bool sameMac(const Data& computed, const Data& stored) {
  return computed.size() == stored.size() &&
         CRYPTO_memcmp(computed.data(), stored.data(), computed.size()) == 0;
}

bool anyRecord(const CredentialRecord&) { return true; }

// Both tokens and their validity dates.
std::vector<std::string> tokenKeys() {
  return {Record::kAccessTokenKey,
          Record::kAccessTokenValidStartKey,
          Record::kAccessTokenValidEndKey,
          Record::kRefreshTokenKey,
          Record::kRefreshTokenValidStartKey,
          Record::kRefreshTokenValidEndKey};
}

// Keychain error descriptions carry the call and the status, never item data.
void logError(const ErrorRef& error) {
  VelmorAuthorizationLogger::sharedLogger().log(stringWithFormat("%@", error),
                                                VelmorAuthorizationLogger::kLevelError);
}

}  // namespace

SecureData::SecureData(std::string authorizationServerHost, std::string appToken,
                       std::optional<Data> aesEncryptionKey, std::int64_t authorizedIdentitySlot)
    : authorizationServerHost_(std::move(authorizationServerHost)),
      appToken_(std::move(appToken)),
      aesEncryptionKey_(makeKey(std::move(aesEncryptionKey))),
      authorizedIdentitySlot_(authorizedIdentitySlot) {}

void SecureData::setClientId(std::optional<std::string> clientId) {
  saveValue(std::move(clientId), Record::kClientIdKey);
}
std::optional<std::string> SecureData::clientId() {
  return retrieveValueForKey(Record::kClientIdKey);
}
void SecureData::deleteClientId() { deleteValueForKey(Record::kClientIdKey); }
bool SecureData::hasClientId() { return clientId().has_value(); }

void SecureData::setClientSecret(std::optional<std::string> clientSecret) {
  saveValue(std::move(clientSecret), Record::kClientSecretKey);
}
std::optional<std::string> SecureData::clientSecret() {
  return retrieveValueForKey(Record::kClientSecretKey);
}
void SecureData::deleteClientSecret() { deleteValueForKey(Record::kClientSecretKey); }
bool SecureData::hasClientSecret() { return clientSecret().has_value(); }

void SecureData::setUsername(std::optional<std::string> username) {
  saveValue(std::move(username), Record::kUsernameKey);
}
std::optional<std::string> SecureData::username() {
  return retrieveValueForKey(Record::kUsernameKey);
}
void SecureData::deleteUsername() { deleteValueForKey(Record::kUsernameKey); }

void SecureData::setAccessToken(std::optional<std::string> accessToken) {
  saveValue(std::move(accessToken), Record::kAccessTokenKey);
}
std::optional<std::string> SecureData::accessToken() {
  return retrieveValueForKey(Record::kAccessTokenKey);
}
void SecureData::deleteAccessToken() { deleteValueForKey(Record::kAccessTokenKey); }
bool SecureData::hasAccessToken() { return accessToken().has_value(); }

void SecureData::setAccessTokenValidStartDateTime(std::optional<Date> date) {
  saveDate(date, Record::kAccessTokenValidStartKey);
}
std::optional<SecureData::Date> SecureData::accessTokenValidStartDateTime() {
  return snapshot().accessTokenValidStartDateTime();
}
void SecureData::deleteAccessTokenValidStartDateTime() {
  deleteValueForKey(Record::kAccessTokenValidStartKey);
}

void SecureData::setAccessTokenValidEndDateTime(std::optional<Date> date) {
  saveDate(date, Record::kAccessTokenValidEndKey);
}
std::optional<SecureData::Date> SecureData::accessTokenValidEndDateTime() {
  return snapshot().accessTokenValidEndDateTime();
}
void SecureData::deleteAccessTokenValidEndDateTime() {
  deleteValueForKey(Record::kAccessTokenValidEndKey);
}

void SecureData::setRefreshToken(std::optional<std::string> refreshToken) {
  saveValue(std::move(refreshToken), Record::kRefreshTokenKey);
}
std::optional<std::string> SecureData::refreshToken() {
  return retrieveValueForKey(Record::kRefreshTokenKey);
}
void SecureData::deleteRefreshToken() { deleteValueForKey(Record::kRefreshTokenKey); }
bool SecureData::hasRefreshToken() { return refreshToken().has_value(); }

void SecureData::setRefreshTokenValidStartDateTime(std::optional<Date> date) {
  saveDate(date, Record::kRefreshTokenValidStartKey);
}
std::optional<SecureData::Date> SecureData::refreshTokenValidStartDateTime() {
  return snapshot().refreshTokenValidStartDateTime();
}
void SecureData::deleteRefreshTokenValidStartDateTime() {
  deleteValueForKey(Record::kRefreshTokenValidStartKey);
}

void SecureData::setRefreshTokenValidEndDateTime(std::optional<Date> date) {
  saveDate(date, Record::kRefreshTokenValidEndKey);
}
std::optional<SecureData::Date> SecureData::refreshTokenValidEndDateTime() {
  return snapshot().refreshTokenValidEndDateTime();
}
void SecureData::deleteRefreshTokenValidEndDateTime() {
  deleteValueForKey(Record::kRefreshTokenValidEndKey);
}

std::string SecureData::keychainItemServiceName() const {
  return stringWithFormat("Velmor ID (%@-%ld)", appToken_, authorizedIdentitySlot_);
}

std::string SecureData::keychainItemServiceAccount() const {
  return stringWithFormat("%@-%@-%ld", authorizationServerHost_, appToken_,
                          authorizedIdentitySlot_);
}

std::shared_ptr<KeychainItem> SecureData::findItem() const {
  // A failed lookup reads as no record: the caller could not do better.
  ErrorRef ignored;
  return KeychainItem::findByServiceName(keychainItemServiceName(), keychainItemServiceAccount(),
                                         &ignored);
}

std::optional<Data> SecureData::retrieveDataForExistingKeychainItem() const {
  std::shared_ptr<KeychainItem> item = findItem();
  if (!item) return std::nullopt;
  return item->data();
}

CredentialRecord SecureData::snapshot() { return CredentialRecord(read().dictionary); }

void SecureData::saveValue(std::optional<std::string> value, const std::string& key) {
  modify([&](std::optional<Dictionary>& dictionary) {
    // A record that could not be read starts over empty.
    if (!dictionary) dictionary.emplace();
    if (value) {
      dictionary->set(key, std::move(*value));
    } else {
      dictionary->erase(key);
    }
    return true;
  });
}

std::optional<std::string> SecureData::retrieveValueForKey(const std::string& key) {
  return snapshot().value(key);
}

void SecureData::deleteValueForKey(const std::string& key) { deleteValuesWhere({key}, anyRecord); }

void SecureData::deleteAccessTokenEntries() {
  deleteValuesWhere(
      {Record::kAccessTokenKey, Record::kAccessTokenValidStartKey, Record::kAccessTokenValidEndKey},
      anyRecord);
}

void SecureData::deleteTokenEntries() {
  deleteValuesWhere(tokenKeys(), anyRecord, WithoutLock::kWrite);
}

bool SecureData::deleteTokenEntriesIfRefreshTokenIs(
    const std::optional<std::string>& refreshToken) {
  return deleteValuesWhere(tokenKeys(), [&](const CredentialRecord& stored) {
    return stored.refreshToken() == refreshToken;
  });
}

bool SecureData::deleteValuesWhere(const std::vector<std::string>& keys,
                                   const std::function<bool(const CredentialRecord&)>& condition,
                                   WithoutLock withoutLock) {
  bool deleted = false;
  modify(
      [&](std::optional<Dictionary>& dictionary) {
        deleted = condition(CredentialRecord(dictionary));
        if (!dictionary || !deleted) return false;
        for (const std::string& key : keys) dictionary->erase(key);
        return true;
      },
      withoutLock);
  return deleted;
}

ErrorRef SecureData::lockRecord(SecretStoreLock* lock) const {
  const std::int32_t status = SecretStore::defaultStore()->lockItem(
      keychainItemServiceName(), keychainItemServiceAccount(), lockTimeout(), lock);
  if (status == kSecretStoreSuccess) return nullptr;
  return std::make_shared<VelmorAuthorizationError>(kLockCall, status);
}

void SecureData::saveDataDictionary(const Dictionary& dictionary) {
  SecretStoreLock lock;
  if (ErrorRef error = lockRecord(&lock)) {
    logError(error);
    return;
  }
  std::optional<Data> archive = archiveRecord(dictionary, aesEncryptionKey());
  if (archive) writeItem(findItem(), *archive);
}

std::optional<Dictionary> SecureData::retrieveDataDictionary() { return read().dictionary; }

void SecureData::changeAesEncryptionKey(std::optional<Data> aesEncryptionKey) {
  SecretStoreLock lock;
  if (ErrorRef error = lockRecord(&lock)) logError(error);
  const Reading reading = read();
  setAesEncryptionKey(std::move(aesEncryptionKey));
  // Written even without the lock: left under the old key, the record would
  // be deleted by the next read.
  if (!reading.dictionary) return;
  std::optional<Data> archive = archiveRecord(*reading.dictionary, this->aesEncryptionKey());
  if (archive) writeItem(reading.item, *archive);
}

void SecureData::deleteAll() {
  // Deleted even when the lock cannot be had: leaving the record behind
  // would be worse than a write of another that recreates part of it.
  SecretStoreLock lock;
  if (ErrorRef error = lockRecord(&lock)) logError(error);
  ErrorRef error = KeychainItem::deleteKeychainItemWithServiceName(keychainItemServiceName(),
                                                                   keychainItemServiceAccount());
  if (error) {
    logError(error);
    return;
  }
  VelmorAuthorizationLogger::sharedLogger().log("Deleted keychain item.",
                                                VelmorAuthorizationLogger::kLevelInfo);
}

SecureData::Key SecureData::aesEncryptionKey() const {
  MutexLock lock(keyMutex_);
  return aesEncryptionKey_;
}

void SecureData::setAesEncryptionKey(std::optional<Data> aesEncryptionKey) {
  Key replaced = makeKey(std::move(aesEncryptionKey));
  {
    MutexLock lock(keyMutex_);
    std::swap(replaced, aesEncryptionKey_);
  }
  // `replaced` now holds the old key, wiped here unless a reader still has it.
}

SecureData::Reading SecureData::read() {
  for (int attempt = 0;; ++attempt) {
    const Key key = aesEncryptionKey();
    std::shared_ptr<KeychainItem> item = findItem();
    if (!item) return {};
    try {
      return {item, readRecord(item->data(), key)};
    } catch (const Exception& exception) {
      // A record this key cannot read is worthless and may have been
      // tampered with: report it and remove it, so the client starts over
      // from nothing. Unless a key change or another writer came in between
      // the key and the item this read took: then the record is fine and is
      // read again. The lock keeps both still while that is decided.
      SecretStoreLock lock;
      if (ErrorRef error = lockRecord(&lock)) {
        logError(error);
        return {};
      }
      if (changedSince(key, item->data())) {
        if (attempt < kMaxRereads) continue;
        return {};
      }
      VAErrorHandler::handleException(exception);
      deleteAll();
      return {};
    }
  }
}

bool SecureData::changedSince(const Key& key, const Data& archive) const {
  if (aesEncryptionKey() != key) return true;
  std::optional<Data> current = retrieveDataForExistingKeychainItem();
  return current && *current != archive;
}

void SecureData::modify(const Change& change, WithoutLock withoutLock) {
  SecretStoreLock lock;
  if (ErrorRef error = lockRecord(&lock)) {
    logError(error);
    if (withoutLock == WithoutLock::kSkip) return;
  }
  Reading reading = read();
  if (!change(reading.dictionary)) return;
  std::optional<Data> archive = archiveRecord(*reading.dictionary, aesEncryptionKey());
  if (archive) writeItem(reading.item, *archive);
}

// Throws velmor::Exception for everything that makes the record unreadable;
// a record of another version is not ours to judge and reads as nothing.
// The step order is fixed: the ciphertext is decrypted before the HMAC is
// even looked for, so a wrong key usually shows as a decryption failure.
std::optional<Dictionary> SecureData::readRecord(const Data& archive, const Key& key) const {
  KeyedUnarchiver outer(archive);
  if (outer.decodeInt32ForKey(kVersionKey) != kRecordVersion) return std::nullopt;
  if (!outer.decodeBoolForKey(kEncryptedKey)) {
    std::optional<Dictionary> dictionary = outer.decodeStringDictionaryForKey(kDataDictionaryKey);
    outer.finishDecoding();
    return dictionary;
  }
  const Data iv = requiredBytes(outer, kIvKey, "Missing IV for encrypted data");
  const Data ciphertext = requiredBytes(outer, kEncryptedDataKey, "Missing encrypted data");
  // No key decrypts nothing; an IV of another length than 16 fails here too.
  static const Data kNoKey;
  const Data& keyBytes = key ? *key : kNoKey;
  std::optional<Data> plaintext = CryptoUtility::decryptData(ciphertext, keyBytes, iv, nullptr);
  if (!plaintext) {
    throw InternalInconsistencyException("Unable to decrypt data. May be using incorrect key.");
  }
  WipeOnExit wipePlaintext(*plaintext);
  const Data storedMac = requiredBytes(outer, kHmacKey, "Missing HMAC");
  if (!sameMac(CryptoUtility::calculateHmacWithKey(keyBytes, *plaintext), storedMac)) {
    throw InternalInconsistencyException(
        "Data integrity HMAC check failed. May be using incorrect key.");
  }
  KeyedUnarchiver inner(*plaintext);
  std::optional<Dictionary> dictionary = inner.decodeStringDictionaryForKey(kDataDictionaryKey);
  inner.finishDecoding();
  outer.finishDecoding();
  return dictionary;
}

std::optional<Data> SecureData::archiveRecord(const Dictionary& dictionary, const Key& key) const {
  KeyedArchiver outer;
  outer.encodeInt32(kRecordVersion, kVersionKey);
  if (!key) {
    outer.encodeBool(false, kEncryptedKey);
    outer.encodeObject(dictionary, kDataDictionaryKey);
    return outer.finishEncoding();
  }
  KeyedArchiver inner;
  inner.encodeObject(dictionary, kDataDictionaryKey);
  Data plaintext = inner.finishEncoding();
  WipeOnExit wipePlaintext(plaintext);
  const Data mac = CryptoUtility::calculateHmacWithKey(*key, plaintext);
  std::optional<Data> iv;
  ErrorRef error;
  std::optional<Data> ciphertext = CryptoUtility::encryptData(plaintext, *key, &iv, &error);
  if (!ciphertext || !iv) {
    if (error) VAErrorHandler::handleError(*error);
    return std::nullopt;
  }
  outer.encodeBool(true, kEncryptedKey);
  outer.encodeBytes(*iv, kIvKey);
  outer.encodeBytes(mac, kHmacKey);
  outer.encodeBytes(*ciphertext, kEncryptedDataKey);
  return outer.finishEncoding();
}

// Updates the item the read found, or adds one when it found none.
void SecureData::writeItem(const std::shared_ptr<KeychainItem>& existing, const Data& archive) {
  if (existing) {
    if (ErrorRef error = existing->updateData(archive, keychainItemAccessLevel_)) logError(error);
    return;
  }
  ErrorRef error;
  if (!KeychainItem::addWithServiceName(keychainItemServiceName(), keychainItemServiceAccount(),
                                        archive, keychainItemAccessLevel_, &error)) {
    logError(error);
  }
}

void SecureData::saveDate(const std::optional<Date>& date, const std::string& key) {
  saveValue(
      date ? std::optional<std::string>(utcDateTimeFormatter_.stringFromDate(*date)) : std::nullopt,
      key);
}

}  // namespace velmor
