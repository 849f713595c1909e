#include "velmor/VelmorSimpleSecureStore.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/PropertyList.h"
#include "storage/CryptoUtility.h"
#include "storage/SecureStoreRecord.h"
#include "testing/FaultySecretStore.h"
#include "testing/RecordingLoggerDelegate.h"
#include "testing/ScopedSecretStore.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor {
namespace {

constexpr char kService[] = "Notes Vault";
constexpr char kAccount[] = "anna";
// Few rounds keep the tests that only check passcodes fast; the store
// reuses whatever count it finds.
constexpr std::uint32_t kFewRounds = 1000;

constexpr char kUnlockFailed[] = "INFO\tFailed to unlock. Passcode does not match.";

Data bytes(std::string_view text) { return Data(text.begin(), text.end()); }

const Value kNotes = Value(Dictionary{{"note", "buy milk"}, {"count", 2}});

class VelmorSimpleSecureStoreTest : public ::testing::Test {
 protected:
  Dictionary storedDictionary() {
    Data data;
    EXPECT_EQ(secretStore_->find(kService, kAccount, &data), kSecretStoreSuccess);
    return SecureStoreRecord::unarchiveDictionary(data).value_or(Dictionary{});
  }

  void writeItem(const Data& data) {
    if (secretStore_->update(kService, kAccount, data) == kSecretStoreItemNotFound) {
      secretStore_->add(kService, kAccount, data);
    }
  }

  void writeDictionary(const Dictionary& dictionary) {
    writeItem(SecureStoreRecord::archiveSingleObject(dictionary));
  }

  // A store protected by `passcode` under a cheap round count, optionally
  // holding `object`. Returns its key.
  Data writeProtectedStore(const std::string& passcode, std::optional<Value> object = {}) {
    const Data salt = CryptoUtility::randomSalt();
    std::uint32_t rounds = 0;
    Data key = CryptoUtility::generateAesKeyForPassword(passcode, salt, kFewRounds, &rounds);
    Dictionary dictionary{
        {"Version", 1},
        {"PasscodeInputType", SecureStoreRecord::determinePasscodeInputType(passcode)},
        {"Salt", salt},
        {"RoundCount", static_cast<std::int64_t>(kFewRounds)},
        {"PasscodeHMAC", CryptoUtility::calculateHmacWithKey(key, bytes(passcode))}};
    if (object) {
      std::optional<Data> iv;
      dictionary.set("AppData",
                     *CryptoUtility::encryptData(SecureStoreRecord::archiveSingleObject(*object),
                                                 key, &iv, nullptr));
      dictionary.set("AppDataIV", *iv);
    }
    writeDictionary(dictionary);
    return key;
  }

  std::size_t countOf(const std::string& message) const {
    std::vector<std::string> messages = recorder_.messages();
    return static_cast<std::size_t>(std::count(messages.begin(), messages.end(), message));
  }

  bool anyMessageContains(const std::string& text) const {
    for (const std::string& message : recorder_.messages()) {
      if (message.find(text) != std::string::npos) return true;
    }
    return false;
  }

  std::shared_ptr<test::FaultySecretStore> secretStore_ =
      std::make_shared<test::FaultySecretStore>();
  test::ScopedSecretStore scope_{secretStore_};
  test::RecordingLoggerDelegate recorder_;
  test::ScopedLogger logger_{4, &recorder_};
};

TEST(SecureStoreRecordTest, TellsWhichKeypadAPasscodeNeeds) {
  struct Case {
    const char* passcode;
    std::int64_t expected;
  } cases[] = {
      {"1234", 1},     {"12345", 2}, {"123", 2},  {"", 2},
      {"12a4", 3},     {"a234", 3},  {"12 4", 3}, {"١٢٣٤", 3},  // Arabic-Indic digits
      {"１２３４", 3},                                          // full-width digits
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.passcode);
    EXPECT_EQ(SecureStoreRecord::determinePasscodeInputType(c.passcode), c.expected);
  }
}

TEST_F(VelmorSimpleSecureStoreTest, AnUnprotectedStoreKeepsItsObjectPlain) {
  VelmorSimpleSecureStore store(kService, kAccount);
  EXPECT_FALSE(store.storeExists());
  EXPECT_FALSE(store.isPasscodeProtected());
  EXPECT_TRUE(store.isUnlocked());
  EXPECT_EQ(store.passcodeInputType(), 0);
  EXPECT_EQ(store.loadObject(), std::nullopt);
  EXPECT_FALSE(store.unlock("1234"));  // nothing to unlock, although unlocked

  EXPECT_TRUE(store.saveObject(kNotes));
  EXPECT_TRUE(store.storeExists());
  EXPECT_EQ(store.loadObject(), kNotes);

  // The item is a binary keyed archive: {"Object": {"Version": 1, "AppData": archive}}.
  Data item;
  secretStore_->find(kService, kAccount, &item);
  EXPECT_EQ(std::string(item.begin(), item.begin() + 8), "bplist00");
  const Data archive = SecureStoreRecord::archiveSingleObject(kNotes);
  EXPECT_EQ(PropertyList::parse(item),
            Value(Dictionary{{"Object", Dictionary{{"Version", 1}, {"AppData", archive}}}}));
  EXPECT_EQ(PropertyList::parse(archive), Value(Dictionary{{"Object", kNotes}}));

  EXPECT_TRUE(store.deleteStore());
  EXPECT_FALSE(store.storeExists());
}

TEST_F(VelmorSimpleSecureStoreTest, ALockedStoreRefusesUntilUnlockedWithThePasscode) {
  writeProtectedStore("2468", kNotes);
  const Dictionary written = storedDictionary();
  VelmorSimpleSecureStore store(kService, kAccount);
  EXPECT_TRUE(store.isPasscodeProtected());
  EXPECT_FALSE(store.isUnlocked());
  EXPECT_EQ(store.passcodeInputType(), 1);
  EXPECT_EQ(store.loadObject(), std::nullopt);
  EXPECT_FALSE(store.saveObject(Value("other")));
  EXPECT_FALSE(store.changePasscode(std::nullopt));
  EXPECT_EQ(storedDictionary(), written);

  EXPECT_FALSE(store.unlock("1357"));
  EXPECT_FALSE(store.isUnlocked());
  EXPECT_EQ(countOf(kUnlockFailed), 2u);
  EXPECT_FALSE(store.checkPasscode("1357"));
  EXPECT_EQ(countOf(kUnlockFailed), 3u);
  EXPECT_EQ(countOf("INFO\tPasscode does not match."), 1u);
  EXPECT_TRUE(store.checkPasscode("2468"));
  EXPECT_FALSE(store.isUnlocked());  // checking keeps no key

  EXPECT_TRUE(store.unlock("2468"));
  EXPECT_TRUE(store.isUnlocked());
  EXPECT_EQ(store.loadObject(), kNotes);
  EXPECT_TRUE(store.saveObject(Value("other")));
  const Data* iv = storedDictionary().find("AppDataIV")->dataValue();
  ASSERT_NE(iv, nullptr);
  EXPECT_EQ(iv->size(), 16u);
  EXPECT_NE(*iv, *written.find("AppDataIV")->dataValue());  // a new IV at every save

  EXPECT_TRUE(store.lock());
  EXPECT_EQ(store.loadObject(), std::nullopt);
  EXPECT_TRUE(store.unlock("2468"));
  EXPECT_EQ(store.loadObject(), Value("other"));
  EXPECT_EQ(VelmorSimpleSecureStore(kService, kAccount).loadObject(), std::nullopt);

  EXPECT_TRUE(store.deleteStore());
  EXPECT_FALSE(store.isPasscodeProtected());
  EXPECT_TRUE(store.isUnlocked());
}

TEST_F(VelmorSimpleSecureStoreTest, RemovingThePasscodeStoresTheObjectPlain) {
  writeProtectedStore("2468", kNotes);
  VelmorSimpleSecureStore store(kService, kAccount);
  ASSERT_TRUE(store.unlock("2468"));
  EXPECT_TRUE(store.changePasscode(std::nullopt));
  EXPECT_FALSE(store.isPasscodeProtected());
  EXPECT_EQ(
      storedDictionary(),
      (Dictionary{{"Version", 1}, {"AppData", SecureStoreRecord::archiveSingleObject(kNotes)}}));
  EXPECT_EQ(VelmorSimpleSecureStore(kService, kAccount).loadObject(), kNotes);
}

// Calibrates once (~0.3 s) and validates once with the calibrated count.
TEST_F(VelmorSimpleSecureStoreTest, ANewPasscodeGetsANewSaltRoundCountAndKey) {
  const Data oldKey = writeProtectedStore("2468", kNotes);
  const Dictionary before = storedDictionary();
  VelmorSimpleSecureStore store(kService, kAccount);
  ASSERT_TRUE(store.unlock("2468"));
  EXPECT_TRUE(store.changePasscode("12a4"));

  const Dictionary after = storedDictionary();
  EXPECT_EQ(*after.find("Version")->intValue(), 1);
  EXPECT_EQ(*after.find("PasscodeInputType")->intValue(), 3);
  EXPECT_EQ(after.find("Salt")->dataValue()->size(), 8u);
  EXPECT_NE(*after.find("Salt"), *before.find("Salt"));
  EXPECT_GT(*after.find("RoundCount")->intValue(), 0);
  EXPECT_NE(*after.find("RoundCount"), *before.find("RoundCount"));
  EXPECT_EQ(after.find("PasscodeHMAC")->dataValue()->size(), 32u);
  // The object moved to the new key; the old one no longer opens it.
  ErrorRef error;
  std::optional<Data> withOldKey = CryptoUtility::decryptData(
      *after.find("AppData")->dataValue(), oldKey, *after.find("AppDataIV")->dataValue(), &error);
  EXPECT_NE(withOldKey, SecureStoreRecord::archiveSingleObject(kNotes));
  EXPECT_EQ(store.loadObject(), kNotes);

  VelmorSimpleSecureStore reopened(kService, kAccount);
  EXPECT_EQ(reopened.passcodeInputType(), 3);
  EXPECT_TRUE(reopened.unlock("12a4"));
  EXPECT_EQ(reopened.loadObject(), kNotes);

  EXPECT_EQ(countOf("INFO\t-[VelmorSimpleSecureStore changePasscode: '***']"), 1u);
  EXPECT_FALSE(anyMessageContains("12a4"));
  EXPECT_FALSE(anyMessageContains("2468"));
}

// Calibrates once and validates once with the calibrated count.
TEST_F(VelmorSimpleSecureStoreTest, AnEmptyPasscodeStillProtectsANewStore) {
  test::ScopedLogger sensitive(5, &recorder_);
  VelmorSimpleSecureStore store(kService, kAccount);
  EXPECT_TRUE(store.changePasscode(""));
  EXPECT_EQ(countOf("INFO\t-[VelmorSimpleSecureStore changePasscode: '']"), 1u);
  EXPECT_TRUE(store.isPasscodeProtected());
  EXPECT_EQ(store.passcodeInputType(), 2);
  EXPECT_FALSE(storedDictionary().contains("AppData"));
  EXPECT_TRUE(store.lock());
  EXPECT_FALSE(store.isUnlocked());
  EXPECT_TRUE(store.unlock(""));
}

TEST_F(VelmorSimpleSecureStoreTest, LogsSecretsOnlyAtTheSensitiveLevel) {
  writeProtectedStore("2468");
  struct Case {
    std::int64_t level;
    std::vector<std::string> expected;
  } cases[] = {
      {4,
       {"INFO\t-[VelmorSimpleSecureStore initWithKeychainServiceName: 'Notes Vault' "
        "serviceAccount: 'anna']",
        "INFO\t-[VelmorSimpleSecureStore checkPasscode: '***']",
        "INFO\t-[VelmorSimpleSecureStore unlock: '***']",
        "INFO\t-[VelmorSimpleSecureStore saveObject: '<redacted>']"}},
      {5,
       {"INFO\t-[VelmorSimpleSecureStore initWithKeychainServiceName: 'Notes Vault' "
        "serviceAccount: 'anna']",
        "INFO\t-[VelmorSimpleSecureStore checkPasscode: '1357']",
        "INFO\t-[VelmorSimpleSecureStore unlock: '2468']",
        "INFO\t-[VelmorSimpleSecureStore saveObject: '{\n    token = s3cr3t;\n}']"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.level);
    test::RecordingLoggerDelegate recorder;
    test::ScopedLogger logger(c.level, &recorder);
    VelmorSimpleSecureStore store(kService, kAccount);
    store.checkPasscode("1357");
    store.unlock("2468");
    store.saveObject(Value(Dictionary{{"token", "s3cr3t"}}));
    std::vector<std::string> calls;
    for (const std::string& message : recorder.messages()) {
      if (message.find("-[VelmorSimpleSecureStore initWith") != std::string::npos ||
          message.find("Passcode:") != std::string::npos ||
          message.find("unlock:") != std::string::npos ||
          message.find("saveObject:") != std::string::npos) {
        calls.push_back(message);
      }
      if (c.level < 5) {
        EXPECT_EQ(message.find("2468"), std::string::npos) << message;
        EXPECT_EQ(message.find("1357"), std::string::npos) << message;
        EXPECT_EQ(message.find("s3cr3t"), std::string::npos) << message;
      }
    }
    EXPECT_EQ(calls, c.expected);
  }
}

TEST_F(VelmorSimpleSecureStoreTest, AMissingSaltOrRoundCountGoesToTheErrorFunnel) {
  const Data hmac(32, 7);
  struct Case {
    const char* name;
    Dictionary dictionary;
  } cases[] = {
      {"no salt", {{"Version", 1}, {"PasscodeHMAC", hmac}, {"RoundCount", 1000}}},
      {"no round count", {{"Version", 1}, {"PasscodeHMAC", hmac}, {"Salt", Data(8, 1)}}},
      {"round count 0",
       {{"Version", 1}, {"PasscodeHMAC", hmac}, {"Salt", Data(8, 1)}, {"RoundCount", 0}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    test::RecordingLoggerDelegate recorder;
    test::ScopedLogger logger(3, &recorder);
    writeDictionary(c.dictionary);
    VelmorSimpleSecureStore store(kService, kAccount);
    EXPECT_FALSE(store.unlock("2468"));
    // The funnel shows the error's description, which errors named only by
    // their domain ("Missing Salt", code -1) do not have.
    const std::vector<std::string> messages = recorder.messages();
    EXPECT_EQ(std::count(messages.begin(), messages.end(), "ERROR\t(null)"), 1);
    EXPECT_EQ(std::count(messages.begin(), messages.end(), kUnlockFailed), 1);
    for (const std::string& message : messages) {
      EXPECT_EQ(message.find("Key generation"), std::string::npos) << message;
    }
  }
}

TEST_F(VelmorSimpleSecureStoreTest, ADamagedObjectCostsTheWholeStore) {
  const Data garbage = bytes("not an archive");
  const std::string expectedReport =
      "ERROR\tException name: 'NSInvalidArgumentException' reason: '*** -[NSKeyedUnarchiver "
      "initForReadingWithData:]: incomprehensible archive (14 bytes)'";
  {
    SCOPED_TRACE("plain");
    writeDictionary({{"Version", 1}, {"AppData", garbage}});
    VelmorSimpleSecureStore store(kService, kAccount);
    EXPECT_EQ(store.loadObject(), std::nullopt);
    EXPECT_EQ(countOf(expectedReport), 1u);
    EXPECT_FALSE(store.storeExists());
  }
  {
    SCOPED_TRACE("encrypted");
    const Data key = writeProtectedStore("2468");
    Dictionary dictionary = storedDictionary();
    std::optional<Data> iv;
    dictionary.set("AppData", *CryptoUtility::encryptData(garbage, key, &iv, nullptr));
    dictionary.set("AppDataIV", *iv);
    writeDictionary(dictionary);
    VelmorSimpleSecureStore store(kService, kAccount);
    ASSERT_TRUE(store.unlock("2468"));
    EXPECT_EQ(store.loadObject(), std::nullopt);
    EXPECT_EQ(countOf(expectedReport), 2u);
    EXPECT_FALSE(store.storeExists());
    EXPECT_FALSE(store.isPasscodeProtected());  // the key went with the store
  }
}

TEST_F(VelmorSimpleSecureStoreTest, AnUndecryptableObjectLeavesTheStoreAsItIs) {
  const Data key = writeProtectedStore("2468");
  Dictionary dictionary = storedDictionary();
  dictionary.set("AppData", Data(32, 9));
  dictionary.set("AppDataIV", Data(16, 0));
  writeDictionary(dictionary);
  VelmorSimpleSecureStore store(kService, kAccount);
  ASSERT_TRUE(store.unlock("2468"));
  EXPECT_EQ(store.loadObject(), std::nullopt);
  EXPECT_EQ(countOf("ERROR\tFailed to decrypt application data."), 1u);
  EXPECT_EQ(storedDictionary(), dictionary);
}

TEST_F(VelmorSimpleSecureStoreTest, AnUndecodableRecordIsReportedAndKept) {
  struct Case {
    const char* name;
    Data item;
    std::string reason;
  } cases[] = {
      {"not an archive", bytes("garbage"),
       "*** -[NSKeyedUnarchiver initForReadingWithData:]: incomprehensible archive (7 bytes)"},
      {"not a dictionary", SecureStoreRecord::archiveSingleObject(Value("text")),
       "value for key 'Object' is not a dictionary"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    writeItem(c.item);
    VelmorSimpleSecureStore store(kService, kAccount);
    EXPECT_FALSE(store.isPasscodeProtected());
    EXPECT_EQ(
        countOf("ERROR\tFailed to unarchive data. Possibly corrupted. Error: '" + c.reason + "'"),
        1u);
    EXPECT_TRUE(store.storeExists());
  }
}

TEST_F(VelmorSimpleSecureStoreTest, ReadsALaterVersionLikeTheFirst) {
  writeDictionary({{"Version", 2}, {"AppData", SecureStoreRecord::archiveSingleObject(kNotes)}});
  VelmorSimpleSecureStore store(kService, kAccount);
  EXPECT_EQ(store.loadObject(), kNotes);
  EXPECT_TRUE(store.saveObject(Value("other")));
  EXPECT_EQ(*storedDictionary().find("Version")->intValue(), 2);
  EXPECT_EQ(store.loadObject(), Value("other"));
}

TEST_F(VelmorSimpleSecureStoreTest, SecretStoreFailuresGoToTheErrorFunnel) {
  auto report = [](const char* call, std::int32_t status) {
    return "ERROR\t" + *VelmorAuthorizationError(call, status).description();
  };
  VelmorSimpleSecureStore store(kService, kAccount);
  secretStore_->addFault = kSecretStoreIoError;
  EXPECT_TRUE(store.saveObject(kNotes));  // handed over; the failure is only reported
  EXPECT_EQ(countOf(report("SecKeychainAddGenericPassword", -36)), 1u);
  EXPECT_FALSE(store.storeExists());

  secretStore_->addFault = 0;
  ASSERT_TRUE(store.saveObject(kNotes));
  secretStore_->updateFault = kSecretStoreIoError;
  EXPECT_TRUE(store.saveObject(Value("other")));
  EXPECT_EQ(countOf(report("SecKeychainItemModifyContent", -36)), 1u);
  EXPECT_EQ(store.loadObject(), kNotes);

  secretStore_->removeFault = kSecretStoreIoError;
  EXPECT_TRUE(store.deleteStore());
  EXPECT_EQ(countOf(report("SecKeychainItemDelete", -36)), 1u);

  secretStore_->findFault = kSecretStoreNotAvailable;
  EXPECT_FALSE(store.storeExists());  // a failed lookup counts as absent
}

}  // namespace
}  // namespace velmor
