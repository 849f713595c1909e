#include "velmor/VelmorSimpleSecureStore.h"

#include <openssl/crypto.h>

#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "platform/VAErrorHandler.h"
#include "storage/CryptoUtility.h"
#include "storage/KeychainItem.h"
#include "storage/PbkdfCalibration.h"
#include "storage/SecureStoreRecord.h"
#include "support/Format.h"
#include "support/LogSecret.h"
#include "velmor/Exception.h"
#include "velmor/VelmorAuthorizationError.h"
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor {

namespace {

// The item's access level has no effect on any secret store; kept for the
// record's history.
constexpr std::int64_t kAccessLevel = 0;

constexpr char kPasscodeMismatch[] = "Failed to unlock. Passcode does not match.";

VelmorAuthorizationLogger& logger() { return VelmorAuthorizationLogger::sharedLogger(); }

void logInfo(const std::string& message) {
  logger().log(message, VelmorAuthorizationLogger::kLevelInfo);
}

void logError(const std::string& message) {
  logger().log(message, VelmorAuthorizationLogger::kLevelError);
}

void logCall(std::string_view method, const std::vector<LogArgument>& arguments = {}) {
  logger().logMethod(method, arguments);
}

// Made in clear only when a line with secrets in clear is written.
LogArgument secretArgument(const LogSecret& secret) {
  return LogArgument::object(secret.text(LogSecret::shownInClear()));
}

const Data* bytesIn(const Dictionary& dictionary, std::string_view key) {
  const Value* value = dictionary.find(key);
  return value ? value->dataValue() : nullptr;
}

std::int64_t integerIn(const Dictionary& dictionary, std::string_view key) {
  const Value* value = dictionary.find(key);
  if (!value) return 0;
  if (const std::int64_t* n = value->intValue()) return *n;
  if (const std::uint64_t* n = value->uintValue()) {
    return *n <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())
               ? static_cast<std::int64_t>(*n)
               : 0;
  }
  return 0;
}

// Only a count that reproduces a key counts: 0 would mean "calibrate anew"
// and could never match.
std::optional<std::uint32_t> roundCountIn(const Dictionary& dictionary) {
  const std::int64_t count = integerIn(dictionary, SecureStoreRecord::kRoundCountKey);
  if (count <= 0 || count > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
  return static_cast<std::uint32_t>(count);
}

Data passcodeHmac(const Data& key, const std::string& passcode) {
  Data bytes(passcode.begin(), passcode.end());
  Data mac = CryptoUtility::calculateHmacWithKey(key, bytes);
  cleanseData(bytes);
  return mac;
}

// Takes as long for every wrong passcode, so timing tells a guesser nothing.
bool sameBytes(const Data& a, const Data& b) {
  if (a.size() != b.size()) return false;
  return a.empty() || CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

// The message travels in the domain field, where readers of the error log
// have always found it.
void reportMissing(const char* what) {
  VAErrorHandler::handleError(*VelmorAuthorizationError::errorWithDomain(what, -1, std::nullopt));
}

// Deriving with such a count would take hours: the record was damaged or
// written to keep its reader busy.
void reportExcessiveRoundCount(std::uint32_t roundCount) {
  VAErrorHandler::handleError(VelmorAuthorizationError(
      "Excessive RoundCount", -1,
      stringWithFormat("The stored RoundCount, %u, is more than %u times what this machine "
                       "derives in %ld ms; the passcode is not checked.",
                       roundCount, PbkdfCalibration::kStoredRoundCountFactor,
                       static_cast<std::int64_t>(PbkdfCalibration::kTargetDuration.count())),
      std::nullopt));
}

}  // namespace

VelmorSimpleSecureStore::VelmorSimpleSecureStore(std::string keychainServiceName,
                                                 std::string serviceAccount)
    : keychainItemServiceName_(std::move(keychainServiceName)),
      keychainItemServiceAccount_(std::move(serviceAccount)) {
  logCall("-[VelmorSimpleSecureStore initWithKeychainServiceName:serviceAccount:]",
          {LogArgument::object(keychainItemServiceName_),
           LogArgument::object(keychainItemServiceAccount_)});
}

VelmorSimpleSecureStore::~VelmorSimpleSecureStore() { forgetKey(); }

bool VelmorSimpleSecureStore::storeExists() {
  logCall("-[VelmorSimpleSecureStore storeExists]");
  return retrieveDataForExistingKeychainItem().has_value();
}

bool VelmorSimpleSecureStore::deleteStore() {
  logCall("-[VelmorSimpleSecureStore deleteStore]");
  deleteExistingKeychainItem();
  forgetKey();
  return true;
}

bool VelmorSimpleSecureStore::isPasscodeProtected() {
  logCall("-[VelmorSimpleSecureStore isPasscodeProtected]");
  if (aesEncryptionKey_) return true;
  std::optional<Dictionary> dictionary = retrieveDataDictionary();
  return dictionary && dictionary->contains(SecureStoreRecord::kPasscodeHmacKey);
}

bool VelmorSimpleSecureStore::isUnlocked() {
  logCall("-[VelmorSimpleSecureStore isUnlocked]");
  return aesEncryptionKey_ || !isPasscodeProtected();
}

std::int64_t VelmorSimpleSecureStore::passcodeInputType() {
  logCall("-[VelmorSimpleSecureStore passcodeInputType]");
  if (!isPasscodeProtected()) return kPasscodeInputTypeNone;
  std::optional<Dictionary> dictionary = retrieveDataDictionary();
  if (!dictionary) return kPasscodeInputTypeNone;
  return integerIn(*dictionary, SecureStoreRecord::kPasscodeInputTypeKey);
}

bool VelmorSimpleSecureStore::checkPasscode(const std::string& passcode) {
  logCall("-[VelmorSimpleSecureStore checkPasscode:]",
          {secretArgument(LogSecret(LogSecret::Kind::kPasscode, passcode))});
  Data key;
  const bool valid = validatePasscode(passcode, &key);
  cleanseData(key);
  if (!valid) logInfo("Passcode does not match.");
  return valid;
}

bool VelmorSimpleSecureStore::unlock(const std::string& passcode) {
  logCall("-[VelmorSimpleSecureStore unlock:]",
          {secretArgument(LogSecret(LogSecret::Kind::kPasscode, passcode))});
  if (aesEncryptionKey_) return true;
  Data key;
  if (validatePasscode(passcode, &key)) {
    holdKey(std::move(key));
    return true;
  }
  // Validation has said so already; the repeat is part of the log format.
  logInfo(kPasscodeMismatch);
  return false;
}

bool VelmorSimpleSecureStore::lock() {
  logCall("-[VelmorSimpleSecureStore lock]");
  forgetKey();
  return true;
}

bool VelmorSimpleSecureStore::changePasscode(const std::optional<std::string>& passcode) {
  logCall("-[VelmorSimpleSecureStore changePasscode:]",
          {secretArgument(LogSecret(LogSecret::Kind::kPasscode, passcode))});
  if (!isUnlocked()) return false;
  // Read while the old key is still held; it is saved again under the new one.
  std::optional<Value> object = loadObject();

  Dictionary dictionary{{SecureStoreRecord::kVersionKey, SecureStoreRecord::kVersion}};
  if (passcode) {
    dictionary.set(SecureStoreRecord::kPasscodeInputTypeKey,
                   SecureStoreRecord::determinePasscodeInputType(*passcode));
    Data salt = CryptoUtility::randomSalt();
    std::uint32_t roundCount = 0;
    Data key = CryptoUtility::generateAesKeyForPassword(*passcode, salt, 0, &roundCount);
    dictionary.set(SecureStoreRecord::kSaltKey, std::move(salt));
    dictionary.set(SecureStoreRecord::kRoundCountKey, static_cast<std::int64_t>(roundCount));
    dictionary.set(SecureStoreRecord::kPasscodeHmacKey, passcodeHmac(key, *passcode));
    holdKey(std::move(key));
  } else {
    forgetKey();
  }
  saveDataDictionary(dictionary);
  if (object) saveObject(*object);
  return true;
}

bool VelmorSimpleSecureStore::saveObject(const Value& object) {
  logCall("-[VelmorSimpleSecureStore saveObject:]",
          {secretArgument(LogSecret(LogSecret::Kind::kApplicationObject, object))});
  if (!isUnlocked()) return false;
  Data archive = SecureStoreRecord::archiveSingleObject(object);
  Dictionary dictionary = retrieveDataDictionary().value_or(
      Dictionary{{SecureStoreRecord::kVersionKey, SecureStoreRecord::kVersion}});
  if (aesEncryptionKey_) {
    std::optional<Data> iv;
    ErrorRef error;
    std::optional<Data> ciphertext =
        CryptoUtility::encryptData(archive, *aesEncryptionKey_, &iv, &error);
    cleanseData(archive);
    if (!ciphertext) {
      if (error) VAErrorHandler::handleError(*error);
      return false;
    }
    dictionary.set(SecureStoreRecord::kAppDataIvKey, std::move(*iv));
    dictionary.set(SecureStoreRecord::kAppDataKey, std::move(*ciphertext));
  } else {
    dictionary.set(SecureStoreRecord::kAppDataKey, std::move(archive));
    dictionary.erase(SecureStoreRecord::kAppDataIvKey);
  }
  // Secret-store failures have gone to the error funnel; the value counts as handed over.
  saveDataDictionary(dictionary);
  return true;
}

std::optional<Value> VelmorSimpleSecureStore::loadObject() {
  logCall("-[VelmorSimpleSecureStore loadObject]");
  if (!isUnlocked()) return std::nullopt;
  std::optional<Dictionary> dictionary = retrieveDataDictionary();
  if (!dictionary) return std::nullopt;
  const Data* appData = bytesIn(*dictionary, SecureStoreRecord::kAppDataKey);
  if (!appData) return std::nullopt;

  Data archive;
  if (dictionary->contains(SecureStoreRecord::kAppDataIvKey)) {
    const Data* iv = bytesIn(*dictionary, SecureStoreRecord::kAppDataIvKey);
    std::optional<Data> plaintext = CryptoUtility::decryptData(
        *appData, aesEncryptionKey_.value_or(Data{}), iv ? *iv : Data{}, nullptr);
    if (!plaintext) {
      logError("Failed to decrypt application data.");
      return std::nullopt;
    }
    archive = std::move(*plaintext);
  } else {
    archive = *appData;
  }

  std::optional<Value> object;
  try {
    object = SecureStoreRecord::unarchiveSingleObject(archive);
  } catch (const Exception& exception) {
    cleanseData(archive);
    // A value that cannot be read back would block the store for good:
    // start over without it.
    VAErrorHandler::handleException(exception);
    deleteExistingKeychainItem();
    forgetKey();
    return std::nullopt;
  }
  cleanseData(archive);
  return object;
}

bool VelmorSimpleSecureStore::validatePasscode(const std::string& passcode, Data* encryptionKey) {
  std::optional<Dictionary> dictionary = retrieveDataDictionary();
  if (!dictionary) return false;
  const Data* storedHmac = bytesIn(*dictionary, SecureStoreRecord::kPasscodeHmacKey);
  if (!storedHmac) return false;
  const Data* salt = bytesIn(*dictionary, SecureStoreRecord::kSaltKey);
  if (!salt) {
    reportMissing("Missing Salt");
    return false;
  }
  std::optional<std::uint32_t> roundCount = roundCountIn(*dictionary);
  if (!roundCount) {
    reportMissing("Missing RoundCount");
    return false;
  }
  if (*roundCount > PbkdfCalibration::storedRoundCountCeiling()) {
    reportExcessiveRoundCount(*roundCount);
    return false;
  }
  std::uint32_t usedRoundCount = 0;
  Data key =
      CryptoUtility::generateAesKeyForPassword(passcode, *salt, *roundCount, &usedRoundCount);
  if (sameBytes(passcodeHmac(key, passcode), *storedHmac)) {
    *encryptionKey = std::move(key);
    return true;
  }
  cleanseData(key);
  logInfo(kPasscodeMismatch);
  return false;
}

std::optional<Dictionary> VelmorSimpleSecureStore::retrieveDataDictionary() {
  std::optional<Data> data = retrieveDataForExistingKeychainItem();
  if (!data) return std::nullopt;
  try {
    return SecureStoreRecord::unarchiveDictionary(*data);
  } catch (const Exception& exception) {
    // The item stays: deleting a damaged record is the application's call
    // (deleteStore), unlike a damaged value inside a readable one.
    logError(stringWithFormat("Failed to unarchive data. Possibly corrupted. Error: '%@'",
                              exception.reason()));
    return std::nullopt;
  }
}

std::optional<Data> VelmorSimpleSecureStore::retrieveDataForExistingKeychainItem() {
  ErrorRef ignored;
  std::shared_ptr<KeychainItem> item = KeychainItem::findByServiceName(
      keychainItemServiceName_, keychainItemServiceAccount_, &ignored);
  if (!item) return std::nullopt;
  return item->data();
}

void VelmorSimpleSecureStore::saveDataDictionary(const Dictionary& dictionary) {
  const Data archive = SecureStoreRecord::archiveSingleObject(dictionary);
  ErrorRef error;
  if (!retrieveDataForExistingKeychainItem()) {
    KeychainItem::addWithServiceName(keychainItemServiceName_, keychainItemServiceAccount_, archive,
                                     kAccessLevel, &error);
    if (error) VAErrorHandler::handleError(*error);
    return;
  }
  std::shared_ptr<KeychainItem> item = KeychainItem::findByServiceName(
      keychainItemServiceName_, keychainItemServiceAccount_, &error);
  if (error) {
    VAErrorHandler::handleError(*error);
    return;
  }
  if (!item) return;  // deleted meanwhile by someone else: their change wins
  if (ErrorRef updateError = item->updateData(archive, kAccessLevel)) {
    VAErrorHandler::handleError(*updateError);
  }
}

void VelmorSimpleSecureStore::deleteExistingKeychainItem() {
  if (ErrorRef error = KeychainItem::deleteKeychainItemWithServiceName(
          keychainItemServiceName_, keychainItemServiceAccount_)) {
    VAErrorHandler::handleError(*error);
  }
}

void VelmorSimpleSecureStore::holdKey(Data key) {
  forgetKey();
  aesEncryptionKey_ = std::move(key);
}

void VelmorSimpleSecureStore::forgetKey() {
  if (aesEncryptionKey_) cleanseData(*aesEncryptionKey_);
  aesEncryptionKey_.reset();
}

}  // namespace velmor
