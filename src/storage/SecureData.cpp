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
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor {
namespace {

// The record's entries.
constexpr char kClientIdKey[] = "ClientId";
constexpr char kClientSecretKey[] = "ClientSecret";
constexpr char kUsernameKey[] = "Username";
constexpr char kAccessTokenKey[] = "AccessToken";
constexpr char kAccessTokenValidStartKey[] = "AccessTokenValidStartDateTime";
constexpr char kAccessTokenValidEndKey[] = "AccessTokenValidEndDateTime";
constexpr char kRefreshTokenKey[] = "RefreshToken";
constexpr char kRefreshTokenValidStartKey[] = "RefreshTokenValidStartDateTime";
constexpr char kRefreshTokenValidEndKey[] = "RefreshTokenValidEndDateTime";

// The archives around them.
constexpr char kVersionKey[] = "Version";
constexpr char kEncryptedKey[] = "Encrypted";
constexpr char kIvKey[] = "IV";
constexpr char kHmacKey[] = "HMAC";
constexpr char kEncryptedDataKey[] = "EncryptedData";
constexpr char kDataDictionaryKey[] = "DataDictionary";
constexpr std::int32_t kRecordVersion = 1;

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
      aesEncryptionKey_(std::move(aesEncryptionKey)),
      authorizedIdentitySlot_(authorizedIdentitySlot) {}

SecureData::~SecureData() { setAesEncryptionKey(std::nullopt); }

void SecureData::setClientId(std::optional<std::string> clientId) {
  saveValue(std::move(clientId), kClientIdKey);
}
std::optional<std::string> SecureData::clientId() { return retrieveValueForKey(kClientIdKey); }
void SecureData::deleteClientId() { deleteValueForKey(kClientIdKey); }
bool SecureData::hasClientId() { return clientId().has_value(); }

void SecureData::setClientSecret(std::optional<std::string> clientSecret) {
  saveValue(std::move(clientSecret), kClientSecretKey);
}
std::optional<std::string> SecureData::clientSecret() {
  return retrieveValueForKey(kClientSecretKey);
}
void SecureData::deleteClientSecret() { deleteValueForKey(kClientSecretKey); }
bool SecureData::hasClientSecret() { return clientSecret().has_value(); }

void SecureData::setUsername(std::optional<std::string> username) {
  saveValue(std::move(username), kUsernameKey);
}
std::optional<std::string> SecureData::username() { return retrieveValueForKey(kUsernameKey); }
void SecureData::deleteUsername() { deleteValueForKey(kUsernameKey); }

void SecureData::setAccessToken(std::optional<std::string> accessToken) {
  saveValue(std::move(accessToken), kAccessTokenKey);
}
std::optional<std::string> SecureData::accessToken() {
  return retrieveValueForKey(kAccessTokenKey);
}
void SecureData::deleteAccessToken() { deleteValueForKey(kAccessTokenKey); }
bool SecureData::hasAccessToken() { return accessToken().has_value(); }

void SecureData::setAccessTokenValidStartDateTime(std::optional<Date> date) {
  saveDate(date, kAccessTokenValidStartKey);
}
std::optional<SecureData::Date> SecureData::accessTokenValidStartDateTime() {
  return retrieveDateForKey(kAccessTokenValidStartKey);
}
void SecureData::deleteAccessTokenValidStartDateTime() {
  deleteValueForKey(kAccessTokenValidStartKey);
}

void SecureData::setAccessTokenValidEndDateTime(std::optional<Date> date) {
  saveDate(date, kAccessTokenValidEndKey);
}
std::optional<SecureData::Date> SecureData::accessTokenValidEndDateTime() {
  return retrieveDateForKey(kAccessTokenValidEndKey);
}
void SecureData::deleteAccessTokenValidEndDateTime() { deleteValueForKey(kAccessTokenValidEndKey); }

void SecureData::setRefreshToken(std::optional<std::string> refreshToken) {
  saveValue(std::move(refreshToken), kRefreshTokenKey);
}
std::optional<std::string> SecureData::refreshToken() {
  return retrieveValueForKey(kRefreshTokenKey);
}
void SecureData::deleteRefreshToken() { deleteValueForKey(kRefreshTokenKey); }
bool SecureData::hasRefreshToken() { return refreshToken().has_value(); }

void SecureData::setRefreshTokenValidStartDateTime(std::optional<Date> date) {
  saveDate(date, kRefreshTokenValidStartKey);
}
std::optional<SecureData::Date> SecureData::refreshTokenValidStartDateTime() {
  return retrieveDateForKey(kRefreshTokenValidStartKey);
}
void SecureData::deleteRefreshTokenValidStartDateTime() {
  deleteValueForKey(kRefreshTokenValidStartKey);
}

void SecureData::setRefreshTokenValidEndDateTime(std::optional<Date> date) {
  saveDate(date, kRefreshTokenValidEndKey);
}
std::optional<SecureData::Date> SecureData::refreshTokenValidEndDateTime() {
  return retrieveDateForKey(kRefreshTokenValidEndKey);
}
void SecureData::deleteRefreshTokenValidEndDateTime() {
  deleteValueForKey(kRefreshTokenValidEndKey);
}

std::string SecureData::keychainItemServiceName() const {
  return stringWithFormat("Velmor ID (%@-%ld)", appToken_, authorizedIdentitySlot_);
}

std::string SecureData::keychainItemServiceAccount() const {
  return stringWithFormat("%@-%@-%ld", authorizationServerHost_, appToken_,
                          authorizedIdentitySlot_);
}

std::optional<Data> SecureData::retrieveDataForExistingKeychainItem() const {
  // A failed lookup reads as no record: the caller could not do better.
  ErrorRef ignored;
  std::shared_ptr<KeychainItem> item = KeychainItem::findByServiceName(
      keychainItemServiceName(), keychainItemServiceAccount(), &ignored);
  if (!item) return std::nullopt;
  return item->data();
}

void SecureData::saveValue(std::optional<std::string> value, const std::string& key) {
  // A record that could not be read starts over empty.
  Dictionary dictionary = retrieveDataDictionary().value_or(Dictionary{});
  if (value) {
    dictionary.set(key, std::move(*value));
  } else {
    dictionary.erase(key);
  }
  saveDataDictionary(dictionary);
}

std::optional<std::string> SecureData::retrieveValueForKey(const std::string& key) {
  std::optional<Dictionary> dictionary = retrieveDataDictionary();
  if (!dictionary) return std::nullopt;
  const std::string* value = dictionary->findString(key);
  if (!value) return std::nullopt;
  return *value;
}

void SecureData::deleteValueForKey(const std::string& key) {
  std::optional<Dictionary> dictionary = retrieveDataDictionary();
  if (!dictionary) return;
  dictionary->erase(key);
  saveDataDictionary(*dictionary);
}

void SecureData::saveDataDictionary(const Dictionary& dictionary) {
  std::optional<Data> archive = archiveRecord(dictionary);
  if (archive) writeItem(*archive);
}

std::optional<Dictionary> SecureData::retrieveDataDictionary() {
  std::optional<Data> archive = retrieveDataForExistingKeychainItem();
  if (!archive) return std::nullopt;
  try {
    return readRecord(*archive);
  } catch (const Exception& exception) {
    // A record this key cannot read is worthless and may have been tampered
    // with: report it and remove it, so the client starts over from nothing.
    VAErrorHandler::handleException(exception);
    deleteAll();
    return std::nullopt;
  }
}

void SecureData::changeAesEncryptionKey(std::optional<Data> aesEncryptionKey) {
  std::optional<Dictionary> dictionary = retrieveDataDictionary();
  setAesEncryptionKey(std::move(aesEncryptionKey));
  if (dictionary) saveDataDictionary(*dictionary);
}

void SecureData::deleteAll() {
  ErrorRef error = KeychainItem::deleteKeychainItemWithServiceName(keychainItemServiceName(),
                                                                   keychainItemServiceAccount());
  if (error) {
    logError(error);
    return;
  }
  VelmorAuthorizationLogger::sharedLogger().log("Deleted keychain item.",
                                                VelmorAuthorizationLogger::kLevelInfo);
}

void SecureData::setAesEncryptionKey(std::optional<Data> aesEncryptionKey) {
  if (aesEncryptionKey_) cleanseData(*aesEncryptionKey_);
  aesEncryptionKey_ = std::move(aesEncryptionKey);
}

// Throws velmor::Exception for everything that makes the record unreadable;
// a record of another version is not ours to judge and reads as nothing.
// The step order is fixed: the ciphertext is decrypted before the HMAC is
// even looked for, so a wrong key usually shows as a decryption failure.
std::optional<Dictionary> SecureData::readRecord(const Data& archive) const {
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
  const Data& key = aesEncryptionKey_ ? *aesEncryptionKey_ : kNoKey;
  std::optional<Data> plaintext = CryptoUtility::decryptData(ciphertext, key, iv, nullptr);
  if (!plaintext) {
    throw InternalInconsistencyException("Unable to decrypt data. May be using incorrect key.");
  }
  WipeOnExit wipePlaintext(*plaintext);
  const Data storedMac = requiredBytes(outer, kHmacKey, "Missing HMAC");
  if (!sameMac(CryptoUtility::calculateHmacWithKey(key, *plaintext), storedMac)) {
    throw InternalInconsistencyException(
        "Data integrity HMAC check failed. May be using incorrect key.");
  }
  KeyedUnarchiver inner(*plaintext);
  std::optional<Dictionary> dictionary = inner.decodeStringDictionaryForKey(kDataDictionaryKey);
  inner.finishDecoding();
  outer.finishDecoding();
  return dictionary;
}

std::optional<Data> SecureData::archiveRecord(const Dictionary& dictionary) const {
  KeyedArchiver outer;
  outer.encodeInt32(kRecordVersion, kVersionKey);
  if (!aesEncryptionKey_) {
    outer.encodeBool(false, kEncryptedKey);
    outer.encodeObject(dictionary, kDataDictionaryKey);
    return outer.finishEncoding();
  }
  KeyedArchiver inner;
  inner.encodeObject(dictionary, kDataDictionaryKey);
  Data plaintext = inner.finishEncoding();
  WipeOnExit wipePlaintext(plaintext);
  const Data mac = CryptoUtility::calculateHmacWithKey(*aesEncryptionKey_, plaintext);
  std::optional<Data> iv;
  ErrorRef error;
  std::optional<Data> ciphertext =
      CryptoUtility::encryptData(plaintext, *aesEncryptionKey_, &iv, &error);
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

void SecureData::writeItem(const Data& archive) {
  const std::string service = keychainItemServiceName();
  const std::string account = keychainItemServiceAccount();
  ErrorRef error;
  if (!retrieveDataForExistingKeychainItem()) {
    if (!KeychainItem::addWithServiceName(service, account, archive, keychainItemAccessLevel_,
                                          &error)) {
      logError(error);
    }
    return;
  }
  std::shared_ptr<KeychainItem> item = KeychainItem::findByServiceName(service, account, &error);
  if (error) {
    logError(error);
    return;
  }
  // Removed by someone else since the existence check: there is nothing to
  // update, and adding it back would undo their delete.
  if (!item) return;
  if (ErrorRef updateError = item->updateData(archive, keychainItemAccessLevel_)) {
    logError(updateError);
  }
}

void SecureData::saveDate(const std::optional<Date>& date, const std::string& key) {
  saveValue(
      date ? std::optional<std::string>(utcDateTimeFormatter_.stringFromDate(*date)) : std::nullopt,
      key);
}

std::optional<SecureData::Date> SecureData::retrieveDateForKey(const std::string& key) {
  std::optional<std::string> text = retrieveValueForKey(key);
  if (!text) return std::nullopt;
  return utcDateTimeFormatter_.dateFromString(*text);
}

}  // namespace velmor
