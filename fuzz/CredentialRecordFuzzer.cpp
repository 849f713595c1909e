// Stores arbitrary bytes as the credential record's secret-store item and
// reads it through the record's getters, with the application's key and
// without one. The first input byte chooses how: bit 0 gives the reader the
// key, bit 1 treats the rest as the inner archive and seals it (encrypts it
// and adds its HMAC) under the key, so that the decrypted path is reached.
// Nothing may crash, throw or leak; the item must end either unchanged or
// deleted; what reads back must be consistent across the getters; and one
// setter afterwards must leave a record holding its value and nothing lost.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "FuzzCheck.h"
#include "RecordSnapshot.h"
#include "platform/KeyedArchiver.h"
#include "storage/CryptoUtility.h"
#include "storage/SecureData.h"
#include "support/Text.h"
#include "velmor/MemorySecretStore.h"
#include "velmor/SecretStore.h"

namespace {

using velmor::Data;
using velmor::Dictionary;
using velmor::SecureData;
using velmor::fuzz::require;
using velmor::fuzz::Snapshot;

constexpr std::uint8_t kReaderHasKey = 1;
constexpr std::uint8_t kSealPayload = 2;

// The outer archive an encrypted save writes, around `plaintext`.
Data sealed(const Data& plaintext) {
  const Data key = velmor::fuzz::fixedKey();
  std::optional<Data> iv;
  std::optional<Data> ciphertext = velmor::CryptoUtility::encryptData(plaintext, key, &iv, nullptr);
  require(ciphertext && iv);
  velmor::KeyedArchiver outer;
  outer.encodeInt32(1, "Version");
  outer.encodeBool(true, "Encrypted");
  outer.encodeBytes(*iv, "IV");
  outer.encodeBytes(velmor::CryptoUtility::calculateHmacWithKey(key, plaintext), "HMAC");
  outer.encodeBytes(*ciphertext, "EncryptedData");
  return outer.finishEncoding();
}

// Each stored date that reads back is one the record's own format produces.
void checkDate(SecureData& record, const Dictionary& dictionary, const char* key,
               const std::optional<velmor::fuzz::Date>& date) {
  const std::string* text = dictionary.findString(key);
  if (!text) {
    require(!date);
    return;
  }
  if (date) require(record.utcDateTimeFormatter().stringFromDate(*date) == *text);
}

void checkGetters(SecureData& record, const Dictionary& dictionary, const Snapshot& snapshot) {
  for (const auto& entry : dictionary) require(entry.second.stringValue() != nullptr);
  auto same = [&](const char* key, const std::optional<std::string>& value) {
    const std::string* text = dictionary.findString(key);
    require(text ? value == *text : !value);
  };
  same("ClientId", snapshot.clientId);
  same("ClientSecret", snapshot.clientSecret);
  same("Username", snapshot.username);
  same("AccessToken", snapshot.accessToken);
  same("RefreshToken", snapshot.refreshToken);
  checkDate(record, dictionary, "AccessTokenValidStartDateTime", snapshot.accessStart);
  checkDate(record, dictionary, "AccessTokenValidEndDateTime", snapshot.accessEnd);
  checkDate(record, dictionary, "RefreshTokenValidStartDateTime", snapshot.refreshStart);
  checkDate(record, dictionary, "RefreshTokenValidEndDateTime", snapshot.refreshEnd);
}

// A text as a rewrite keeps it: a record read from elsewhere may hold
// malformed UTF-8, which the record's writes store with U+FFFD per bad byte
// (and a NUL, which no stored text can hold, ends it).
std::optional<std::string> storedForm(const std::optional<std::string>& text) {
  if (!text) return std::nullopt;
  return velmor::text::toUtf8(velmor::text::toUtf16(text->substr(0, text->find('\0'))));
}

// What the getters see of a record, without snapshotOf's demand that every
// entry be one of ours: a stored record may hold keys we never write.
Snapshot readAll(SecureData& record) {
  Snapshot snapshot;
  snapshot.clientId = record.clientId();
  snapshot.clientSecret = record.clientSecret();
  snapshot.username = record.username();
  snapshot.accessToken = record.accessToken();
  snapshot.accessStart = record.accessTokenValidStartDateTime();
  snapshot.accessEnd = record.accessTokenValidEndDateTime();
  snapshot.refreshToken = record.refreshToken();
  snapshot.refreshStart = record.refreshTokenValidStartDateTime();
  snapshot.refreshEnd = record.refreshTokenValidEndDateTime();
  return snapshot;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::uint8_t mode = data[0];
  const Data payload(data + 1, data + size);
  const Data item = (mode & kSealPayload) ? sealed(payload) : payload;

  auto store = std::make_shared<velmor::MemorySecretStore>();
  velmor::SecretStore::setDefault(store);
  std::shared_ptr<SecureData> record = velmor::fuzz::newRecord(
      (mode & kReaderHasKey) ? std::optional<Data>(velmor::fuzz::fixedKey()) : std::nullopt);
  const std::string service = record->keychainItemServiceName();
  const std::string account = record->keychainItemServiceAccount();
  require(store->add(service, account, item) == velmor::kSecretStoreSuccess);

  const std::optional<Dictionary> dictionary = record->retrieveDataDictionary();
  Data stored;
  const std::int32_t status = store->find(service, account, &stored);
  if (dictionary) {
    // Readable: kept as it is, and every getter agrees with the whole.
    require(status == velmor::kSecretStoreSuccess && stored == item);
    checkGetters(*record, *dictionary, readAll(*record));
  } else if (status == velmor::kSecretStoreSuccess) {
    // Kept but not read (another version): nothing reads from it.
    require(stored == item);
    require(readAll(*record) == Snapshot{});
  } else {
    require(status == velmor::kSecretStoreItemNotFound);
  }

  // One write afterwards starts from what could be read and loses none of it.
  const Snapshot before = readAll(*record);
  record->setUsername("written-after-read");
  const Snapshot after = readAll(*record);
  require(after.username == "written-after-read");
  require(after.clientId == storedForm(before.clientId) &&
          after.clientSecret == storedForm(before.clientSecret));
  require(after.accessToken == storedForm(before.accessToken) &&
          after.refreshToken == storedForm(before.refreshToken));
  require(after.accessStart == before.accessStart && after.accessEnd == before.accessEnd);
  require(after.refreshStart == before.refreshStart && after.refreshEnd == before.refreshEnd);
  const std::optional<Dictionary> written = record->retrieveDataDictionary();
  require(written && written->findString("Username"));
  std::set<std::string> keys{"Username"};
  if (dictionary) {
    for (const auto& entry : *dictionary) keys.insert(*storedForm(entry.first));
  }
  require(written->size() == keys.size());

  velmor::SecretStore::setDefault(nullptr);
  return 0;
}
