#include "velmor/VelmorSimpleSecureStore.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/PropertyList.h"
#include "storage/CryptoUtility.h"
#include "storage/PbkdfCalibration.h"
#include "storage/SecureStoreRecord.h"
#include "testing/FaultySecretStore.h"
#include "testing/RecordingLoggerDelegate.h"
#include "testing/ScopedSecretStore.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor {
namespace {

constexpr char kService[] = "Notes Vault";
constexpr char kAccount[] = "anna";
constexpr char kUnlockFailed[] = "INFO\tFailed to unlock. Passcode does not match.";
const Value kNotes = Value(Dictionary{{"note", "buy milk"}, {"count", 2}});

Data bytes(std::string_view text) { return Data(text.begin(), text.end()); }

std::size_t countIn(const test::RecordingLoggerDelegate& recorder, const std::string& message) {
  const std::vector<std::string> messages = recorder.messages();
  return static_cast<std::size_t>(std::count(messages.begin(), messages.end(), message));
}

bool anyMessageContains(const test::RecordingLoggerDelegate& recorder, const std::string& text) {
  const std::vector<std::string> messages = recorder.messages();
  return std::any_of(messages.begin(), messages.end(),
                     [&](const std::string& m) { return m.find(text) != std::string::npos; });
}

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

  // A store protected by `passcode`, optionally holding `object`, under a
  // round count small enough to keep checking passcodes fast; the store
  // reuses whatever count it finds. Returns the key.
  Data writeProtectedStore(const std::string& passcode, std::optional<Value> object = {}) {
    const Data salt = CryptoUtility::randomSalt();
    std::uint32_t rounds = 0;
    Data key = CryptoUtility::generateAesKeyForPassword(passcode, salt, 1000, &rounds);
    Dictionary dictionary{
        {"Version", 1},
        {"PasscodeInputType", SecureStoreRecord::determinePasscodeInputType(passcode)},
        {"Salt", salt},
        {"RoundCount", 1000},
        {"PasscodeHMAC", CryptoUtility::calculateHmacWithKey(key, bytes(passcode))}};
    if (object) {
      std::optional<Data> iv;
      Data archive = SecureStoreRecord::archiveSingleObject(*object);
      dictionary.set("AppData", *CryptoUtility::encryptData(archive, key, &iv, nullptr));
      dictionary.set("AppDataIV", *iv);
    }
    writeDictionary(dictionary);
    return key;
  }

  std::size_t countOf(const std::string& message) const { return countIn(recorder_, message); }

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
      {"1234", 1}, {"12345", 2}, {"123", 2},  {"", 2},
      {"12a4", 3}, {"12 4", 3},  {"١٢٣٤", 3},  // Arabic-Indic digits are not among "0123456789"
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

TEST_F(VelmorSimpleSecureStoreTest, ALockedStoreOpensOnlyWithItsPasscode) {
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
  EXPECT_EQ(store.loadObject(), kNotes);
  EXPECT_TRUE(store.saveObject(Value("other")));
  const Dictionary resaved = storedDictionary();
  ASSERT_EQ(resaved.find("AppDataIV")->dataValue()->size(), 16u);
  EXPECT_NE(*resaved.find("AppDataIV"), *written.find("AppDataIV"));  // new at every save

  EXPECT_TRUE(store.lock());
  EXPECT_EQ(store.loadObject(), std::nullopt);
  EXPECT_TRUE(store.unlock("2468"));
  EXPECT_EQ(store.loadObject(), Value("other"));

  // Without a passcode the object is stored plain.
  EXPECT_TRUE(store.changePasscode(std::nullopt));
  EXPECT_FALSE(store.isPasscodeProtected());
  EXPECT_EQ(storedDictionary(),
            (Dictionary{{"Version", 1},
                        {"AppData", SecureStoreRecord::archiveSingleObject(Value("other"))}}));
  EXPECT_EQ(VelmorSimpleSecureStore(kService, kAccount).loadObject(), Value("other"));
}

// Calibrates once (~0.3 s) and checks a passcode once with the calibrated count.
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
  EXPECT_GT(*after.find("RoundCount")->intValue(), 1000);
  EXPECT_EQ(after.find("PasscodeHMAC")->dataValue()->size(), 32u);
  // The object moved to the new key; the old one no longer opens it.
  EXPECT_NE(CryptoUtility::decryptData(*after.find("AppData")->dataValue(), oldKey,
                                       *after.find("AppDataIV")->dataValue(), nullptr),
            SecureStoreRecord::archiveSingleObject(kNotes));
  EXPECT_EQ(store.loadObject(), kNotes);

  VelmorSimpleSecureStore reopened(kService, kAccount);
  EXPECT_TRUE(reopened.unlock("12a4"));
  EXPECT_EQ(reopened.loadObject(), kNotes);
  EXPECT_EQ(countOf("INFO\t-[VelmorSimpleSecureStore changePasscode: '***']"), 1u);
  EXPECT_FALSE(anyMessageContains(recorder_, "12a4"));
}

// Calibrates once and checks a passcode once with the calibrated count.
TEST_F(VelmorSimpleSecureStoreTest, AnEmptyPasscodeStillProtectsANewStore) {
  VelmorSimpleSecureStore store(kService, kAccount);
  EXPECT_TRUE(store.changePasscode(""));
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
        "INFO\t-[VelmorSimpleSecureStore saveObject: '<redacted>']",
        "INFO\t-[VelmorSimpleSecureStore changePasscode: '***']"}},
      {5,
       {"INFO\t-[VelmorSimpleSecureStore checkPasscode: '1357']",
        "INFO\t-[VelmorSimpleSecureStore unlock: '2468']",
        "INFO\t-[VelmorSimpleSecureStore saveObject: '{\n    token = s3cr3t;\n}']",
        "INFO\t-[VelmorSimpleSecureStore changePasscode: '(null)']"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.level);
    writeProtectedStore("2468");
    test::RecordingLoggerDelegate recorder;
    test::ScopedLogger logger(c.level, &recorder);
    VelmorSimpleSecureStore store(kService, kAccount);
    store.checkPasscode("1357");
    store.unlock("2468");
    store.changePasscode(std::nullopt);
    store.saveObject(Value(Dictionary{{"token", "s3cr3t"}}));
    for (const std::string& line : c.expected) EXPECT_EQ(countIn(recorder, line), 1u) << line;
    if (c.level >= 5) continue;
    for (const char* secret : {"1357", "2468", "s3cr3t"}) {
      EXPECT_FALSE(anyMessageContains(recorder, secret)) << secret;
    }
  }
}

TEST_F(VelmorSimpleSecureStoreTest, AMissingSaltOrRoundCountGoesToTheErrorFunnel) {
  const Data hmac(32, 7);
  const Dictionary cases[] = {
      {{"PasscodeHMAC", hmac}, {"RoundCount", 1000}},
      {{"PasscodeHMAC", hmac}, {"Salt", Data(8, 1)}},
      {{"PasscodeHMAC", hmac}, {"Salt", Data(8, 1)}, {"RoundCount", 0}},
  };
  for (const Dictionary& dictionary : cases) {
    SCOPED_TRACE(Value(dictionary).description());
    test::RecordingLoggerDelegate recorder;
    test::ScopedLogger logger(3, &recorder);
    writeDictionary(dictionary);
    EXPECT_FALSE(VelmorSimpleSecureStore(kService, kAccount).unlock("2468"));
    // The funnel shows the error's description, and errors named only by
    // their domain ("Missing Salt", code -1) have none.
    EXPECT_EQ(countIn(recorder, "ERROR\t(null)"), 1u);
    EXPECT_EQ(countIn(recorder, kUnlockFailed), 1u);
    EXPECT_FALSE(anyMessageContains(recorder, "Key generation"));
  }
}

// A count that would keep unlock busy for hours is refused before any
// derivation; one within the ceiling is still derived with.
TEST_F(VelmorSimpleSecureStoreTest, AnExcessiveRoundCountIsRefusedUnchecked) {
  const std::uint32_t ceiling = PbkdfCalibration::storedRoundCountCeiling();
  ASSERT_GT(ceiling, 100'000u);
  const std::uint32_t excessive[] = {ceiling + 1, 0xFFFFFFFFu};
  for (const std::uint32_t roundCount : excessive) {
    SCOPED_TRACE(roundCount);
    test::RecordingLoggerDelegate recorder;
    test::ScopedLogger logger(3, &recorder);
    writeDictionary({{"PasscodeHMAC", Data(32, 7)},
                     {"Salt", Data(8, 1)},
                     {"RoundCount", static_cast<std::int64_t>(roundCount)}});
    EXPECT_FALSE(VelmorSimpleSecureStore(kService, kAccount).unlock("2468"));
    EXPECT_EQ(countIn(recorder, "ERROR\tThe stored RoundCount, " + std::to_string(roundCount) +
                                    ", is more than 100 times what this machine derives in 300 "
                                    "ms; the passcode is not checked."),
              1u);
    EXPECT_FALSE(anyMessageContains(recorder, "Key generation"));
  }
}

TEST_F(VelmorSimpleSecureStoreTest, ADamagedObjectCostsTheWholeStore) {
  const Data garbage = bytes("not an archive");
  const std::string report =
      "ERROR\tException name: 'NSInvalidArgumentException' reason: '*** -[NSKeyedUnarchiver "
      "initForReadingWithData:]: incomprehensible archive (14 bytes)'";
  writeDictionary({{"Version", 1}, {"AppData", garbage}});
  VelmorSimpleSecureStore plain(kService, kAccount);
  EXPECT_EQ(plain.loadObject(), std::nullopt);
  EXPECT_EQ(countOf(report), 1u);
  EXPECT_FALSE(plain.storeExists());

  const Data key = writeProtectedStore("2468");
  Dictionary dictionary = storedDictionary();
  std::optional<Data> iv;
  dictionary.set("AppData", *CryptoUtility::encryptData(garbage, key, &iv, nullptr));
  dictionary.set("AppDataIV", *iv);
  writeDictionary(dictionary);
  VelmorSimpleSecureStore encrypted(kService, kAccount);
  ASSERT_TRUE(encrypted.unlock("2468"));
  EXPECT_EQ(encrypted.loadObject(), std::nullopt);
  EXPECT_EQ(countOf(report), 2u);
  EXPECT_FALSE(encrypted.storeExists());
  EXPECT_FALSE(encrypted.isPasscodeProtected());  // the key went with the store
}

TEST_F(VelmorSimpleSecureStoreTest, UndecryptableOrUndecodableRecordsAreReportedAndKept) {
  writeProtectedStore("2468");
  Dictionary dictionary = storedDictionary();
  // Not a whole number of AES blocks: no key decrypts it, whatever salt the
  // passcode's key was derived with.
  dictionary.set("AppData", Data(33, 9));
  dictionary.set("AppDataIV", Data(16, 0));
  writeDictionary(dictionary);
  VelmorSimpleSecureStore store(kService, kAccount);
  ASSERT_TRUE(store.unlock("2468"));
  EXPECT_EQ(store.loadObject(), std::nullopt);
  EXPECT_EQ(countOf("ERROR\tFailed to decrypt application data."), 1u);
  EXPECT_EQ(storedDictionary(), dictionary);

  const std::string prefix = "ERROR\tFailed to unarchive data. Possibly corrupted. Error: '";
  writeItem(bytes("garbage"));
  EXPECT_EQ(VelmorSimpleSecureStore(kService, kAccount).passcodeInputType(), 0);
  EXPECT_EQ(countOf(prefix + "*** -[NSKeyedUnarchiver initForReadingWithData:]: "
                             "incomprehensible archive (7 bytes)'"),
            1u);
  writeItem(SecureStoreRecord::archiveSingleObject(Value("text")));
  EXPECT_EQ(VelmorSimpleSecureStore(kService, kAccount).passcodeInputType(), 0);
  EXPECT_EQ(countOf(prefix + "value for key 'Object' is not a dictionary'"), 1u);
  EXPECT_TRUE(store.storeExists());
}

TEST_F(VelmorSimpleSecureStoreTest, ReadsALaterVersionLikeTheFirst) {
  writeDictionary({{"Version", 2}, {"AppData", SecureStoreRecord::archiveSingleObject(kNotes)}});
  VelmorSimpleSecureStore store(kService, kAccount);
  EXPECT_EQ(store.loadObject(), kNotes);
  EXPECT_TRUE(store.saveObject(Value("other")));
  EXPECT_EQ(*storedDictionary().find("Version")->intValue(), 2);
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

// Saving into a locked keyring keeps its result (the value counts as handed
// over), but the error log says, in the store's words, what is wrong, and the
// store's condition could have told the application before.
TEST_F(VelmorSimpleSecureStoreTest, ALockedKeyringIsNamedInTheErrorLog) {
  secretStore_->findFault = secretStore_->addFault = secretStore_->conditionFault = -25308;
  VelmorSimpleSecureStore store(kService, kAccount);
  EXPECT_FALSE(SecretStore::defaultStore()->condition().usable());
  EXPECT_TRUE(store.saveObject(kNotes));
  EXPECT_TRUE(store.saveObject(kNotes));
  EXPECT_EQ(countOf(std::string("ERROR\t") + test::FaultySecretStore::kConditionFaultReason), 1u);
  EXPECT_EQ(countOf("ERROR\tKeychain error: -25308, 'The keyring is locked, or there is no "
                    "default keyring.' in SecKeychainAddGenericPassword"),
            2u);
}

}  // namespace
}  // namespace velmor
