// Stores a made-up record as a passcode store's secret-store item and works
// the store's read path on it: existence, protection, input type, passcode
// check, unlock, load, then a save and a lock. The first input byte chooses
// the form: odd, the rest is taken as the item's bytes as they are; even,
// the rest chooses each field of a record built here (passcode, salt, round
// count, passcode HMAC, saved value and its IV, each right, wrong, absent or
// of the wrong kind), so that the decrypting paths are reached.
//
// Nothing may crash, throw or leak; a right passcode unlocks and a wrong one
// does not; a value saved under the right key loads back; a store that is
// unlocked takes a save and loads it back; a locked one refuses both and
// keeps its item; checking a passcode changes nothing.
//
// Round counts are kept small (a stored count is used as it stands, and a
// large one would make each run take seconds).
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "FuzzCheck.h"
#include "storage/CryptoUtility.h"
#include "storage/SecureStoreRecord.h"
#include "support/Text.h"
#include "velmor/Exception.h"
#include "velmor/MemorySecretStore.h"
#include "velmor/SecretStore.h"
#include "velmor/VelmorSimpleSecureStore.h"

namespace {

using velmor::CryptoUtility;
using velmor::Data;
using velmor::Dictionary;
using velmor::SecureStoreRecord;
using velmor::Value;
using velmor::fuzz::require;

constexpr char kService[] = "com.example.fuzz";
constexpr char kAccount[] = "store";
constexpr std::uint32_t kMaxRounds = 64;

// A made-up record and what the store must make of it.
struct Made {
  Data item;
  std::string attempt;
  bool attemptUnlocks = false;       // the attempt is the record's passcode
  std::optional<Value> savedObject;  // what a load must give once unlocked
};

// A text as the property list keeps it: up to its first NUL, with each
// malformed UTF-8 byte as U+FFFD.
std::string storedForm(const std::string& text) {
  return velmor::text::toUtf8(velmor::text::toUtf16(text.substr(0, text.find('\0'))));
}

Value wrongKind(FuzzedDataProvider& input) { return Value(input.ConsumeRandomLengthString(8)); }

Data bytes(FuzzedDataProvider& input, std::size_t most) {
  return input.ConsumeBytes<std::uint8_t>(input.ConsumeIntegralInRange<std::size_t>(0, most));
}

Value roundCount(FuzzedDataProvider& input, std::optional<std::uint32_t>* usable) {
  switch (input.ConsumeIntegralInRange<int>(0, 4)) {
    case 0: {
      const auto rounds = input.ConsumeIntegralInRange<std::uint32_t>(1, kMaxRounds);
      *usable = rounds;
      return Value(static_cast<std::int64_t>(rounds));
    }
    case 1:
      return Value(std::int64_t{0});
    case 2:
      return Value(-input.ConsumeIntegralInRange<std::int64_t>(1, 1 << 20));
    case 3:
      return Value(std::int64_t{1} << 32);
    default:
      return wrongKind(input);
  }
}

// Salt, round count, input type and passcode HMAC, each possibly broken;
// returns the key a right passcode derives, when the record allows one.
std::optional<Data> protect(FuzzedDataProvider& input, const std::string& passcode,
                            Dictionary& record, bool* unlockable) {
  std::optional<Data> salt;
  switch (input.ConsumeIntegralInRange<int>(0, 3)) {
    case 0:
      salt = input.ConsumeBytes<std::uint8_t>(CryptoUtility::kSaltLength);
      break;
    case 1:
      salt = bytes(input, 32);
      break;
    case 2:
      record.set(SecureStoreRecord::kSaltKey, wrongKind(input));
      break;
    default:
      break;
  }
  if (salt) record.set(SecureStoreRecord::kSaltKey, *salt);
  std::optional<std::uint32_t> rounds;
  if (input.ConsumeBool())
    record.set(SecureStoreRecord::kRoundCountKey, roundCount(input, &rounds));
  if (input.ConsumeBool()) {
    record.set(SecureStoreRecord::kPasscodeInputTypeKey, input.ConsumeIntegral<std::int64_t>());
  }

  std::optional<Data> key;
  if (salt && rounds) {
    std::uint32_t used = 0;
    key = CryptoUtility::generateAesKeyForPassword(passcode, *salt, *rounds, &used);
  }
  switch (input.ConsumeIntegralInRange<int>(0, 3)) {
    case 0:
      if (key) {
        record.set(
            SecureStoreRecord::kPasscodeHmacKey,
            CryptoUtility::calculateHmacWithKey(*key, Data(passcode.begin(), passcode.end())));
        *unlockable = true;
        break;
      }
      [[fallthrough]];
    case 1:
      record.set(SecureStoreRecord::kPasscodeHmacKey,
                 input.ConsumeBytes<std::uint8_t>(CryptoUtility::kHmacLength));
      break;
    case 2:
      record.set(SecureStoreRecord::kPasscodeHmacKey, wrongKind(input));
      break;
    default:
      break;
  }
  return key;
}

// The saved value: a known one, fuzz bytes as its archive, or the wrong
// kind; encrypted when there is a key, with its IV as made, dropped or
// replaced.
std::optional<Value> saveValue(FuzzedDataProvider& input, const std::optional<Data>& key,
                               Dictionary& record) {
  std::optional<Value> known;
  Data archive;
  switch (input.ConsumeIntegralInRange<int>(0, 3)) {
    case 0:
      return std::nullopt;
    case 1: {
      const std::string text = input.ConsumeRandomLengthString(64);
      archive = SecureStoreRecord::archiveSingleObject(Value(text));
      known = Value(storedForm(text));
      break;
    }
    case 2:
      archive = bytes(input, 512);
      break;
    default:
      record.set(SecureStoreRecord::kAppDataKey, wrongKind(input));
      return std::nullopt;
  }
  std::optional<Data> iv;
  if (key) {
    std::optional<Data> ciphertext = CryptoUtility::encryptData(archive, *key, &iv, nullptr);
    require(ciphertext.has_value());
    archive = std::move(*ciphertext);
  }
  record.set(SecureStoreRecord::kAppDataKey, std::move(archive));
  switch (input.ConsumeIntegralInRange<int>(0, 2)) {
    case 0:
      if (iv) record.set(SecureStoreRecord::kAppDataIvKey, *iv);
      return known;
    case 1:
      record.set(SecureStoreRecord::kAppDataIvKey, bytes(input, 24));
      return std::nullopt;
    default:
      return iv ? std::nullopt : known;
  }
}

Made build(FuzzedDataProvider& input) {
  Made made;
  const std::string passcode = input.ConsumeRandomLengthString(16);
  made.attempt = input.ConsumeBool() ? passcode : input.ConsumeRandomLengthString(16);
  Dictionary record;
  if (input.ConsumeBool()) record.set(SecureStoreRecord::kVersionKey, SecureStoreRecord::kVersion);
  bool unlockable = false;
  std::optional<Data> key;
  if (input.ConsumeBool()) key = protect(input, passcode, record, &unlockable);
  made.attemptUnlocks = unlockable && made.attempt == passcode;
  // A saved value is readable with the right key, or without protection.
  std::optional<Value> known = saveValue(input, unlockable ? key : std::nullopt, record);
  if (made.attemptUnlocks || !record.contains(SecureStoreRecord::kPasscodeHmacKey)) {
    made.savedObject = known;
  }
  made.item = SecureStoreRecord::archiveSingleObject(record);
  return made;
}

// A raw item's stored round count, when it is one that would take long.
bool hasCostlyRoundCount(const Data& item) {
  try {
    const std::optional<Dictionary> record = SecureStoreRecord::unarchiveDictionary(item);
    const Value* rounds = record ? record->find(SecureStoreRecord::kRoundCountKey) : nullptr;
    if (!rounds) return false;
    if (const std::int64_t* n = rounds->intValue()) return *n > kMaxRounds;
    if (const std::uint64_t* n = rounds->uintValue()) return *n > kMaxRounds;
  } catch (const velmor::Exception&) {
  }
  return false;
}

void work(const Made& made, bool knowsOutcome) {
  auto store = std::make_shared<velmor::MemorySecretStore>();
  velmor::SecretStore::setDefault(store);
  require(store->add(kService, kAccount, made.item) == velmor::kSecretStoreSuccess);

  velmor::VelmorSimpleSecureStore secure(kService, kAccount);
  require(secure.storeExists());
  if (!secure.isPasscodeProtected()) {
    require(secure.passcodeInputType() == velmor::VelmorSimpleSecureStore::kPasscodeInputTypeNone);
  }
  const bool wasUnlocked = secure.isUnlocked();
  const bool checked = secure.checkPasscode(made.attempt);
  require(secure.isUnlocked() == wasUnlocked);
  const bool unlocked = secure.unlock(made.attempt);
  require(unlocked == checked);
  if (knowsOutcome) require(unlocked == made.attemptUnlocks);
  if (unlocked) require(secure.isUnlocked() && secure.isPasscodeProtected());

  const std::optional<Value> loaded = secure.loadObject();
  if (knowsOutcome && made.savedObject) require(loaded == made.savedObject);

  const Value probe(std::string("probe"));
  if (secure.isUnlocked()) {
    require(secure.saveObject(probe));
    require(secure.loadObject() == probe);
  } else {
    Data before;
    require(store->find(kService, kAccount, &before) == velmor::kSecretStoreSuccess);
    require(!secure.saveObject(probe) && !secure.loadObject());
    Data after;
    require(store->find(kService, kAccount, &after) == velmor::kSecretStoreSuccess);
    require(after == before);
  }
  require(secure.lock());
  if (secure.isPasscodeProtected()) require(!secure.isUnlocked());
  require(secure.deleteStore() && !secure.storeExists());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  if (data[0] & 1) {
    Made made;
    made.item.assign(data + 1, data + size);
    made.attempt = "1234";
    if (!hasCostlyRoundCount(made.item)) work(made, false);
  } else {
    FuzzedDataProvider input(data + 1, size - 1);
    work(build(input), true);
  }
  velmor::SecretStore::setDefault(nullptr);
  return 0;
}
