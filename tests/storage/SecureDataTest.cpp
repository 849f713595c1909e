#include "storage/SecureData.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "platform/KeyedArchiver.h"
#include "platform/KeyedUnarchiver.h"
#include "storage/AesCbc.h"
#include "storage/Base64.h"
#include "storage/CryptoUtility.h"
#include "storage/HexData.h"
#include "support/Format.h"
#include "testing/FakeProcessEnvironment.h"
#include "testing/FaultySecretStore.h"
#include "testing/RecordingLoggerDelegate.h"
#include "testing/ScopedProcessEnvironment.h"
#include "testing/ScopedSecretStore.h"

namespace velmor {
namespace {

using namespace std::chrono;
using Lines = std::vector<std::string>;
using Fields = std::vector<std::pair<std::string, Value>>;

Data keyFrom(std::uint8_t first) {
  Data key(32);
  for (auto& byte : key) byte = first++;
  return key;
}

const Data kKeyA = keyFrom(0x10);
const Data kKeyB = keyFrom(0x80);
const Data kIv = hexData("000102030405060708090a0b0c0d0e0f");
const Dictionary kRecord{{"ClientId", "cid"}};

constexpr char kService[] = "Velmor ID (T-0)";
constexpr char kAccount[] = "H-T-0";
constexpr char kDeleted[] = "INFO\tDeleted keychain item.";

std::string funnelLine(const std::string& name, const std::string& reason) {
  return "ERROR\tException name: '" + name + "' reason: '" + reason + "'";
}
std::string inconsistency(const std::string& reason) {
  return funnelLine("NSInternalInconsistencyException", reason);
}

Data archiveOf(const Fields& fields) {
  KeyedArchiver archiver;
  for (const auto& [key, value] : fields) archiver.encodeObject(value, key);
  return archiver.finishEncoding();
}

// An encrypted record built from the stored format alone, with a chosen IV
// so that what a wrong key does to it is fixed.
Fields sealed(const Data& plaintext, const Data& key, const Data& iv) {
  Data ciphertext;
  EXPECT_EQ(AesCbc::encrypt(plaintext, key, iv, ciphertext), CryptorStatus::kSuccess);
  return {{"Version", 1},
          {"Encrypted", true},
          {"IV", iv},
          {"HMAC", CryptoUtility::calculateHmacWithKey(key, plaintext)},
          {"EncryptedData", ciphertext}};
}
Data innerArchive(const Dictionary& dictionary) {
  return archiveOf({{"DataDictionary", dictionary}});
}
Fields sealedRecord(const Data& iv = kIv) { return sealed(innerArchive(kRecord), kKeyA, iv); }

Fields changed(Fields fields, const std::string& key, std::optional<Value> value) {
  std::erase_if(fields, [&](const auto& field) { return field.first == key; });
  if (value) fields.emplace_back(key, *value);
  return fields;
}

bool opensWith(const Data& ciphertext, const Data& key, const Data& iv) {
  Data plaintext;
  return AesCbc::decrypt(ciphertext, key, iv, plaintext) == CryptorStatus::kSuccess;
}

// An IV under which key B happens to decrypt key A's ciphertext with valid padding.
Data ivWhereWrongKeyPassesPadding() {
  Data iv = kIv;
  for (int n = 0; n < 65536; ++n) {
    iv[0] = static_cast<std::uint8_t>(n), iv[1] = static_cast<std::uint8_t>(n >> 8);
    const auto& ciphertext = *sealedRecord(iv)[4].second.dataValue();
    if (opensWith(ciphertext, kKeyB, iv)) return iv;
  }
  ADD_FAILURE() << "no such IV";
  return iv;
}

class SecureDataTest : public ::testing::Test {
 protected:
  std::shared_ptr<SecureData> record(std::optional<Data> key = kKeyA, std::int64_t slot = 0) {
    return std::make_shared<SecureData>("H", "T", std::move(key), slot);
  }
  std::optional<Data> item(const char* service = kService, const char* account = kAccount) {
    Data data;
    if (store_->target()->find(service, account, &data) != kSecretStoreSuccess) return std::nullopt;
    return data;
  }
  void putItem(const Data& bytes) {
    ASSERT_EQ(store_->target()->add(kService, kAccount, bytes), kSecretStoreSuccess);
  }
  KeyedUnarchiver stored() { return KeyedUnarchiver(item().value_or(Data{})); }
  // The stored record's dictionary, decrypted and checked here.
  Dictionary openStored(const Data& key) {
    KeyedUnarchiver outer = stored();
    EXPECT_EQ(outer.decodeInt32ForKey("Version"), 1);
    EXPECT_TRUE(outer.decodeBoolForKey("Encrypted"));
    Data plaintext;
    EXPECT_EQ(AesCbc::decrypt(*outer.decodeBytesForKey("EncryptedData"), key,
                              *outer.decodeBytesForKey("IV"), plaintext),
              CryptorStatus::kSuccess);
    EXPECT_EQ(outer.decodeBytesForKey("HMAC"), CryptoUtility::calculateHmacWithKey(key, plaintext));
    return KeyedUnarchiver(plaintext).decodeStringDictionaryForKey("DataDictionary").value();
  }
  int writes() const { return store_->adds + store_->updates + store_->removes; }

  std::shared_ptr<test::FaultySecretStore> store_ = std::make_shared<test::FaultySecretStore>();
  test::ScopedSecretStore storeScope_{store_};
  test::FakeProcessEnvironment environment_;  // no debugger: the funnel only logs
  test::ScopedProcessEnvironment environmentScope_{environment_};
  test::RecordingLoggerDelegate log_;
  test::ScopedLogger loggerScope_{4, &log_};
};

TEST_F(SecureDataTest, FreshIdentityReadsNothingAndItsFirstSetterWritesOneEntry) {
  auto data = record();
  EXPECT_FALSE(data->clientId() || data->clientSecret() || data->username() ||
               data->accessToken() || data->refreshToken() ||
               data->accessTokenValidStartDateTime() || data->accessTokenValidEndDateTime() ||
               data->refreshTokenValidStartDateTime() || data->refreshTokenValidEndDateTime());
  EXPECT_FALSE(data->hasClientId() || data->hasClientSecret() || data->hasAccessToken() ||
               data->hasRefreshToken());
  data->deleteClientId(), data->deleteClientSecret(), data->deleteUsername();
  data->deleteAccessToken(), data->deleteAccessTokenValidStartDateTime();
  data->deleteAccessTokenValidEndDateTime(), data->deleteRefreshToken();
  data->deleteRefreshTokenValidStartDateTime(), data->deleteRefreshTokenValidEndDateTime();
  EXPECT_EQ(writes(), 0);
  EXPECT_EQ(log_.messages(), Lines{});

  data->setClientId("cid");
  EXPECT_EQ(store_->adds, 1);
  EXPECT_EQ(openStored(kKeyA), kRecord);
  EXPECT_TRUE(data->hasClientId());

  // A setter on an existing item: read, existence check, re-find, update's find.
  store_->finds = 0;
  data->setClientSecret("secret");
  EXPECT_EQ(store_->finds, 4);
  EXPECT_EQ(store_->updates, 1);
}

TEST_F(SecureDataTest, SlotsNameSeparateItems) {
  auto slot0 = record(kKeyA, 0), slot1 = record(kKeyA, 1);
  EXPECT_EQ(slot0->keychainItemServiceName(), "Velmor ID (T-0)");
  EXPECT_EQ(slot0->keychainItemServiceAccount(), "H-T-0");
  EXPECT_EQ(slot1->keychainItemServiceName(), "Velmor ID (T-1)");
  EXPECT_EQ(slot1->keychainItemServiceAccount(), "H-T-1");
  EXPECT_EQ(record(kKeyA, -2)->keychainItemServiceAccount(), "H-T--2");

  slot0->setAccessToken("zero");
  EXPECT_FALSE(slot1->hasAccessToken());
  slot1->setAccessToken("one");
  slot1->deleteAll();
  EXPECT_EQ(slot0->accessToken(), "zero");
  EXPECT_FALSE(item("Velmor ID (T-1)", "H-T-1"));
}

TEST_F(SecureDataTest, EveryEntryHasItsOwnKey) {
  const time_point<system_clock> noon = sys_days{2024y / February / 29} + 12h;
  auto data = record();
  data->setClientId("1"), data->setClientSecret("2"), data->setUsername("3");
  data->setAccessToken("4"), data->setRefreshToken("5");
  data->setAccessTokenValidStartDateTime(noon + 750ms);
  data->setAccessTokenValidEndDateTime(noon + 1h);
  data->setRefreshTokenValidStartDateTime(sys_days{1969y / December / 31} + 86399s + 250ms);
  data->setRefreshTokenValidEndDateTime(time_point<system_clock>{});
  EXPECT_EQ(openStored(kKeyA),
            (Dictionary{{"ClientId", "1"},
                        {"ClientSecret", "2"},
                        {"Username", "3"},
                        {"AccessToken", "4"},
                        {"RefreshToken", "5"},
                        {"AccessTokenValidStartDateTime", "2024-02-29 12:00:00"},
                        {"AccessTokenValidEndDateTime", "2024-02-29 13:00:00"},
                        {"RefreshTokenValidStartDateTime", "1969-12-31 23:59:59"},
                        {"RefreshTokenValidEndDateTime", "1970-01-01 00:00:00"}}));
  EXPECT_EQ(data->accessTokenValidStartDateTime(), noon);  // the fraction is gone
  EXPECT_EQ(data->refreshTokenValidStartDateTime(), sys_days{1970y / January / 1} - 1s);
  EXPECT_EQ(data->username(), "3");

  data->saveValue("tomorrow", "AccessTokenValidEndDateTime");
  EXPECT_EQ(data->accessTokenValidEndDateTime(), std::nullopt);
}

TEST_F(SecureDataTest, FormatterRefusesAnythingButItsOwnShape) {
  UtcDateTimeFormatter formatter;
  EXPECT_EQ(formatter.dateFromString("2262-04-11 23:47:16"),
            time_point<system_clock>{sys_days{2262y / April / 11} + 23h + 47min + 16s});
  for (const char* text :
       {"", "2023-02-29 12:00:00", "2024-13-01 00:00:00", "2024-00-10 00:00:00",
        "2024-01-01 24:00:00", "2024-01-01 00:60:00", "2024-01-01 00:00:60", "2024-01-01T00:00:00",
        "2024-01-01 00:00:0", "2024-01-01 00:00:00 ", "+024-01-01 00:00:00", "2024-1-01 00:00:00",
        "2262-04-11 23:47:17", "1677-09-21 00:12:43", "9999-12-31 23:59:59", "0000-01-01 00:00:00",
        "2024-01-01 00:00:\xd9\xa0"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(formatter.dateFromString(text), std::nullopt);
  }
  EXPECT_EQ(formatter.stringFromDate(time_point<system_clock>::min()), "1677-09-21 00:12:43");
  EXPECT_EQ(formatter.stringFromDate(time_point<system_clock>::max()), "2262-04-11 23:47:16");
}

TEST_F(SecureDataTest, SettingNothingRemovesTheEntryAndRewrites) {
  auto data = record();
  data->setClientId("cid");
  data->setAccessToken("at");
  data->setAccessTokenValidEndDateTime(system_clock::now());
  data->setAccessToken(std::nullopt);
  data->setAccessTokenValidEndDateTime(std::nullopt);
  EXPECT_EQ(store_->updates, 4);
  EXPECT_EQ(openStored(kKeyA), kRecord);
}

TEST_F(SecureDataTest, EverySaveDrawsAFreshIv) {
  auto data = record();
  data->saveDataDictionary(kRecord);
  const KeyedUnarchiver first = stored();
  data->saveDataDictionary(kRecord);
  const KeyedUnarchiver second = stored();
  EXPECT_EQ(first.decodeBytesForKey("IV")->size(), 16u);
  EXPECT_NE(first.decodeBytesForKey("IV"), second.decodeBytesForKey("IV"));
  EXPECT_NE(first.decodeBytesForKey("EncryptedData"), second.decodeBytesForKey("EncryptedData"));
  EXPECT_EQ(first.decodeBytesForKey("HMAC"), second.decodeBytesForKey("HMAC"));
  EXPECT_EQ(openStored(kKeyA), kRecord);
}

TEST_F(SecureDataTest, UnreadableRecordIsReportedAndDeleted) {
  const Fields good = sealedRecord();
  ASSERT_FALSE(opensWith(*good[4].second.dataValue(), kKeyB, kIv));
  Data mac = *good[3].second.dataValue();
  mac[31] ^= 1;
  const Data notAnArchive = bytesOf("not an archive");
  struct Case {
    const char* name;
    Data item;
    std::optional<Data> key;
    std::string line;
  } cases[] = {
      {"wrong key", archiveOf(good), kKeyB,
       inconsistency("Unable to decrypt data. May be using incorrect key.")},
      {"no key", archiveOf(good), std::nullopt,
       inconsistency("Unable to decrypt data. May be using incorrect key.")},
      {"wrong key, padding passes", archiveOf(sealedRecord(ivWhereWrongKeyPassesPadding())), kKeyB,
       inconsistency("Data integrity HMAC check failed. May be using incorrect key.")},
      {"tampered HMAC", archiveOf(changed(good, "HMAC", mac)), kKeyA,
       inconsistency("Data integrity HMAC check failed. May be using incorrect key.")},
      {"short HMAC", archiveOf(changed(good, "HMAC", Data(mac.begin(), mac.begin() + 16))), kKeyA,
       inconsistency("Data integrity HMAC check failed. May be using incorrect key.")},
      {"no IV", archiveOf(changed(good, "IV", std::nullopt)), kKeyA,
       inconsistency("Missing IV for encrypted data")},
      {"empty IV", archiveOf(changed(good, "IV", Data{})), kKeyA,
       inconsistency("Missing IV for encrypted data")},
      {"short IV", archiveOf(changed(good, "IV", Data(8, 0))), kKeyA,
       inconsistency("Unable to decrypt data. May be using incorrect key.")},
      {"no EncryptedData", archiveOf(changed(good, "EncryptedData", std::nullopt)), kKeyA,
       inconsistency("Missing encrypted data")},
      {"no HMAC", archiveOf(changed(good, "HMAC", std::nullopt)), kKeyA,
       inconsistency("Missing HMAC")},
      // Decryption is checked before the HMAC is looked for.
      {"no HMAC, wrong key", archiveOf(changed(good, "HMAC", std::nullopt)), kKeyB,
       inconsistency("Unable to decrypt data. May be using incorrect key.")},
      {"garbage", hexData("deadbeef"), kKeyA,
       funnelLine("NSInvalidArgumentException",
                  "*** -[NSKeyedUnarchiver initForReadingWithData:]: incomprehensible archive "
                  "(4 bytes)")},
      {"Version as text", archiveOf(changed(good, "Version", "1")), kKeyA,
       funnelLine("NSInvalidUnarchiveOperationException",
                  "value for key 'Version' is not a 32-bit integer")},
      {"plaintext not an archive", archiveOf(sealed(notAnArchive, kKeyA, kIv)), kKeyA,
       funnelLine("NSInvalidArgumentException",
                  "*** -[NSKeyedUnarchiver initForReadingWithData:]: incomprehensible archive "
                  "(14 bytes)")},
      {"unencrypted number",
       archiveOf(
           {{"Version", 1}, {"Encrypted", false}, {"DataDictionary", Dictionary{{"ClientId", 7}}}}),
       kKeyA,
       funnelLine("NSInvalidUnarchiveOperationException",
                  "value for key 'DataDictionary' is not a dictionary of texts")},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    test::RecordingLoggerDelegate log;
    test::ScopedLogger scope(4, &log);
    putItem(c.item);
    EXPECT_EQ(record(c.key)->clientId(), std::nullopt);
    EXPECT_EQ(log.messages(), (Lines{c.line, kDeleted}));
    EXPECT_FALSE(item());
  }
}

TEST_F(SecureDataTest, OtherVersionIsKeptUntilTheNextWrite) {
  for (const std::optional<Value>& version : {std::optional<Value>(2), std::optional<Value>()}) {
    SCOPED_TRACE(version ? "2" : "none");
    const Data other = archiveOf(changed(sealedRecord(), "Version", version));
    putItem(other);
    auto data = record();
    EXPECT_FALSE(data->hasClientId());
    EXPECT_EQ(item(), other);
    data->setAccessToken("at");
    EXPECT_EQ(openStored(kKeyA), (Dictionary{{"AccessToken", "at"}}));
    data->deleteAll();
  }
  EXPECT_EQ(log_.messages(), (Lines{kDeleted, kDeleted}));
}

TEST_F(SecureDataTest, UnencryptedRecordIsEncryptedByTheNextKeyedWrite) {
  record(std::nullopt)->setClientId("cid");
  EXPECT_FALSE(stored().decodeBoolForKey("Encrypted"));
  EXPECT_EQ(stored().decodeStringDictionaryForKey("DataDictionary"), kRecord);

  auto keyed = record(kKeyA);
  EXPECT_EQ(keyed->clientId(), "cid");
  keyed->setUsername("u");
  EXPECT_EQ(openStored(kKeyA), (Dictionary{{"ClientId", "cid"}, {"Username", "u"}}));
}

TEST_F(SecureDataTest, ChangeAesEncryptionKeyRewritesUnderTheNewKey) {
  auto data = record(kKeyA);
  data->setClientId("cid");
  data->changeAesEncryptionKey(kKeyB);
  EXPECT_EQ(data->aesEncryptionKey(), kKeyB);
  EXPECT_EQ(openStored(kKeyB), kRecord);
  data->changeAesEncryptionKey(std::nullopt);
  EXPECT_EQ(stored().decodeStringDictionaryForKey("DataDictionary"), kRecord);
  EXPECT_EQ(log_.messages(), Lines{});

  store_->target()->remove(kService, kAccount);
  putItem(archiveOf(sealedRecord()));
  auto stranger = record(kKeyB);
  stranger->changeAesEncryptionKey(keyFrom(0));
  EXPECT_EQ(stranger->aesEncryptionKey(), keyFrom(0));
  EXPECT_FALSE(item());
  EXPECT_EQ(store_->adds, 1);  // only the first setClientId
  EXPECT_EQ(
      log_.messages(),
      (Lines{inconsistency("Unable to decrypt data. May be using incorrect key."), kDeleted}));
}

TEST_F(SecureDataTest, KeychainFailuresAreOnlyLogged) {
  struct Case {
    const char* name;
    std::atomic<std::int32_t> test::FaultySecretStore::*fault;
    std::int32_t status;
    std::string line;
  } cases[] = {
      {"update", &test::FaultySecretStore::updateFault, -36,
       "ERROR\tKeychain error: -36, 'I/O error.' in SecKeychainItemModifyContent"},
      // A locked store hides the item, so the write tries to add a second one.
      {"find", &test::FaultySecretStore::findFault, -25308,
       "ERROR\tKeychain error: -25299, 'The specified item already exists in the keychain.' in "
       "SecKeychainAddGenericPassword"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    record()->setClientId("cid");
    const Data before = item().value();
    test::RecordingLoggerDelegate log;
    test::ScopedLogger scope(4, &log);
    (*store_).*c.fault = c.status;
    record()->setClientSecret("secret");
    (*store_).*c.fault = 0;
    EXPECT_EQ(log.messages(), Lines{c.line});
    EXPECT_EQ(item(), before);
    store_->target()->remove(kService, kAccount);
  }

  store_->addFault = -25291;
  record()->setClientId("cid");
  store_->addFault = 0;
  record()->setClientId("cid");
  store_->removeFault = -36;
  record()->deleteAll();
  EXPECT_TRUE(item());
  EXPECT_EQ(log_.messages(),
            (Lines{"ERROR\tKeychain error: -25291, 'No keychain is available. You may need to "
                   "restart your computer.' in SecKeychainAddGenericPassword",
                   "ERROR\tKeychain error: -36, 'I/O error.' in SecKeychainItemDelete"}));
}

TEST_F(SecureDataTest, FailedEncryptionWritesNothing) {
  record(std::nullopt)->setClientId("cid");
  const Data before = item().value();
  record(Data(5, 1))->setClientSecret("secret");  // no AES key has 5 bytes
  EXPECT_EQ(item(), before);
  // Cipher errors carry no description of their own.
  EXPECT_EQ(log_.messages(), Lines{"ERROR\t(null)"});
}

TEST_F(SecureDataTest, NoSecretReachesTheLogBelowTheSensitiveLevel) {
  const Data shortKey = keyFrom(0xc0);
  auto data = record(kKeyA);
  data->setClientSecret("client-secret-1");
  data->setAccessToken("access-token-2");
  data->setRefreshToken("refresh-token-3");
  data->changeAesEncryptionKey(kKeyB);
  store_->updateFault = -36;
  data->setClientSecret("client-secret-4");
  store_->updateFault = 0;
  EXPECT_FALSE(record(kKeyA)->hasAccessToken());  // wrong key: reported and deleted
  record(Data(shortKey.begin(), shortKey.begin() + 7))->setAccessToken("access-token-5");
  ASSERT_EQ(log_.messages().size(), 4u);

  std::vector<std::string> secrets = {"client-secret", "access-token", "refresh-token"};
  for (const Data& key : {kKeyA, kKeyB, shortKey}) {
    std::string hex, upperHex;
    for (std::uint8_t byte : key) {
      hex += stringWithFormat("%02x", byte), upperHex += stringWithFormat("%02X", byte);
    }
    // The first group of four bytes also catches a description's "<10111213 ...>".
    secrets.insert(secrets.end(), {hex.substr(0, 8), upperHex.substr(0, 8)});
    secrets.push_back(Base64::encodeBase64WithData(key)->substr(0, 8));
  }
  for (const std::string& line : log_.messages()) {
    for (const std::string& secret : secrets) {
      EXPECT_EQ(line.find(secret), std::string::npos) << line;
    }
  }
}

}  // namespace
}  // namespace velmor
