#include "storage/SecureData.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/KeyedArchiver.h"
#include "platform/KeyedUnarchiver.h"
#include "storage/AesCbc.h"
#include "storage/CryptoUtility.h"
#include "support/Format.h"
#include "testing/FakeProcessEnvironment.h"
#include "testing/FaultySecretStore.h"
#include "testing/HexData.h"
#include "testing/RecordingLoggerDelegate.h"
#include "testing/ScopedProcessEnvironment.h"
#include "testing/ScopedSecretStore.h"
#include "velmor/Base64.h"

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

const Data kKeyA = keyFrom(0x10), kKeyB = keyFrom(0x80);
const Data kIv(16, 7);
const Dictionary kRecord{{"ClientId", "cid"}};
constexpr char kService[] = "Velmor ID (T-0)", kAccount[] = "H-T-0";
constexpr char kDecryptFailed[] = "Unable to decrypt data. May be using incorrect key.";
constexpr char kMacFailed[] = "Data integrity HMAC check failed. May be using incorrect key.";
constexpr char kDeleted[] = "INFO\tDeleted keychain item.";

std::string funnelLine(const std::string& reason,
                       const std::string& name = "NSInternalInconsistencyException") {
  return "ERROR\tException name: '" + name + "' reason: '" + reason + "'";
}

Data archiveOf(const Fields& fields) {
  KeyedArchiver archiver;
  for (const auto& [key, value] : fields) archiver.encodeObject(value, key);
  return archiver.finishEncoding();
}

const Data kInner = archiveOf({{"DataDictionary", kRecord}});

// A record under key A made from the stored format alone, with a chosen IV
// so that what a wrong key makes of it is fixed.
Fields sealed(const Data& plaintext, const Data& iv = kIv) {
  Data ciphertext;
  EXPECT_EQ(AesCbc::encrypt(plaintext, kKeyA, iv, ciphertext), CryptorStatus::kSuccess);
  return {{"Version", 1},
          {"Encrypted", true},
          {"IV", iv},
          {"HMAC", CryptoUtility::calculateHmacWithKey(kKeyA, plaintext)},
          {"EncryptedData", ciphertext}};
}

Fields changed(Fields fields, const std::string& key, std::optional<Value> value) {
  std::erase_if(fields, [&](const auto& field) { return field.first == key; });
  if (value) fields.emplace_back(key, *value);
  return fields;
}

bool keyBPassesPadding(const Fields& record) {
  Data plaintext;
  return AesCbc::decrypt(*record[4].second.dataValue(), kKeyB, *record[2].second.dataValue(),
                         plaintext) == CryptorStatus::kSuccess;
}

Data ivWhereKeyBPassesPadding() {
  Data iv = kIv;
  for (int n = 0; n < 65536 && !keyBPassesPadding(sealed(kInner, iv)); ++n) {
    iv[0] = static_cast<std::uint8_t>(n), iv[1] = static_cast<std::uint8_t>(n >> 8);
  }
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
    store_->target()->remove(kService, kAccount);
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
  for (auto remove :
       {&SecureData::deleteClientId, &SecureData::deleteClientSecret, &SecureData::deleteUsername,
        &SecureData::deleteAccessToken, &SecureData::deleteAccessTokenValidStartDateTime,
        &SecureData::deleteAccessTokenValidEndDateTime, &SecureData::deleteRefreshToken,
        &SecureData::deleteRefreshTokenValidStartDateTime,
        &SecureData::deleteRefreshTokenValidEndDateTime}) {
    ((*data).*remove)();
  }
  EXPECT_EQ(store_->adds + store_->updates + store_->removes, 0);

  data->setClientId("cid");
  EXPECT_EQ(store_->adds, 1);
  EXPECT_EQ(openStored(kKeyA), kRecord);
  // On an existing item: one read, and the update reuses what it found.
  store_->finds = 0;
  data->setClientSecret("s");
  EXPECT_EQ(store_->finds, 1);
  EXPECT_EQ(store_->updates, 1);
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(SecureDataTest, SlotsNameSeparateItems) {
  auto slot0 = record(kKeyA, 0), slot1 = record(kKeyA, 1);
  EXPECT_EQ(slot0->keychainItemServiceName() + " " + slot0->keychainItemServiceAccount(),
            "Velmor ID (T-0) H-T-0");
  EXPECT_EQ(slot1->keychainItemServiceName() + " " + slot1->keychainItemServiceAccount(),
            "Velmor ID (T-1) H-T-1");
  slot0->setAccessToken("zero");
  EXPECT_FALSE(slot1->hasAccessToken());
  slot1->setAccessToken("one");
  slot1->deleteAll();
  EXPECT_EQ(slot0->accessToken(), "zero");
  EXPECT_FALSE(item("Velmor ID (T-1)", "H-T-1"));
}

TEST_F(SecureDataTest, EveryEntryHasItsOwnKeyAndDatesKeepWholeSeconds) {
  const time_point<system_clock> noon = sys_days{2024y / February / 29} + 12h;
  auto data = record();
  data->setClientId("1"), data->setClientSecret("2"), data->setUsername("3");
  data->setAccessToken("4"), data->setRefreshToken("5");
  data->setAccessTokenValidStartDateTime(noon + 750ms);
  data->setAccessTokenValidEndDateTime(noon + 1h);
  data->setRefreshTokenValidStartDateTime(sys_days{1970y / January / 1} - 750ms);
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
  EXPECT_EQ(data->accessTokenValidStartDateTime(), noon);
  EXPECT_EQ(data->refreshTokenValidStartDateTime(), sys_days{1970y / January / 1} - 1s);
  data->saveValue("tomorrow", "AccessTokenValidEndDateTime");
  EXPECT_EQ(data->accessTokenValidEndDateTime(), std::nullopt);
}

TEST_F(SecureDataTest, FormatterReadsOnlyItsOwnShape) {
  UtcDateTimeFormatter formatter;
  const time_point<system_clock> latest = sys_days{2262y / April / 11} + 23h + 47min + 16s;
  EXPECT_EQ(formatter.dateFromString("2262-04-11 23:47:16"), latest);
  EXPECT_EQ(formatter.stringFromDate(time_point<system_clock>::max()), "2262-04-11 23:47:16");
  EXPECT_EQ(formatter.stringFromDate(time_point<system_clock>::min()), "1677-09-21 00:12:43");
  for (const char* text : {"", "2023-02-29 12:00:00", "2024-13-01 00:00:00", "2024-00-10 00:00:00",
                           "2024-01-01 24:00:00", "2024-01-01 00:60:00", "2024-01-01 00:00:60",
                           "2024-01-01T00:00:00", "2024-01-01 00:00:0", "2024-01-01 00:00:00 ",
                           "+024-01-01 00:00:00", "2024-1-01 00:00:00", "2024-01-01 00:00:\xd9\xa0",
                           "2262-04-11 23:47:17", "1677-09-21 00:12:43", "0000-01-01 00:00:00"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(formatter.dateFromString(text), std::nullopt);
  }
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
  const Fields good = sealed(kInner);
  ASSERT_FALSE(keyBPassesPadding(good));
  const Data lucky = ivWhereKeyBPassesPadding();
  ASSERT_TRUE(keyBPassesPadding(sealed(kInner, lucky)));
  Data mac = *good[3].second.dataValue();
  mac[31] ^= 1;
  auto incomprehensible = [](std::size_t length) {
    return funnelLine(stringWithFormat("*** -[NSKeyedUnarchiver initForReadingWithData:]: "
                                       "incomprehensible archive (%lu bytes)",
                                       length),
                      "NSInvalidArgumentException");
  };
  const struct {
    const char* name;
    Data item;
    std::optional<Data> key;
    std::string line;
  } cases[] = {
      {"wrong key", archiveOf(good), kKeyB, funnelLine(kDecryptFailed)},
      {"no key", archiveOf(good), std::nullopt, funnelLine(kDecryptFailed)},
      {"wrong key, padding passes", archiveOf(sealed(kInner, lucky)), kKeyB,
       funnelLine(kMacFailed)},
      {"tampered HMAC", archiveOf(changed(good, "HMAC", mac)), kKeyA, funnelLine(kMacFailed)},
      {"short HMAC", archiveOf(changed(good, "HMAC", Data(16, 0))), kKeyA, funnelLine(kMacFailed)},
      {"no IV", archiveOf(changed(good, "IV", std::nullopt)), kKeyA,
       funnelLine("Missing IV for encrypted data")},
      {"empty IV", archiveOf(changed(good, "IV", Data{})), kKeyA,
       funnelLine("Missing IV for encrypted data")},
      {"short IV", archiveOf(changed(good, "IV", Data(8, 0))), kKeyA, funnelLine(kDecryptFailed)},
      {"no EncryptedData", archiveOf(changed(good, "EncryptedData", std::nullopt)), kKeyA,
       funnelLine("Missing encrypted data")},
      {"no HMAC", archiveOf(changed(good, "HMAC", std::nullopt)), kKeyA,
       funnelLine("Missing HMAC")},
      // The decryption is checked before the HMAC is looked for.
      {"no HMAC, wrong key", archiveOf(changed(good, "HMAC", std::nullopt)), kKeyB,
       funnelLine(kDecryptFailed)},
      {"garbage", hexData("deadbeef"), kKeyA, incomprehensible(4)},
      {"inner garbage", archiveOf(sealed(bytesOf("not an archive"))), kKeyA, incomprehensible(14)},
  };
  for (const auto& c : cases) {
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
    const Data other = archiveOf(changed(sealed(kInner), "Version", version));
    putItem(other);
    auto data = record();
    EXPECT_FALSE(data->hasClientId());
    EXPECT_EQ(item(), other);
    data->setAccessToken("at");
    EXPECT_EQ(openStored(kKeyA), (Dictionary{{"AccessToken", "at"}}));
  }
  EXPECT_EQ(log_.messages(), Lines{});
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
  EXPECT_EQ(openStored(kKeyB), kRecord);
  data->changeAesEncryptionKey(std::nullopt);
  EXPECT_EQ(stored().decodeStringDictionaryForKey("DataDictionary"), kRecord);
  EXPECT_EQ(log_.messages(), Lines{});

  putItem(archiveOf(sealed(kInner)));
  auto stranger = record(kKeyB);
  stranger->changeAesEncryptionKey(keyFrom(0));
  ASSERT_TRUE(stranger->aesEncryptionKey());
  EXPECT_EQ(*stranger->aesEncryptionKey(), keyFrom(0));
  EXPECT_FALSE(item());
  EXPECT_EQ(store_->adds, 1);  // the first setClientId only
  EXPECT_EQ(log_.messages(), (Lines{funnelLine(kDecryptFailed), kDeleted}));
}

TEST_F(SecureDataTest, KeychainFailuresAreOnlyLogged) {
  const struct {
    std::atomic<std::int32_t> test::FaultySecretStore::*fault;
    std::int32_t status;
    bool deleting;
    std::string line;
  } cases[] = {
      {&test::FaultySecretStore::updateFault, -36, false,
       "Keychain error: -36, 'I/O error.' in SecKeychainItemModifyContent"},
      // A locked store hides the item, so the write tries to add a second one.
      {&test::FaultySecretStore::findFault, -25308, false,
       "Keychain error: -25299, 'The specified item already exists in the keychain.' in "
       "SecKeychainAddGenericPassword"},
      {&test::FaultySecretStore::removeFault, -36, true,
       "Keychain error: -36, 'I/O error.' in SecKeychainItemDelete"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    putItem(archiveOf(sealed(kInner)));
    test::RecordingLoggerDelegate log;
    test::ScopedLogger scope(4, &log);
    (*store_).*c.fault = c.status;
    c.deleting ? record()->deleteAll() : record()->setClientSecret("secret");
    (*store_).*c.fault = 0;
    EXPECT_EQ(log.messages(), Lines{"ERROR\t" + c.line});
    EXPECT_EQ(item(), archiveOf(sealed(kInner)));
  }
  store_->target()->remove(kService, kAccount);
  store_->addFault = -25291;
  record()->setClientId("cid");
  EXPECT_FALSE(item());
  EXPECT_EQ(log_.messages(), Lines{"ERROR\tKeychain error: -25291, 'No keychain is available. You "
                                   "may need to restart your computer.' in "
                                   "SecKeychainAddGenericPassword"});
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
    // The first four bytes also catch a description's grouping "<10111213 ...>".
    secrets.insert(secrets.end(), {hex.substr(0, 8), upperHex.substr(0, 8),
                                   Base64::encodeBase64WithData(key)->substr(0, 8)});
  }
  for (const std::string& line : log_.messages()) {
    for (const std::string& secret : secrets)
      EXPECT_EQ(line.find(secret), std::string::npos) << line;
  }
}

TEST_F(SecureDataTest, WritersOfOneRecordLoseNothing) {
  // Two objects for one record, as two clients of one identity would have.
  auto first = record(), second = record();
  std::vector<std::thread> writers;
  for (int t = 0; t < 4; ++t) {
    writers.emplace_back([&, t] {
      SecureData& data = t % 2 ? *first : *second;
      for (int i = 0; i < 25; ++i) data.saveValue("v", stringWithFormat("k%d-%d", t, i));
    });
  }
  for (std::thread& writer : writers) writer.join();
  const std::optional<Dictionary> stored = first->retrieveDataDictionary();
  ASSERT_TRUE(stored);
  EXPECT_EQ(stored->size(), 100u);
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(SecureDataTest, AWriteThatCannotHaveTheLockInTimeWritesNothingAndSaysSo) {
  auto data = record();
  data->setClientId("cid");
  const Data before = item().value();
  SecretStoreLock held;
  std::thread([&] {
    ASSERT_EQ(store_->lockItem(kService, kAccount, std::chrono::seconds(60), &held),
              kSecretStoreSuccess);
  }).join();
  data->setLockTimeout(std::chrono::milliseconds(5));
  data->setClientSecret("secret");
  data->deleteClientId();
  EXPECT_EQ(item(), before);
  const std::string line = "ERROR\tKeychain error: 100060, 'Operation timed out.' in lockItem";
  EXPECT_EQ(log_.messages(), (Lines{line, line}));
}

TEST_F(SecureDataTest, TokensAreForgottenOnlyWhileTheRefreshTokenIsTheOneNamed) {
  auto data = record();
  data->setClientId("cid");
  data->setAccessToken("access-2");
  data->setRefreshToken("refresh-2");
  EXPECT_FALSE(data->deleteTokenEntriesIfRefreshTokenIs("refresh-1"));
  EXPECT_EQ(data->refreshToken(), "refresh-2");
  EXPECT_EQ(data->accessToken(), "access-2");
  EXPECT_TRUE(data->deleteTokenEntriesIfRefreshTokenIs("refresh-2"));
  EXPECT_EQ(openStored(kKeyA), kRecord);
}

}  // namespace
}  // namespace velmor
